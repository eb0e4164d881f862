#include "App/Model/KVHTTPSession.h"

#include "App/Model/KVUpdateHelper.h"
#include "Platform/KVBundle.h"

#include <QNetworkProxyFactory>
#include <QNetworkReply>

namespace {

// The proxy the system's settings name for each request, chosen per session so that the
// application-wide proxy set-up stays untouched.
class SystemProxyFactory : public QNetworkProxyFactory
{
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override { return systemProxyForQuery(query); }
};

// "NestoraInstaller/<version>", or the bare name for a bundle that states no version.
QString userAgent()
{
    const QString version = KVBundle::mainBundle().bundleVersion();
    return version.isEmpty() ? KVBundle::kInstallerName : KVBundle::kInstallerName + QLatin1Char('/') + version;
}

} // namespace

KVHTTPSession::KVHTTPSession()
{
    m_manager.setProxyFactory(new SystemProxyFactory);
}

QNetworkReply *KVHTTPSession::get(const QUrl &url, const QByteArray &acceptEncoding)
{
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setTransferTimeout(int(KVUpdateHelper::networkTimeout().count()));
    request.setHeader(QNetworkRequest::UserAgentHeader, userAgent());
    if (!acceptEncoding.isEmpty())
        request.setRawHeader("Accept-Encoding", acceptEncoding);
    return m_manager.get(request);
}
