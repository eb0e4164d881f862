#include "KVNginxServer.h"

#include "KVTestSandbox.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>

namespace {

const QString nginxProgram = QStringLiteral("/usr/sbin/nginx");

// A string argument of the nginx configuration language.
QString quoted(QString text)
{
    text.replace(QLatin1Char('\\'), QStringLiteral("\\\\")).replace(QLatin1Char('"'), QStringLiteral("\\\""));
    return QLatin1Char('"') + text + QLatin1Char('"');
}

quint16 freeLoopbackPort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

} // namespace

KVNginxServer::KVNginxServer(QString documentRoot)
    : m_documentRoot(QDir(documentRoot).absolutePath())
    // In the sandbox's root rather than its temporary folder, which tests empty between cases.
    , m_state(KVTestSandbox::current().root() + QStringLiteral("/nginx-XXXXXX"))
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
}

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
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path));
}

QString KVNginxServer::errorLog() const
{
    QFile log(m_state.filePath(QStringLiteral("error.log")));
    return log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.readAll()) : QString();
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
    QFile log(m_state.filePath(QStringLiteral("access.log")));
    const QString text = log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.readAll()) : QString();
    for (QRegularExpressionMatchIterator match = request.globalMatch(text); match.hasNext();) {
        const QRegularExpressionMatch line = match.next();
        requests << QStringList{line.captured(1), line.captured(2), line.captured(3)}.join(QLatin1Char(' '));
    }
    return requests;
}

QString KVNginxServer::configuration() const
{
    const auto statePath = [this](const QString &name) { return quoted(m_state.filePath(name)); };
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
        .arg(statePath(QStringLiteral("nginx.pid")), statePath(QStringLiteral("error.log")),
             statePath(QStringLiteral("access.log")), statePath(QStringLiteral("client_body")),
             statePath(QStringLiteral("proxy")), statePath(QStringLiteral("fastcgi")),
             statePath(QStringLiteral("uwsgi")), statePath(QStringLiteral("scgi")), QString::number(m_port))
        .arg(quoted(m_documentRoot), locations);
}

bool KVNginxServer::start(QString *errorMessage)
{
    Q_ASSERT(!isRunning());
    if (!m_state.isValid()) {
        *errorMessage = QStringLiteral("cannot create nginx's state folder: ") + m_state.errorString();
        return false;
    }
    // The free port is only known to be free until nginx binds it; another process may win the
    // race, so try a few ports before giving up.
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (startOnce(errorMessage))
            return true;
        if (!errorMessage->contains(QLatin1String("Address already in use")))
            return false;
    }
    return false;
}

bool KVNginxServer::startOnce(QString *errorMessage)
{
    m_port = freeLoopbackPort();
    QFile config(m_state.filePath(QStringLiteral("nginx.conf")));
    if (m_port == 0 || !config.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        config.write(configuration().toUtf8()) < 0 || !config.flush()) {
        *errorMessage = QStringLiteral("cannot configure nginx: no free port or ") + config.errorString();
        return false;
    }
    config.close();

    // -p and -e keep nginx away from its compiled-in prefix and log under /var.
    m_process.start(nginxProgram, {QStringLiteral("-p"), m_state.path(), QStringLiteral("-c"), config.fileName(),
                                   QStringLiteral("-e"), m_state.filePath(QStringLiteral("error.log"))});
    if (!m_process.waitForStarted(10000)) {
        *errorMessage = QStringLiteral("cannot run %1: %2").arg(nginxProgram, m_process.errorString());
        return false;
    }
    const QDeadlineTimer deadline(15000);
    while (!deadline.hasExpired()) {
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, m_port);
        const bool connected = probe.waitForConnected(200);
        // A failed bind makes nginx exit: a connection counts only while it is still alive.
        m_process.waitForFinished(connected ? 50 : 20);
        if (!isRunning())
            break;
        if (connected)
            return true;
    }
    stop();
    *errorMessage = QStringLiteral("nginx did not start: %1%2").arg(QString::fromUtf8(m_process.readAll()), errorLog());
    return false;
}

void KVNginxServer::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(10000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}
