#include "App/Model/KVHTTPSession.h"

#include "App/Model/KVPolicy.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"
#include "Platform/KVSystemProxy.h"

#include <QAuthenticator>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QSysInfo>

namespace {
const QString kClassName = QStringLiteral("KVHTTPSession");
const char *const kRefusingProxyProperty = "KVRefusingProxy";

// The proxy for each request of one session: the policy's when it names one, else the system's.
// The credentials an address carries are kept back and offered only when the proxy asks.
class ProxyFactory : public QNetworkProxyFactory
{
public:
    using ProxyChosen = std::function<void(const QNetworkProxy &proxy, const QUrl &address)>;

    ProxyFactory(QString policyProxy, ProxyChosen proxyChosen)
        : m_policyProxy(std::move(policyProxy))
        , m_proxyChosen(std::move(proxyChosen))
    {}

    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override
    {
        const QUrl address = addressFor(query.url());
        const QNetworkProxy proxy = proxyAt(address);
        m_proxyChosen(proxy, address);
        return {proxy};
    }

private:
    static QNetworkProxy proxyAt(const QUrl &address)
    {
        if (address.isEmpty())
            return QNetworkProxy::NoProxy;
        const bool socks = address.scheme().startsWith(QLatin1String("socks"));
        return {socks ? QNetworkProxy::Socks5Proxy : QNetworkProxy::HttpProxy, address.host(),
                quint16(address.port(socks ? 1080 : 8080))};
    }

    QUrl addressFor(const QUrl &url) const
    {
        if (m_policyProxy.isEmpty())
            return KVSystemProxy::proxyFor(url);
        return m_policyProxy == QLatin1String("direct") ? QUrl() : QUrl(m_policyProxy);
    }

    const QString m_policyProxy;
    const ProxyChosen m_proxyChosen;
};

// "NestoraInstaller/<version> (<system>; <architecture>)", the version left out for a bundle that
// states none: enough for a server's operator to tell which installers are still out there.
QString userAgent()
{
    const QString version = KVBundle::mainBundle().bundleVersion();
    const QString product =
        version.isEmpty() ? KVBundle::kInstallerName : KVBundle::kInstallerName + QLatin1Char('/') + version;
    return QStringLiteral("%1 (%2; %3)")
        .arg(product, QSysInfo::prettyProductName(), QSysInfo::currentCpuArchitecture());
}

} // namespace

KVHTTPValidators KVHTTPValidators::of(const QNetworkReply &reply)
{
    return {reply.rawHeader("ETag").trimmed(), reply.rawHeader("Last-Modified").trimmed()};
}

QList<std::pair<QByteArray, QByteArray>> KVHTTPValidators::conditionalHeaders() const
{
    QList<std::pair<QByteArray, QByteArray>> headers;
    if (!etag.isEmpty())
        headers.append({"If-None-Match", etag});
    if (!lastModified.isEmpty())
        headers.append({"If-Modified-Since", lastModified});
    return headers;
}

KVHTTPSession::KVHTTPSession()
{
    const QString policyProxy = KVPolicy::load().value(QStringLiteral("Network"), QStringLiteral("Proxy"));
    m_manager.setProxyFactory(new ProxyFactory(policyProxy, [this](const QNetworkProxy &proxy, const QUrl &address) {
        m_proxyAuthentication.setProxy(proxy, address);
        const QString name = proxy.type() == QNetworkProxy::NoProxy ? QString() : KVProxyAuthentication::nameOf(proxy);
        if (name != m_proxyName && !name.isEmpty())
            KVLogInfo("%@: requests go through the proxy %@", kClassName, name);
        m_proxyName = name;
    }));
    QObject::connect(&m_manager, &QNetworkAccessManager::proxyAuthenticationRequired, &m_manager,
                     [this](const QNetworkProxy &proxy, QAuthenticator *authenticator) {
                         (void)m_proxyAuthentication.answer(proxy, authenticator);
                     });
}

QNetworkReply *KVHTTPSession::get(const QUrl &url, const RawHeaders &headers)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setTransferTimeout(int(KVUpdateHelper::networkTimeout().count()));
    request.setHeader(QNetworkRequest::UserAgentHeader, userAgent());
    for (const auto &[name, value] : headers)
        request.setRawHeader(name, value);
    QNetworkReply *reply = m_manager.get(request);
    // Connected before the caller's own connections, so that they find the reply judged.
    QObject::connect(reply, &QNetworkReply::finished, &m_manager, [this, reply] { replyDidFinish(reply); });
    return reply;
}

void KVHTTPSession::replyDidFinish(QNetworkReply *reply)
{
    // A proxy refuses with 407; some (tinyproxy) refuse credentials they were given with a 401
    // instead. The installer's own servers never ask for credentials, so a 401 after credentials
    // went to the proxy is the proxy's refusal too.
    const bool refused =
        reply->error() == QNetworkReply::ProxyAuthenticationRequiredError ||
        (reply->error() == QNetworkReply::AuthenticationRequiredError && m_proxyAuthentication.hasOffered());
    if (!refused)
        return;
    m_proxyAuthentication.refused();
    reply->setProperty(kRefusingProxyProperty, m_proxyName);
}

QString KVHTTPSession::refusingProxy(const QNetworkReply &reply)
{
    return reply.property(kRefusingProxyProperty).toString();
}
