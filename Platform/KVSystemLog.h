#pragma once

#include <QString>

// Writes one line straight to the system log (syslog), beside rather than through the installer's
// own loggers, for traces that belong to the system rather than to the installer's log files.
// NESTORA_DISABLE_SYSLOG turns it off, as it does the installer's system-log sink. Thread: any.
namespace KVSystemLog {

void write(const QString &message);

} // namespace KVSystemLog
