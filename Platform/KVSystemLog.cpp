#include "Platform/KVSystemLog.h"

#include <syslog.h>

namespace KVSystemLog {

void write(const QString &message) {
    if (!qEnvironmentVariableIsEmpty("NESTORA_DISABLE_SYSLOG"))
        return;
    ::syslog(LOG_USER | LOG_NOTICE, "%s", message.toUtf8().constData());
}

} // namespace KVSystemLog
