#pragma once

#include "Core/Extensions/KVError.h"

class QNetworkReply;

// The transport failure of a finished reply as an error of the URL domain with the platform's
// codes (-1001 timed out, -1003 host not found, -1004 cannot connect, -1005 connection lost,
// -1013 a proxy's refusal for want of credentials, described by the proxy's name, -1022 an HTTPS
// address redirected to plain HTTP (naming where, KVFailingURLStringKey), -1200 secure connection
// failed, -1 otherwise), or the null error when the transfer itself
// worked. HTTP statuses are not judged here: a 404 is a completed transfer.
KVError KVTransportErrorOfReply(const QNetworkReply &reply);
