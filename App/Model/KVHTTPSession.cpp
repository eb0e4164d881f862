#include "App/Model/KVHTTPSession.h"

#include "App/Model/KVUpdateHelper.h"
#include "Platform/KVBundle.h"

#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QSysInfo>

namespace {

// The proxy the system's settings name for each request, chosen per session so that the
// application-wide proxy set-up stays untouched.
class SystemProxyFactory : public QNetworkProxyFactory
{
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override { return systemProxyForQuery(query); }
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
    m_manager.setProxyFactory(new SystemProxyFactory);
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
    return m_manager.get(request);
}
