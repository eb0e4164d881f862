#pragma once

#include "Core/Extensions/KVError.h"

#include <QStringList>
#include <optional>

// Starts programs that outlive the process that starts them: each runs in a session of its own,
// in "/", with /dev/null as standard input and output, default signal handling and none of the
// starter's other file descriptors. Nothing waits for it to finish; its exit status is collected
// in the background so that it never lingers as a zombie while the starter runs on.
namespace KVDetachedProcess {

// The new process's id, or nothing with *error set when the program could not be started.
[[nodiscard]] std::optional<qint64> start(const QString &program, const QStringList &arguments, KVError *error);

} // namespace KVDetachedProcess
