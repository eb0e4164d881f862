#pragma once

#include <QList>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>

// A real nginx (/usr/sbin/nginx) serving a folder on 127.0.0.1, for tests that need a genuine web
// server between the engine and its files. It runs as the current user in the foreground as a
// child process, with its configuration, pid file, logs and temporary folders in a folder of the
// test sandbox, and stops when destroyed.
//
// Paths that must misbehave are passed through nginx to a KVTestHttpServer that misbehaves as
// told, so the client still talks to nginx.
// Thread: the test's main thread.
class KVNginxServer
{
public:
    explicit KVNginxServer(QString documentRoot);
    ~KVNginxServer();
    KVNginxServer(const KVNginxServer &) = delete;
    KVNginxServer &operator=(const KVNginxServer &) = delete;

    // The rules below take effect at start().
    // Requests for exactly this path are passed, path unchanged, to the server at upstream.
    void proxy(const QString &path, const QUrl &upstream);
    // The file at exactly this path is served at the rate given in nginx's terms ("64k").
    void limitRate(const QString &path, const QString &rate);
    // Starts nginx on a free port and returns once it accepts connections, or false with the reason.
    [[nodiscard]] bool start(QString *errorMessage);

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

    QString configuration() const;
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    // The error log so far, to explain a failure.
    QString errorLog() const;
    bool startOnce(QString *errorMessage);
    void stop();

    QString m_documentRoot;
    QTemporaryDir m_state;
    QList<Rule> m_rules;
    QProcess m_process;
    quint16 m_port = 0;
};
