#pragma once

#include <QHash>
#include <QList>
#include <QString>

#include <functional>
#include <optional>

class QAuthenticator;
class QNetworkProxy;
class QUrl;

struct KVProxyCredentials
{
    QString user;
    QString password;

    bool operator==(const KVProxyCredentials &) const = default;
};

// Answers a proxy that asks one request for a user name and password. The credentials offered
// come, in this order, from those the run remembers for the proxy, from the user info of the
// proxy's address, and from the asker that the front end installs (the window's popup, the
// headless mode's --proxy-user). Credentials the proxy refused are not offered again in the same
// request and are forgotten for the run; none is ever written to disk.
// Thread: the request's; the asker is called there too.
class KVProxyAuthentication
{
public:
    struct Answer
    {
        KVProxyCredentials credentials;
        bool remember = false; // offer them again to this proxy for the rest of the run
    };
    // Asks for the credentials of the proxy named; nothing when there are none to give (no one to
    // ask, or the question was dismissed).
    using Asker = std::function<std::optional<Answer>(const QString &proxyName)>;

    // Thread: any, before the first request or between runs.
    static void setAsker(Asker asker);

    // "host:port", the name a proxy is known by in the log, the messages and the run's memory.
    static QString nameOf(const QNetworkProxy &proxy);

    // The proxy the request goes through, and the address it was named by, which may carry
    // credentials.
    void setProxy(const QNetworkProxy &proxy, const QUrl &address);
    // Fills in the next credentials to offer; false when there are none left, which fails the
    // request with the proxy's refusal.
    [[nodiscard]] bool answer(const QNetworkProxy &proxy, QAuthenticator *authenticator);
    // Whether credentials were offered to the proxy: a refusal then concerns them.
    bool hasOffered() const { return !m_offered.isEmpty(); }
    // The request failed on the proxy's refusal: what was offered is no longer remembered.
    void refused();

private:
    [[nodiscard]] std::optional<KVProxyCredentials> nextCredentials(const QString &proxyName);

    QString m_proxyName;
    std::optional<KVProxyCredentials> m_addressCredentials;
    QList<KVProxyCredentials> m_offered;
};
