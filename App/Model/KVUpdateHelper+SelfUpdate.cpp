#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVNumberText.h"
#include "Core/Extensions/KVWindowPlacement.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"
#include "Platform/KVFileOperations.h"
#include "Platform/KVTranslocation.h"

#include <QFileInfo>
#include <QSemaphore>

namespace {
const QString kClassName = QStringLiteral("KVUpdateHelper");

// The running installer's bundle, or where it really lies when the system runs a translocated copy.
QString installerTargetPath(bool logAtErrorLevel)
{
    const QString bundlePath = KVBundle::mainBundle().bundlePath();
    const QUrl current = QUrl::fromLocalFile(bundlePath);
    QUrl original;
    if (!KVTranslocation::isTranslocatedURL(current, &original))
        return bundlePath;
    if (logAtErrorLevel)
        KVLogError("curUrl:%@ , oriUrl:%@", current, original);
    else
        KVLogInfo("curUrl:%@ , oriUrl:%@", current, original);
    return original.toLocalFile();
}
} // namespace

void KVUpdateHelper::updateInstaller(const KVINISectionPtr &section, KVProgressHandler progressHandler,
                                     KVUpdateCompletionHandler completionHandler)
{
    m_queue->async([this, section, progressHandler = std::move(progressHandler),
                    completionHandler = std::move(completionHandler)] {
        const auto report = [&](float fraction, const std::optional<QVariantMap> &info) {
            if (progressHandler)
                progressHandler(fraction, info);
        };
        setUpdating(true);
        KVError error;

        const QString url = section->valueForKey(QStringLiteral("URL"));
        const QString downloadPath = downloadPathForSection(*section);
        (void)KVFileOperations::removeItem(downloadPath);
        // The callbacks run on the main thread while this thread waits for the semaphore.
        QSemaphore finished;
        downloadURL(
            url, downloadPath,
            [&](const KVTransferProgress &progress) {
                const float fraction =
                    float(double(progress.completedUnitCount) / double(progress.totalUnitCount) * 0.5);
                report(fraction, KVProgressMessage(QStringLiteral("IDS_INSTALLER_DOWNLOADING")));
            },
            [&](const QString &, const KVError &downloadError) {
                if (downloadError)
                    error = KVError(KVURLErrorDomain, 2);
                finished.release();
            });
        finished.acquire();

        // With verification on, even a failed download is told as a digest mismatch.
        if (shouldVerifyMD5() && !fileMatchesDigestOfSection(downloadPath, *section)) {
            error = KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorMD5Mismatch);
            KVLogError("%@", error);
        }

        const QString target = installerTargetPath(true);
        if (!error) {
            KVDispatch::syncMain([&] { report(0.7f, KVProgressMessage(QStringLiteral("IDS_INSTALLER_UPDATING"))); });
            KVError unzipError;
            // The new build must be this installer's bundle, whole, before it may replace this one.
            const std::optional<QStringList> items = unzip(
                downloadPath, &unzipError, KVArchiveCheck(QFileInfo(target).fileName(), KVInstallerBundleIdentifier));
            if (unzipError) {
                error = unzipError;
                KVLogError("Failed to unzip %@ with error:%@", downloadPath, unzipError);
            } else {
                KVDispatch::syncMain(
                    [&] { report(0.9f, KVProgressMessage(QStringLiteral("IDS_INSTALLER_UPDATING"))); });
                (void)deployInstaller(items->first(), target, &error);
                if (error)
                    KVLogError("Failed to deployInstaller %@ to %@ with error:%@", *items, target, error);
            }
        }

        setUpdating(false);
        KVDispatch::syncMain([&] {
            report(1.0f, std::nullopt);
            if (completionHandler)
                completionHandler({}, error);
            if (error)
                KVLogError("%@ failed to update installer with error %@", kClassName, error);
        });
        if (!error)
            launchInstaller();
    });
}

void KVUpdateHelper::launchInstaller()
{
    QSizeF windowSize;
    QSizeF screenSize;
    double menuBarHeight = 0;
    KVDispatch::syncMain([&] {
        windowSize = m_host.windowSize ? m_host.windowSize() : QSizeF();
        screenSize = m_host.screenSize ? m_host.screenSize() : QSizeF();
        menuBarHeight = m_host.menuBarHeight ? m_host.menuBarHeight() : 0;
    });
    const QPointF origin = KVWindowPlacement::topRightOrigin(screenSize, windowSize, menuBarHeight);
    const QStringList arguments = QStringList{QStringLiteral("-KVWindowOrigin"), KVNumberText(float(origin.x())),
                                              KVNumberText(float(origin.y()))} +
                                  m_host.relaunchArguments;
    launchWithBundlePath(installerTargetPath(false), arguments, 0);
    KVDispatch::syncMain([&] {
        if (m_host.terminate)
            m_host.terminate();
    });
}
