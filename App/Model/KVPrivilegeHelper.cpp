#include "App/Model/KVPrivilegeHelper.h"
#include "Core/Extensions/KVShellQuoting.h"

#include <QMutex>
#include <QProcess>

namespace {

QMutex elevatorMutex;
QString elevatorOverride;

// pkexec's exit statuses for a dismissed prompt and for a refused authorisation.
constexpr int kDismissedStatus = 126;
constexpr int kNotAuthorizedStatus = 127;

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
                                                  QString *output, QString *errorDescription)
{
    Q_ASSERT(output && errorDescription);
    const QString commandLine = KVShellQuoting::singleQuoted(scriptPath) + QLatin1Char(' ') + arguments.join(QLatin1Char(' '));

    // The command line is one argument of its own: nothing between here and the shell re-parses it.
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(elevator(), {QStringLiteral("/bin/sh"), QStringLiteral("-c"), commandLine});
    const bool ran = process.waitForFinished(-1) && process.exitStatus() == QProcess::NormalExit;
    *errorDescription = QString();
    if (!ran) {
        *errorDescription = process.errorString();
        return false;
    }
    if (process.exitCode() == 0) {
        *output = withoutFinalNewline(QString::fromLocal8Bit(process.readAllStandardOutput()));
        return true;
    }
    if (process.exitCode() == kDismissedStatus || process.exitCode() == kNotAuthorizedStatus) {
        *errorDescription = QStringLiteral("The administrator password is required to do this.");
        return false;
    }
    const QString message = QString::fromLocal8Bit(process.readAllStandardError()).trimmed();
    if (!message.isEmpty())
        *errorDescription = message;
    return false;
}
