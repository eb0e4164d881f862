#include "App/Model/KVInstallerUpdateRun.h"
#include "App/Model/KVSectionUpdateRun.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVLocalizedString.h"

QString KVDownloadingMessageKey(const KVTransferProgress &progress)
{
    return progress.retrying ? QStringLiteral("IDS_INSTALLER_DOWNLOAD_RETRYING")
                             : QStringLiteral("IDS_INSTALLER_DOWNLOADING");
}

QVariantMap KVProgressMessage(const QString &key)
{
    return {{QStringLiteral("message"), KVLocalizedString(key)}};
}

void KVUpdateHelper::updateWithSections(const QList<KVINISectionPtr> &sections, KVProgressHandler progressHandler,
                                        KVUpdateCompletionHandler completionHandler)
{
    m_queue->async([this, sections, progressHandler = std::move(progressHandler),
                    completionHandler = std::move(completionHandler)] {
        KVSectionUpdateRun(*this, sections, progressHandler, completionHandler).run();
    });
}

void KVUpdateHelper::updateInstaller(const KVINISectionPtr &section, KVProgressHandler progressHandler,
                                     KVUpdateCompletionHandler completionHandler)
{
    m_queue->async([this, section, progressHandler = std::move(progressHandler),
                    completionHandler = std::move(completionHandler)] {
        KVInstallerUpdateRun(*this, section, progressHandler, completionHandler).run();
    });
}
