#include "App/Model/KVDownloadTask.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVFileHandle+MD5.h"
#include "Core/Extensions/KVUUID.h"
#include "Core/Extensions/KVVersionComparison.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVStandardPaths.h"
#include "Platform/KVUserDefaults.h"

#include <QFile>

void KVUpdateHelper::downloadURL(const QString &url, const QString &destination,
                                 std::function<void(const KVTransferProgress &)> progress,
                                 std::function<void(const QString &path, const KVError &error)> completionHandler,
                                 const KVExpectedDownload &expected)
{
    KVLogVerbose("%@ will download url %@", kClassName, QUrl(url));
    const QString target =
        destination.isEmpty() ? KVStandardPaths::temporaryDirectory() + QLatin1Char('/') + KVUUIDString() : destination;
    auto completion = [url, completionHandler = std::move(completionHandler)](const QString &path,
                                                                              const KVError &error) {
        KVLogVerbose("%@ did download url %@, error %@", kClassName, QUrl(url), error);
        if (completionHandler)
            completionHandler(path, error);
    };
    // The transfer lives on the main thread, so a caller on the engine's queue may block on a
    // semaphore until the completion arrives.
    KVDispatch::asyncMain([url, target, expected, progress = std::move(progress), completion = std::move(completion)] {
        KVDownloadTask::start(QUrl(url), target, expected, progress, completion);
    });
}

KVExpectedDownload KVUpdateHelper::expectedDownloadOfSection(const KVINISection &section)
{
    const qint64 bytes = leadingIntegerValue(section.valueForKey(QStringLiteral("Bytes")));
    return {bytes > 0 ? std::optional(bytes) : std::nullopt, section.valueForKey(QStringLiteral("SHA256")).toLatin1(),
            section.valueForKey(QStringLiteral("MD5")).toLatin1()};
}

bool KVUpdateHelper::shouldVerifyMD5() const
{
    return !KVUserDefaults::standardUserDefaults().boolForKey(QStringLiteral("LiveUpdateMD5VerificationDisabled"));
}

bool KVUpdateHelper::fileMatchesDigestOfSection(const QString &path, const KVINISection &section) const
{
    const QString expected = section.valueForKey(QStringLiteral("MD5"));
    QFile file(path);
    const QString actual = KVFileHandle::md5Value(file.open(QIODevice::ReadOnly) ? &file : nullptr);
    // Exact and case-sensitive: a digest published in upper case does not match.
    return !expected.isNull() && !actual.isNull() && expected == actual;
}
