#pragma once

#include <QString>
#include <QStringList>

// Runs a script as root behind the desktop's own authentication prompt (polkit's pkexec), for the
// one deployment that the user's own rights cannot do: replacing the application in a folder the
// user may not write.
class KVPrivilegeHelper
{
public:
    // Runs the command line "'scriptPath' arguments..." with /bin/sh as root. The arguments must
    // already be quoted for the shell (KVShellQuoting::singleQuoted). Answers true with the command's standard
    // output in *output when it succeeded. Otherwise answers false with *errorDescription set to
    // "The administrator password is required to do this." when the prompt was dismissed, else
    // the error output, or null when there was none; *output is then left untouched. *exitStatus,
    // when given, receives the elevator's exit status, or -1 when it could not be started.
    // Blocks until the prompt is answered and the command has ended. Thread: the engine's queue
    // (never the main thread while the installer's window is up).
    [[nodiscard]] static bool runProcessAsAdministrator(const QString &scriptPath, const QStringList &arguments,
                                                        QString *output, QString *errorDescription,
                                                        int *exitStatus = nullptr);

    // The program that elevates: the one set with setElevator(), else $NESTORA_ELEVATOR, else
    // "pkexec". Tests substitute a stand-in that runs the command without elevation.
    static QString elevator();
    // An empty program restores the default. Thread: any.
    static void setElevator(const QString &program);
};
