#include "KVTinyproxy.h"

KVTinyproxy::KVTinyproxy(QString user, QString password)
    : KVTestServerProcess(QStringLiteral("tinyproxy"))
    , m_user(std::move(user))
    , m_password(std::move(password))
{}

KVTinyproxy::~KVTinyproxy()
{
    stop();
}

QUrl KVTinyproxy::address(const QString &user, const QString &password) const
{
    QUrl address(QStringLiteral("http://127.0.0.1:%1").arg(port()));
    address.setUserName(user);
    address.setPassword(password);
    return address;
}

int KVTinyproxy::passedConnections() const
{
    return int(readState(QStringLiteral("tinyproxy.log")).count(QLatin1String("opensock: opening connection to")));
}

QString KVTinyproxy::program() const
{
    return QStringLiteral("/usr/bin/tinyproxy");
}

QString KVTinyproxy::configuration() const
{
    return QStringLiteral("Port %1\nListen 127.0.0.1\nTimeout 60\nLogLevel Info\nLogFile \"%2\"\nBasicAuth %3 %4\n")
        .arg(QString::number(port()), statePath(QStringLiteral("tinyproxy.log")), m_user, m_password);
}

QStringList KVTinyproxy::arguments(const QString &configurationFile) const
{
    return {QStringLiteral("-d"), QStringLiteral("-c"), configurationFile}; // -d: in the foreground
}

QString KVTinyproxy::errorLog() const
{
    return readState(QStringLiteral("tinyproxy.log"));
}
