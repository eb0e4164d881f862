#include "Platform/KVChildProcess.h"

#include "Core/Extensions/KVCancellation.h"

#include <QProcess>

#include <csignal>

namespace KVChildProcess {

bool waitForExit(QProcess &process)
{
    const qint64 pid = process.processId();
    if (pid <= 0)
        return false;
    // This thread blocks below; the signal reaches the child from whichever thread cancels.
    const KVCancellation::Registration cancellation([pid] { ::kill(pid_t(pid), SIGTERM); });
    return process.waitForFinished(-1) && process.exitStatus() == QProcess::NormalExit;
}

} // namespace KVChildProcess
