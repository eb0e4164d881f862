#pragma once

#include <QString>
#include <QStringList>

// Makes a self-update survivable: the installer that swapped a new build in over itself keeps its
// own bundle beside the new one, and a detached watcher puts it back and starts it when the
// relaunched build does not confirm within a time limit that it runs. Remembers which versions were
// tried, so that no version is ever installed over this installer twice.
namespace KVInstallerRelaunch {

// Where the previous installer waits beside the bundle: "<folder>/.<name>.previous".
QString previousBundlePath(const QString &bundlePath);

// Starts the watcher for the relaunch of the bundle: when its previous bundle is still there after
// the time limit, the watcher moves it back into place and runs its program with the arguments.
// previousProgram is the program's path inside the bundle once moved back. Thread: any.
void watch(const QString &bundlePath, const QString &previousProgram, const QStringList &arguments);

// Called by an installer that has started: its previous bundle is no longer needed.
void confirm(const QString &bundlePath);

// The installer versions that were already swapped in, or found broken once downloaded whole.
bool wasTried(const QString &version);
void recordTried(const QString &version);

} // namespace KVInstallerRelaunch
