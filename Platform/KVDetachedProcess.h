#pragma once

#include "Core/Extensions/KVResult.h"

#include <QStringList>

// Starts programs that outlive the process that starts them: each runs in a session of its own,
// in "/", with /dev/null as standard input and output, default signal handling and none of the
// starter's other file descriptors. Nothing waits for it to finish; its exit status is collected
// in the background so that it never lingers as a zombie while the starter runs on.
namespace KVDetachedProcess {

// The new process's id, or the error that kept the program from starting.
KVResult<qint64> start(const QString &program, const QStringList &arguments);

} // namespace KVDetachedProcess
