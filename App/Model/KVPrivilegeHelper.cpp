#include "App/Model/KVPrivilegeHelper.h"
#include "Core/Extensions/KVShellQuoting.h"
#include "Platform/KVChildProcess.h"

#include <QMutex>
#include <QProcess>

namespace {

QMutex elevatorMutex;
QString elevatorOverride;

// pkexec's exit status for a dismissed prompt.
constexpr int kDismissedStatus = 126;

QString withoutFinalNewline(QString text)
{
    if (text.endsWith(QLatin1Char('\n')))
        text.chop(1);
    return text;
}

} // namespace

QString KVPrivilegeHelper::elevator()
{
    QMutexLocker lock(&elevatorMutex);
    if (!elevatorOverride.isEmpty())
        return elevatorOverride;
    const QString fromEnvironment = qEnvironmentVariable("NESTORA_ELEVATOR");
    return fromEnvironment.isEmpty() ? QStringLiteral("pkexec") : fromEnvironment;
}

void KVPrivilegeHelper::setElevator(const QString &program)
{
    QMutexLocker lock(&elevatorMutex);
    elevatorOverride = program;
}

bool KVPrivilegeHelper::runProcessAsAdministrator(const QString &scriptPath, const QStringList &arguments,
                                                  QString *output, QString *errorDescription, int *exitStatus)
{
    Q_ASSERT(output && errorDescription);
    const QString commandLine =
        KVShellQuoting::singleQuoted(scriptPath) + QLatin1Char(' ') + arguments.join(QLatin1Char(' '));

    // The command line is one argument of its own: nothing between here and the shell re-parses it.
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(elevator(), {QStringLiteral("/bin/sh"), QStringLiteral("-c"), commandLine});
    const bool ran = KVChildProcess::waitForExit(process);
    *errorDescription = QString();
    if (exitStatus)
        *exitStatus = ran ? process.exitCode() : -1;
    if (!ran) {
        *errorDescription = process.errorString();
        return false;
    }
    if (process.exitCode() == 0) {
        *output = withoutFinalNewline(QString::fromLocal8Bit(process.readAllStandardOutput()));
        return true;
    }
    // 127 (refused, or no authentication agent) keeps pkexec's own explanation.
    if (process.exitCode() == kDismissedStatus) {
        *errorDescription = QStringLiteral("The administrator password is required to do this.");
        return false;
    }
    const QString message = QString::fromLocal8Bit(process.readAllStandardError()).trimmed();
    if (!message.isEmpty())
        *errorDescription = message;
    return false;
}
