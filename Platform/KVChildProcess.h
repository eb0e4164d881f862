#pragma once

class QProcess;

// Waiting for a child process the installer has started and needs the outcome of (the unzip tool,
// the elevator): the wait ends early, with the child, when the installer quits.
namespace KVChildProcess {

// Waits without limit for the started process to end, sending it SIGTERM when cancellation is
// requested meanwhile. True when it ended by itself with an exit status (of any value).
[[nodiscard]] bool waitForExit(QProcess &process);

} // namespace KVChildProcess
