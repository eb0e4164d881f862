#pragma once

#include "App/Model/KVProxyAuthentication.h"

#include <QNetworkAccessManager>
#include <QUrl>

class QNetworkReply;

// What a server said identifies the version of what it sent: its ETag and Last-Modified.
struct KVHTTPValidators
{
    QByteArray etag;
    QByteArray lastModified;

    static KVHTTPValidators of(const QNetworkReply &reply);
    bool isEmpty() const { return etag.isEmpty() && lastModified.isEmpty(); }
    // If-None-Match and If-Modified-Since, for a request that wants the body only if it changed.
    QList<std::pair<QByteArray, QByteArray>> conditionalHeaders() const;
};

// The one place where the installer's HTTP requests are made, so that the manifest fetch and the
// downloads behave alike: they go through the proxy the policy's "[Network] Proxy=" names (an
// address, or "direct" for none), else through the system's (KVSystemProxy), answering a proxy
// that asks for credentials through KVProxyAuthentication; a redirect is followed unless it leads
// to a less safe scheme, no cache is read or written, a transfer that receives nothing for
// KVUpdateHelper::networkTimeout() fails, and the installer names itself, its version and the
// system as the user agent.
//
// Thread: the one it was created on, whose event loop serves its replies. One request at a time.
class KVHTTPSession
{
public:
    KVHTTPSession();

    using RawHeaders = QList<std::pair<QByteArray, QByteArray>>;

    // Starts a GET with the given headers besides the session's own; the reply belongs to the
    // session. An Accept-Encoding that is given is sent as it stands, and the body then arrives
    // encoded, as sent.
    [[nodiscard]] QNetworkReply *get(const QUrl &url, const RawHeaders &headers = {});

    // The proxy (host:port) that refused the finished reply for want of acceptable credentials;
    // empty when no proxy refused it.
    static QString refusingProxy(const QNetworkReply &reply);

private:
    void replyDidFinish(QNetworkReply *reply);

    QNetworkAccessManager m_manager;
    KVProxyAuthentication m_proxyAuthentication;
    QString m_proxyName; // of the latest request, without user info
};
