#include "Platform/KVSystemProxy.h"

#include <QHostAddress>
#include <QNetworkProxyFactory>
#include <QRegularExpression>

#include <algorithm>

namespace {

// The variable in lower case, else in upper case, as command-line tools read it.
QString variable(const char *lowerCaseName)
{
    if (QString value = qEnvironmentVariable(lowerCaseName).trimmed(); !value.isEmpty())
        return value;
    return qEnvironmentVariable(QByteArray(lowerCaseName).toUpper().constData()).trimmed();
}

bool hostMatches(const QString &host, QString entry)
{
    if (entry == QLatin1String("*"))
        return true;
    if (const auto [subnet, length] = QHostAddress::parseSubnet(entry); length >= 0 && entry.contains(QLatin1Char('/')))
        return QHostAddress(host).isInSubnet(subnet, length);
    while (entry.startsWith(QLatin1Char('*')) || entry.startsWith(QLatin1Char('.')))
        entry.remove(0, 1);
    return host.compare(entry, Qt::CaseInsensitive) == 0 ||
           host.endsWith(QLatin1Char('.') + entry, Qt::CaseInsensitive);
}

bool bypassesProxy(const QUrl &url)
{
    const QStringList entries =
        variable("no_proxy").split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts);
    return std::any_of(entries.cbegin(), entries.cend(),
                       [host = url.host()](const QString &entry) { return hostMatches(host, entry); });
}

// "proxy.example.com:3128" is an HTTP proxy, as for the tools that read these variables.
QUrl proxyAddress(const QString &text)
{
    return QUrl(text.contains(QLatin1String("://")) ? text : QStringLiteral("http://") + text);
}

// The first proxy of the desktop's settings, as an address.
QUrl desktopProxyFor(const QUrl &url)
{
    for (const QNetworkProxy &proxy : QNetworkProxyFactory::systemProxyForQuery(QNetworkProxyQuery(url))) {
        if (proxy.type() != QNetworkProxy::HttpProxy && proxy.type() != QNetworkProxy::Socks5Proxy)
            continue;
        QUrl address;
        address.setScheme(proxy.type() == QNetworkProxy::HttpProxy ? QStringLiteral("http") : QStringLiteral("socks5"));
        address.setHost(proxy.hostName());
        address.setPort(proxy.port());
        address.setUserName(proxy.user());
        address.setPassword(proxy.password());
        return address;
    }
    return {};
}

} // namespace

namespace KVSystemProxy {

QUrl proxyFor(const QUrl &url)
{
    if (bypassesProxy(url))
        return {};
    const QString own = url.scheme() == QLatin1String("https") ? variable("https_proxy") : variable("http_proxy");
    const QString named = own.isEmpty() ? variable("all_proxy") : own;
    if (!named.isEmpty())
        return proxyAddress(named);
    // The desktop's settings only where no variable names a proxy: the variables are the more
    // specific choice, made for this session.
    const bool anyVariable = !variable("http_proxy").isEmpty() || !variable("https_proxy").isEmpty();
    return anyVariable ? QUrl() : desktopProxyFor(url);
}

} // namespace KVSystemProxy
