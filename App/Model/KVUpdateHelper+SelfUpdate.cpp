#include "App/Model/KVInstallerRelaunch.h"
#include "App/Model/KVLeftovers.h"
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
// The running installer's bundle, or where it really lies when the system runs a translocated copy.
QString installerTargetPath(bool logAtErrorLevel)
{
    QString bundlePath = KVBundle::mainBundle().bundlePath();
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
                    error = KVError(KVURLErrorDomain, KVURLErrorConnectionFailed,
                                    {{KVUnderlyingErrorKey, QVariant::fromValue(downloadError)}});
                finished.release();
            });
        finished.acquire();

        if (!error && shouldVerifyMD5() && !fileMatchesDigestOfSection(downloadPath, *section)) {
            error = KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorMD5Mismatch);
            KVLogError("%@", error);
        }

        const QString target = installerTargetPath(true);
        // Read before the swap: once the old bundle is back in place, this is its program.
        const QString previousProgram =
            target + QStringLiteral("/Contents/MacOS/") + QFileInfo(KVBundle::mainBundle().executablePath()).fileName();
        if (!error) {
            // Downloaded whole: whatever this build turns out to be, it is not installed over this
            // installer a second time.
            const QString version = section->name().section(QLatin1Char('_'), -1);
            KVInstallerRelaunch::recordTried(version);
            KVDispatch::syncMain([&] { report(0.7f, KVProgressMessage(QStringLiteral("IDS_INSTALLER_UPDATING"))); });
            KVError unzipError;
            // The new build must be this installer's bundle, whole, and must run, before it may
            // replace this one.
            const KVArchiveCheck expectedBundle(QFileInfo(target).fileName(), KVInstallerBundleIdentifier);
            const std::optional<QStringList> items = unzip(downloadPath, &unzipError, expectedBundle);
            if (unzipError) {
                error = unzipError;
                KVLogError("Failed to unzip %@ with error:%@", downloadPath, unzipError);
            } else if ((error = expectedBundle.checkReportedVersion(items->first(), version))) {
                KVLogError("%@: the new installer %@ does not run: %@", kClassName, items->first(), error);
            } else {
                KVDispatch::syncMain(
                    [&] { report(0.9f, KVProgressMessage(QStringLiteral("IDS_INSTALLER_UPDATING"))); });
                (void)deployInstaller(items->first(), target, &error);
                if (error)
                    KVLogError("Failed to deployInstaller %@ to %@ with error:%@", *items, target, error);
            }
            if (items) // the extraction folder, emptied by the swap or holding a build that failed
                KVLeftovers::removeUnpackingFolderOf(*items);
        }
        (void)KVFileOperations::removeItem(downloadPath);

        setUpdating(false);
        if (KVCancellation::isRequested())
            return;
        KVDispatch::syncMain([&] {
            report(1.0f, std::nullopt);
            if (completionHandler)
                completionHandler({}, error);
            if (error)
                KVLogError("%@ failed to update installer with error %@", kClassName, error);
        });
        if (!error) {
            KVInstallerRelaunch::watch(target, previousProgram, relaunchArguments());
            launchInstaller();
        }
    });
}

QStringList KVUpdateHelper::relaunchArguments()
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
    return QStringList{QStringLiteral("-KVWindowOrigin"), KVNumberText(float(origin.x())),
                       KVNumberText(float(origin.y()))} +
           m_host.relaunchArguments;
}

void KVUpdateHelper::launchInstaller()
{
    if (KVCancellation::isRequested())
        return;
    launchWithBundlePath(installerTargetPath(false), relaunchArguments(), 0);
    KVDispatch::syncMain([&] {
        if (m_host.terminate)
            m_host.terminate();
    });
}
