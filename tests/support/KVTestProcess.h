#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// Runs a program to its end for a test and collects what it did: its exit status and both outputs.
// The test's event loop turns meanwhile, so that servers of the test keep answering.
namespace KVTestProcess {

struct Outcome
{
    bool finished = false; // false: it was still running at the time-out and has been killed
    int exitStatus = -1;   // -1 also when it crashed or could not be started
    QString output;
    QString errors;

    bool succeeded() const { return finished && exitStatus == 0; }
};

// The command is the program followed by its arguments. An empty environment is the test's own.
Outcome run(const QStringList &command, int timeoutMilliseconds = 120000, const QString &workingDirectory = {},
            const QProcessEnvironment &environment = {});

} // namespace KVTestProcess
