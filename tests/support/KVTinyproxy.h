#pragma once

#include "KVTestServerProcess.h"

#include <QUrl>

// A real HTTP proxy (Debian's tinyproxy) on 127.0.0.1 that asks for a user name and password
// (BasicAuth), for tests of the installer behind a company proxy.
class KVTinyproxy : public KVTestServerProcess
{
public:
    KVTinyproxy(QString user, QString password);
    ~KVTinyproxy() override;

    // The proxy's address, with the credentials given (none when both are empty).
    QUrl address(const QString &user = {}, const QString &password = {}) const;
    // How many connections it opened to pass requests on: none for a request it refused.
    int passedConnections() const;

private:
    QString program() const override;
    QString configuration() const override;
    QStringList arguments(const QString &configurationFile) const override;
    QString errorLog() const override;

    QString m_user;
    QString m_password;
};
