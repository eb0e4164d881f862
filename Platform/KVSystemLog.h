#pragma once

#include <QString>

// Writes one line straight to the system log (syslog), beside rather than through the installer's
// own loggers, for traces that belong to the system rather than to the installer's log files.
// Thread: any.
namespace KVSystemLog {

// False when NESTORA_DISABLE_SYSLOG is set (the tests set it).
bool isEnabled();

void write(const QString &message);

} // namespace KVSystemLog
