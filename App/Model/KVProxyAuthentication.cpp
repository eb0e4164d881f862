#include "App/Model/KVProxyAuthentication.h"

#include "Core/Logging/KVLog.h"

#include <QAuthenticator>
#include <QMutex>
#include <QNetworkProxy>
#include <QUrl>

namespace {
const QString kClassName = QStringLiteral("KVProxyAuthentication");

// What the run knows beyond one request: the asker, and the credentials to remember by proxy.
struct RunState
{
    QMutex mutex;
    KVProxyAuthentication::Asker asker;
    QHash<QString, KVProxyCredentials> remembered;
};

RunState &runState()
{
    static RunState state;
    return state;
}
} // namespace

QString KVProxyAuthentication::nameOf(const QNetworkProxy &proxy)
{
    return QStringLiteral("%1:%2").arg(proxy.hostName()).arg(proxy.port());
}

void KVProxyAuthentication::setAsker(Asker asker)
{
    const QMutexLocker lock(&runState().mutex);
    runState().asker = std::move(asker);
}

void KVProxyAuthentication::setProxy(const QNetworkProxy &proxy, const QUrl &address)
{
    m_proxyName = nameOf(proxy);
    m_addressCredentials.reset();
    if (!address.userName().isEmpty())
        m_addressCredentials = KVProxyCredentials{address.userName(), address.password()};
}

std::optional<KVProxyCredentials> KVProxyAuthentication::nextCredentials(const QString &proxyName)
{
    const auto untried = [this](const std::optional<KVProxyCredentials> &credentials) {
        return credentials && !m_offered.contains(*credentials);
    };
    Asker asker;
    {
        const QMutexLocker lock(&runState().mutex);
        const auto remembered = runState().remembered.constFind(proxyName);
        if (remembered != runState().remembered.cend() && untried(*remembered))
            return *remembered;
        asker = runState().asker;
    }
    if (proxyName == m_proxyName && untried(m_addressCredentials))
        return m_addressCredentials;
    if (!asker)
        return std::nullopt;
    const std::optional<Answer> answer = asker(proxyName);
    if (!answer || !untried(answer->credentials))
        return std::nullopt;
    if (answer->remember) {
        const QMutexLocker lock(&runState().mutex);
        runState().remembered.insert(proxyName, answer->credentials);
    }
    return answer->credentials;
}

bool KVProxyAuthentication::answer(const QNetworkProxy &proxy, QAuthenticator *authenticator)
{
    const QString proxyName = nameOf(proxy);
    // A second question in the same request means the proxy refused what it was offered.
    if (!m_offered.isEmpty())
        refused();
    const std::optional<KVProxyCredentials> credentials = nextCredentials(proxyName);
    if (!credentials) {
        KVLogError("%@: no user name and password to give the proxy %@", kClassName, proxyName);
        return false;
    }
    KVLogInfo("%@: giving the proxy %@ a user name and password", kClassName, proxyName);
    m_offered << *credentials;
    authenticator->setUser(credentials->user);
    authenticator->setPassword(credentials->password);
    return true;
}

void KVProxyAuthentication::refused()
{
    const QMutexLocker lock(&runState().mutex);
    for (auto entry = runState().remembered.begin(); entry != runState().remembered.end();)
        entry = m_offered.contains(entry.value()) ? runState().remembered.erase(entry) : std::next(entry);
}
