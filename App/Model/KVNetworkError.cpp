#include "App/Model/KVNetworkError.h"

#include "App/Model/KVHTTPSession.h"

#include <QNetworkReply>

namespace {
// A redirect from HTTPS to plain HTTP that was not followed, naming where it led (without a user
// name and password), so that the user reads which address the server tried to send them to.
KVError insecureRedirectErrorOf(const QNetworkReply &reply)
{
    const QUrl target = reply.url().resolved(QUrl::fromEncoded(reply.rawHeader("Location")));
    return KVError(KVURLErrorDomain, KVURLErrorInsecureRedirect,
                   {{KVLocalizedDescriptionKey, reply.errorString()},
                    {KVFailingURLStringKey, target.toString(QUrl::RemoveUserInfo)}});
}
} // namespace

KVError KVTransportErrorOfReply(const QNetworkReply &reply)
{
    if (const QString proxy = KVHTTPSession::refusingProxy(reply); !proxy.isEmpty())
        return KVError(KVURLErrorDomain, KVURLErrorUserAuthenticationRequired, {{KVLocalizedDescriptionKey, proxy}});
    qint64 code = 0;
    switch (reply.error()) {
    case QNetworkReply::NoError:
        return {};
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError: // what a transfer time-out reports
        code = KVURLErrorTimedOut;
        break;
    case QNetworkReply::HostNotFoundError:
        code = KVURLErrorCannotFindHost;
        break;
    case QNetworkReply::ConnectionRefusedError:
        code = KVURLErrorCannotConnectToHost;
        break;
    case QNetworkReply::RemoteHostClosedError:
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
        code = KVURLErrorNetworkConnectionLost;
        break;
    case QNetworkReply::SslHandshakeFailedError:
        code = KVURLErrorSecureConnectionFailed;
        break;
    case QNetworkReply::InsecureRedirectError:
        return insecureRedirectErrorOf(reply);
    default:
        // Failures above the transport (HTTP statuses, protocol answers) are the caller's to judge.
        if (reply.error() >= QNetworkReply::ContentAccessDenied)
            return {};
        code = KVURLErrorUnknown;
        break;
    }
    // Qt tells a transfer time-out as a cancelled operation; the user is told what happened.
    const QString description =
        code == KVURLErrorTimedOut ? QStringLiteral("The request timed out.") : reply.errorString();
    return KVError(KVURLErrorDomain, code, {{KVLocalizedDescriptionKey, description}});
}
