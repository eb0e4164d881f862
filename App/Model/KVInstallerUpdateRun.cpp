#include "App/Model/KVInstallerUpdateRun.h"

#include "App/Model/KVInstallerRelaunch.h"
#include "App/Model/KVLeftovers.h"

#include "Core/Extensions/KVNumberText.h"
#include "Core/Extensions/KVWindowPlacement.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"
#include "Platform/KVFileOperations.h"
#include "Platform/KVTranslocation.h"

#include <QDir>
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

KVInstallerUpdateRun::KVInstallerUpdateRun(KVUpdateHelper &engine, KVINISectionPtr section,
                                           KVProgressHandler progressHandler,
                                           KVUpdateCompletionHandler completionHandler)
    : m_engine(engine)
    , m_section(std::move(section))
    , m_progressHandler(std::move(progressHandler))
    , m_completionHandler(std::move(completionHandler))
    , m_downloadPath(engine.downloadPathForSection(*m_section))
{}

void KVInstallerUpdateRun::run()
{
    m_engine.setUpdating(true);
    download();
    verifyDigest();
    locateTarget();
    if (!m_runError)
        install();
    (void)KVFileOperations::removeItem(m_downloadPath);
    m_engine.setUpdating(false);
    if (KVCancellation::isRequested())
        return;
    complete();
    if (!m_runError)
        relaunch();
}

void KVInstallerUpdateRun::report(float fraction, const std::optional<QVariantMap> &info) const
{
    if (m_progressHandler)
        m_progressHandler(fraction, info);
}

void KVInstallerUpdateRun::download()
{
    (void)KVFileOperations::removeItem(m_downloadPath);
    QDir().mkpath(QFileInfo(m_downloadPath).absolutePath());
    // The callbacks run on the main thread while this thread waits for the semaphore.
    QSemaphore finished;
    KVUpdateHelper::downloadURL(
        m_section->valueForKey(QStringLiteral("URL")), m_downloadPath,
        [this](const KVTransferProgress &progress) {
            const float fraction = float(double(progress.completedUnitCount) / double(progress.totalUnitCount) * 0.5);
            report(fraction, KVProgressMessage(KVDownloadingMessageKey(progress)));
        },
        [this, &finished](const QString &, const KVError &downloadError) {
            if (downloadError)
                m_runError = KVError(KVURLErrorDomain, KVURLErrorConnectionFailed,
                                     {{KVUnderlyingErrorKey, QVariant::fromValue(downloadError)}});
            finished.release();
        },
        KVUpdateHelper::expectedDownloadOfSection(*m_section));
    finished.acquire();
}

void KVInstallerUpdateRun::verifyDigest()
{
    if (m_runError || !m_engine.shouldVerifyMD5() || m_engine.fileMatchesDigestOfSection(m_downloadPath, *m_section))
        return;
    m_runError = KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorMD5Mismatch);
    KVLogError("%@", m_runError);
}

void KVInstallerUpdateRun::locateTarget()
{
    m_target = installerTargetPath(true);
    // Read before the swap: once the old bundle is back in place, this is its program.
    m_previousProgram =
        m_target + QStringLiteral("/Contents/MacOS/") + QFileInfo(KVBundle::mainBundle().executablePath()).fileName();
}

void KVInstallerUpdateRun::install()
{
    // Downloaded whole: whatever this build turns out to be, it is not installed over this
    // installer a second time.
    const QString version = m_section->releaseVersion();
    KVInstallerRelaunch::recordTried(version);
    KVDispatch::syncMain([this] { report(0.7f, KVProgressMessage(QStringLiteral("IDS_INSTALLER_UPDATING"))); });
    KVError unzipError;
    // The new build must be this installer's bundle, whole, and must run, before it may replace
    // this one.
    const KVArchiveCheck expectedBundle(QFileInfo(m_target).fileName(), KVInstallerBundleIdentifier);
    const std::optional<QStringList> items = KVUpdateHelper::unzip(m_downloadPath, &unzipError, expectedBundle);
    if (unzipError) {
        m_runError = unzipError;
        KVLogError("Failed to unzip %@ with error:%@", m_downloadPath, unzipError);
    } else if ((m_runError = expectedBundle.checkReportedVersion(items->first(), version).error())) {
        KVLogError("%@: the new installer %@ does not run: %@", KVUpdateHelper::kClassName, items->first(), m_runError);
    } else {
        KVDispatch::syncMain([this] { report(0.9f, KVProgressMessage(QStringLiteral("IDS_INSTALLER_UPDATING"))); });
        (void)KVUpdateHelper::deployInstaller(items->first(), m_target, &m_runError);
        if (m_runError)
            KVLogError("Failed to deployInstaller %@ to %@ with error:%@", *items, m_target, m_runError);
    }
    if (items) // the extraction folder, emptied by the swap or holding a build that failed
        KVLeftovers::removeUnpackingFolderOf(*items);
}

void KVInstallerUpdateRun::complete()
{
    KVDispatch::syncMain([this] {
        report(1.0f, std::nullopt);
        if (m_completionHandler)
            m_completionHandler({}, m_runError);
        if (m_runError)
            KVLogError("%@ failed to update installer with error %@", KVUpdateHelper::kClassName, m_runError);
    });
}

void KVInstallerUpdateRun::relaunch()
{
    KVInstallerRelaunch::watch(m_target, m_previousProgram, relaunchArguments());
    if (KVCancellation::isRequested())
        return;
    KVUpdateHelper::launchWithBundlePath(installerTargetPath(false), relaunchArguments(), 0);
    KVDispatch::syncMain([this] {
        if (m_engine.host().terminate)
            m_engine.host().terminate();
    });
}

QStringList KVInstallerUpdateRun::relaunchArguments() const
{
    const KVUpdateHost &host = m_engine.host();
    QSizeF windowSize;
    QSizeF screenSize;
    double menuBarHeight = 0;
    KVDispatch::syncMain([&] {
        windowSize = host.windowSize ? host.windowSize() : QSizeF();
        screenSize = host.screenSize ? host.screenSize() : QSizeF();
        menuBarHeight = host.menuBarHeight ? host.menuBarHeight() : 0;
    });
    const QPointF origin = KVWindowPlacement::topRightOrigin(screenSize, windowSize, menuBarHeight);
    return QStringList{QStringLiteral("-KVWindowOrigin"), KVNumberText(float(origin.x())),
                       KVNumberText(float(origin.y()))} +
           host.relaunchArguments;
}
