#include "KVNginxServer.h"

#include <QDir>
#include <QRegularExpression>

namespace {

const QString nginxProgram = QStringLiteral("/usr/sbin/nginx");

// A string argument of the nginx configuration language.
QString quoted(QString text)
{
    text.replace(QLatin1Char('\\'), QStringLiteral("\\\\")).replace(QLatin1Char('"'), QStringLiteral("\\\""));
    return QLatin1Char('"') + text + QLatin1Char('"');
}

} // namespace

KVNginxServer::KVNginxServer(QString documentRoot)
    : KVTestServerProcess(QStringLiteral("nginx"))
    , m_documentRoot(QDir(documentRoot).absolutePath())
{}

KVNginxServer::~KVNginxServer()
{
    stop();
}

void KVNginxServer::proxy(const QString &path, const QUrl &upstream)
{
    // Without a path after the address nginx passes the request's own path on. Unbuffered, so the
    // client sees exactly what the upstream sent, when it sent it.
    const QString origin = upstream.adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment).toString();
    m_rules << Rule{path, QStringLiteral("proxy_pass %1; proxy_buffering off;").arg(origin)};
}

void KVNginxServer::limitRate(const QString &path, const QString &rate)
{
    m_rules << Rule{path, QStringLiteral("limit_rate %1;").arg(rate)};
}

QUrl KVNginxServer::url(const QString &path) const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(port()).arg(path));
}

QString KVNginxServer::program() const
{
    return nginxProgram;
}

QStringList KVNginxServer::arguments(const QString &configurationFile) const
{
    // -p and -e keep nginx away from its compiled-in prefix and log under /var.
    return {QStringLiteral("-p"), statePath(QStringLiteral(".")), QStringLiteral("-c"),
            configurationFile,    QStringLiteral("-e"),           statePath(QStringLiteral("error.log"))};
}

QString KVNginxServer::errorLog() const
{
    return readState(QStringLiteral("error.log"));
}

QStringList KVNginxServer::requestedPaths() const
{
    QStringList paths;
    for (const QString &request : requests())
        paths << request.section(QLatin1Char(' '), 0, 0);
    return paths;
}

QStringList KVNginxServer::requests() const
{
    // The log format below: "GET /path HTTP/1.1" status "range"
    static const QRegularExpression request(QStringLiteral("\"[A-Z]+ (\\S+) HTTP/[0-9.]+\" ([0-9]+) \"([^\"]*)\""));
    QStringList requests;
    const QString text = readState(QStringLiteral("access.log"));
    for (QRegularExpressionMatchIterator match = request.globalMatch(text); match.hasNext();) {
        const QRegularExpressionMatch line = match.next();
        requests << QStringList{line.captured(1), line.captured(2), line.captured(3)}.join(QLatin1Char(' '));
    }
    return requests;
}

QString KVNginxServer::configuration() const
{
    const auto quotedPath = [this](const QString &name) { return quoted(statePath(name)); };
    QString locations;
    for (const Rule &rule : m_rules)
        locations += QStringLiteral("        location = %1 { %2 }\n").arg(quoted(rule.path), rule.directive);

    // One process in the foreground: it is our child, it stops with SIGTERM, and it never changes
    // user, so it reads the sandbox as the test does.
    return QStringLiteral(R"(daemon off;
master_process off;
worker_processes 1;
pid %1;
error_log %2 info;
events { worker_connections 64; }
http {
    log_format requests '"$request" $status "$http_range"';
    access_log %3 requests;
    client_body_temp_path %4;
    proxy_temp_path %5;
    fastcgi_temp_path %6;
    uwsgi_temp_path %7;
    scgi_temp_path %8;
    types { text/plain ini; application/zip zip; application/xml xml; application/json json; }
    default_type application/octet-stream;
    server {
        listen 127.0.0.1:%9;
        root %10;
%11    }
}
)")
        .arg(quotedPath(QStringLiteral("nginx.pid")), quotedPath(QStringLiteral("error.log")),
             quotedPath(QStringLiteral("access.log")), quotedPath(QStringLiteral("client_body")),
             quotedPath(QStringLiteral("proxy")), quotedPath(QStringLiteral("fastcgi")),
             quotedPath(QStringLiteral("uwsgi")), quotedPath(QStringLiteral("scgi")), QString::number(port()))
        .arg(quoted(m_documentRoot), locations);
}
