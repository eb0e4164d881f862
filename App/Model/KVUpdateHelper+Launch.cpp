#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVNumberText.h"
#include "Core/Extensions/KVShellQuoting.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"
#include "Platform/KVDetachedProcess.h"
#include "Platform/KVFileOperations.h"
#include "Platform/KVRunningApplication.h"
#include "Platform/KVStandardPaths.h"
#include "Platform/KVSystemLog.h"
#include "Platform/KVUserDefaults.h"

#include <QFileInfo>

namespace {
const QString kLaunchDateKey = QStringLiteral("InstallerLastLaunchDate");
const QString kUpdateDateKey = QStringLiteral("InstallerUpdateDate");
constexpr int kLastLaunchAttempt = 10; // attempts 0 to 10

QString secondsSince1970(const QDateTime &date)
{
    return KVNumberText(double(date.toMSecsSinceEpoch()) / 1000.0);
}

// Whether the application at the bundle path can be started, and if not, why.
KVResult<> launchabilityOfApplication(const QString &bundlePath)
{
    if (!KVFileOperations::itemExists(bundlePath))
        return KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorNothingInstalled,
                       {{KVFilePathErrorKey, bundlePath}});
    const std::optional<KVBundle> bundle = KVBundle::bundleWithPath(bundlePath);
    const QFileInfo executable(bundle ? bundle->executablePath() : QString());
    if (!executable.isFile() || !executable.isExecutable())
        return KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorLaunchFailed,
                       {{KVFilePathErrorKey, bundlePath},
                        {KVLocalizedDescriptionKey, QStringLiteral("no executable program in the bundle")}});
    return {};
}
} // namespace

void KVUpdateHelper::launchApp()
{
    if (KVCancellation::isRequested())
        return; // the user quit: nothing starts behind their back
    QPointF origin;
    KVDispatch::syncMain([&] {
        if (m_host.windowOrigin)
            origin = m_host.windowOrigin();
    });

    KVUserDefaults &defaults = KVUserDefaults::standardUserDefaults();
    const QDateTime launchDate = defaults.dateForKey(kLaunchDateKey);
    if (!launchDate.isValid())
        KVLogError("invaild install launch date!");
    QStringList arguments{QStringLiteral("-KVWindowOrigin"), KVNumberText(float(origin.x())),
                          KVNumberText(float(origin.y())), QStringLiteral("-InstallerLaunchDate"),
                          launchDate.isValid() ? secondsSince1970(launchDate) : QStringLiteral("0")};
    const QDateTime updateDate = defaults.dateForKey(kUpdateDateKey);
    if (updateDate.isValid())
        arguments << QStringLiteral("-InstallerUpdatedDate") << secondsSince1970(updateDate);
    // Consumed here, so that a later start of the application from elsewhere does not repeat them.
    defaults.removeObjectForKey(kLaunchDateKey);
    defaults.removeObjectForKey(kUpdateDateKey);

    KVLogError("%@ start parameters %@", kClassName, arguments);
    const QString bundlePath = KVStandardPaths::applicationsDirectory() + QStringLiteral("/Nestora.app");
    const KVResult<> launchable = launchabilityOfApplication(bundlePath);
    if (!launchable)
        KVLogError("%@ cannot launch %@: %@", kClassName, bundlePath, launchable.error());
    else
        launchWithBundlePath(bundlePath, arguments, 0);
    KVDispatch::syncMain([&] {
        if (!launchable && m_host.launchDidFail)
            m_host.launchDidFail(launchable.error());
        else if (m_host.terminate)
            m_host.terminate();
    });
}

bool KVUpdateHelper::terminateWithBundleId(const QString &bundleIdentifier)
{
    bool delivered = false;
    for (const KVRunningApplication &application :
         KVRunningApplication::runningApplicationsWithBundleIdentifier(bundleIdentifier))
        delivered = application.forceTerminate();
    return delivered;
}

void KVUpdateHelper::launchWithBundlePath(const QString &bundlePath, const QStringList &arguments, float after)
{
    // Linux's counterpart of `open "bundle" --args …`: the bundle's program in a session of its
    // own with no input or output. Like open, it returns only once the program runs (the
    // background child no longer runs bash or setsid) or has failed to start: otherwise pgrep
    // could look before the program exists and start a second one. Every word is quoted, so no
    // path or argument can turn into a command of its own.
    const std::optional<KVBundle> bundle = KVBundle::bundleWithPath(bundlePath);
    const QString executable = bundle ? bundle->executablePath() : QString();
    if (executable.isEmpty()) {
        KVLogError("%@ no application to launch at %@", kClassName, bundlePath);
        return;
    }
    // The subshell puts back the default handling of SIGINT and SIGQUIT, which bash sets to
    // "ignore" for every command it runs in the background.
    const QString openCommand =
        QStringLiteral("sleep %1; (trap - INT QUIT; exec setsid -- %2 </dev/null >/dev/null 2>&1) & "
                       "while [ /proc/$!/exe -ef /proc/$$/exe -o /proc/$!/exe -ef \"$(type -P setsid)\" ]; "
                       "do sleep 0.01; done;")
            .arg(QString::number(after, 'f', 6), KVShellQuoting::joined(QStringList{executable} + arguments));
    // Try until the program runs: the process just started is still alive (whatever program it
    // has become), or a process of this user runs a program from the bundle's executable folder
    // (one that handed over to a running copy and ended, or the installer that is about to end).
    // Processes are told by their executable's path, never by a name Linux cuts to 15 bytes.
    const QString script =
        QStringLiteral("FOLDER=%1 \n running() { for p in $(pgrep -U \"$UID\"); do case $(readlink \"/proc/$p/exe\") in"
                       " \"$FOLDER\"/*) return 0;; esac; done; return 1; } \n for i in {0..%2}; do \n %3 \n"
                       " if [ -e /proc/$!/exe ] || running; then \n break \n fi \n done")
            .arg(KVShellQuoting::quoted(QFileInfo(executable).path()), QString::number(kLastLaunchAttempt),
                 openCommand);
    KVSystemLog::write(QStringLiteral("Command:%1").arg(script));

    if (const KVResult<qint64> started =
            KVDetachedProcess::start(QStringLiteral("/bin/bash"), {QStringLiteral("-c"), script});
        !started)
        KVLogError("%@ failed to start the launch script with error %@", kClassName, started.error());
}
