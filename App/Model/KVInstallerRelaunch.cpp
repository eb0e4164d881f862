#include "App/Model/KVInstallerRelaunch.h"

#include "Core/Logging/KVLog.h"
#include "Platform/KVDetachedProcess.h"
#include "Platform/KVFileOperations.h"
#include "Platform/KVUserDefaults.h"

#include <QFileInfo>

namespace {
const QString kTriedVersionsKey = QStringLiteral("InstallerSelfUpdateVersions");
// Long enough for a relaunched build to pass its single-instance guard on a busy machine.
constexpr int kConfirmationSeconds = 30;

// Arguments: previous bundle, bundle, then the previous program and its arguments. Waits for the
// confirmation (the previous bundle removed); without it, puts the previous bundle back and runs it.
const QString kWatchScript =
    QStringLiteral("previous=$1 bundle=$2; shift 2\n"
                   "for ((i = 0; i < %1 * 10; ++i)); do [ -e \"$previous\" ] || exit 0; sleep 0.1; done\n"
                   "rm -rf -- \"$bundle\" && mv -T -- \"$previous\" \"$bundle\" && exec setsid -- \"$@\" </dev/null "
                   ">/dev/null 2>&1\n");
} // namespace

namespace KVInstallerRelaunch {

QString previousBundlePath(const QString &bundlePath)
{
    const QFileInfo bundle(bundlePath);
    return bundle.absolutePath() + QStringLiteral("/.") + bundle.fileName() + QStringLiteral(".previous");
}

void watch(const QString &bundlePath, const QString &previousProgram, const QStringList &arguments)
{
    const QStringList scriptArguments{QStringLiteral("-c"),
                                      kWatchScript.arg(kConfirmationSeconds),
                                      QStringLiteral("nestora-relaunch-watch"),
                                      previousBundlePath(bundlePath),
                                      bundlePath,
                                      previousProgram};
    if (const KVResult<qint64> started =
            KVDetachedProcess::start(QStringLiteral("/bin/bash"), scriptArguments + arguments);
        !started)
        KVLogError("%s: failed to watch the relaunch of %@ with error %@", __func__, bundlePath, started.error());
}

void confirm(const QString &bundlePath)
{
    const QString previous = previousBundlePath(bundlePath);
    if (!KVFileOperations::itemExists(previous))
        return;
    if (const KVResult<> removed = KVFileOperations::removeItem(previous); !removed)
        KVLogError("%s: failed to remove the previous installer %@ with error %@", __func__, previous, removed.error());
    else
        KVLogInfo("%s: the relaunched installer runs; removed the previous one", __func__);
}

bool wasTried(const QString &version)
{
    const QVariant tried = KVUserDefaults::standardUserDefaults().persistentObjectForKey(kTriedVersionsKey);
    return tried.toStringList().contains(version);
}

void recordTried(const QString &version)
{
    KVUserDefaults &defaults = KVUserDefaults::standardUserDefaults();
    QStringList tried = defaults.persistentObjectForKey(kTriedVersionsKey).toStringList();
    if (tried.contains(version))
        return;
    tried << version;
    defaults.setObject(kTriedVersionsKey, QVariant(tried));
    if (!defaults.synchronize())
        KVLogError("%s: failed to record the installer version %@ as tried", __func__, version);
}

} // namespace KVInstallerRelaunch
