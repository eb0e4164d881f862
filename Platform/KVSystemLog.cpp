#include "Platform/KVSystemLog.h"

#include <syslog.h>

namespace KVSystemLog {

bool isEnabled()
{
    return qEnvironmentVariableIsEmpty("NESTORA_DISABLE_SYSLOG");
}

void write(const QString &message)
{
    if (!isEnabled())
        return;
    ::syslog(LOG_USER | LOG_NOTICE, "%s", message.toUtf8().constData());
}

} // namespace KVSystemLog
