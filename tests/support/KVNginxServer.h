#pragma once

#include "KVTestServerProcess.h"

#include <QList>
#include <QString>
#include <QUrl>

// A real nginx (/usr/sbin/nginx) serving a folder on 127.0.0.1, for tests that need a genuine web
// server between the engine and its files. It runs as the current user, with its pid file, logs
// and temporary folders in its state folder (KVTestServerProcess).
//
// Paths that must misbehave are passed through nginx to a KVTestHttpServer that misbehaves as
// told, so the client still talks to nginx.
// Thread: the test's main thread.
class KVNginxServer : public KVTestServerProcess
{
public:
    explicit KVNginxServer(QString documentRoot);
    ~KVNginxServer() override;

    // The rules below take effect at start().
    // Requests for exactly this path are passed, path unchanged, to the server at upstream.
    void proxy(const QString &path, const QUrl &upstream);
    // The file at exactly this path is served at the rate given in nginx's terms ("64k").
    void limitRate(const QString &path, const QString &rate);
    QUrl url(const QString &path) const;
    // The paths requested so far, in order.
    QStringList requestedPaths() const;
    // The requests so far, in order, as "<path> <status> <Range header>" (the range "-" when none).
    QStringList requests() const;

private:
    struct Rule
    {
        QString path;
        QString directive; // what the location does
    };

    QString program() const override;
    QString configuration() const override;
    QStringList arguments(const QString &configurationFile) const override;
    QString errorLog() const override;

    QString m_documentRoot;
    QList<Rule> m_rules;
};
