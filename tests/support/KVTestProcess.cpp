#include "KVTestProcess.h"

#include <QProcess>
#include <QtTest>

namespace KVTestProcess {

Outcome run(const QStringList &command, int timeoutMilliseconds, const QString &workingDirectory,
            const QProcessEnvironment &environment)
{
    QProcess process;
    process.setWorkingDirectory(workingDirectory);
    if (!environment.isEmpty())
        process.setProcessEnvironment(environment);
    process.start(command.value(0), command.mid(1));
    Outcome outcome;
    outcome.finished = process.waitForStarted(10000) &&
                       QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, timeoutMilliseconds);
    if (!outcome.finished && process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(10000);
    }
    if (outcome.finished && process.exitStatus() == QProcess::NormalExit)
        outcome.exitStatus = process.exitCode();
    outcome.output = QString::fromUtf8(process.readAllStandardOutput());
    outcome.errors = QString::fromUtf8(process.readAllStandardError());
    return outcome;
}

} // namespace KVTestProcess
