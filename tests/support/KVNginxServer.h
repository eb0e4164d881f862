#pragma once

#include <QList>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QUrl>

class KVTestHttpServer;

// A real nginx (/usr/sbin/nginx) serving a folder on 127.0.0.1, for tests that need a genuine web
// server between the engine and its files. It runs as the current user in the foreground as a
// child process, with its configuration, pid file, logs and temporary folders in a folder of the
// test sandbox, and stops when destroyed.
//
// nginx serves files honestly: it cannot be told to send a short body under a full length. Paths
// that must misbehave are therefore either answered by nginx itself (a 404) or passed through
// nginx to a KVTestHttpServer that misbehaves as told, so the client still talks to nginx.
// Thread: the test's main thread.
class KVNginxServer
{
public:
    explicit KVNginxServer(QString documentRoot);
    ~KVNginxServer();
    KVNginxServer(const KVNginxServer &) = delete;
    KVNginxServer &operator=(const KVNginxServer &) = delete;

    // The rules below take effect at start().
    // Requests for exactly this path answer 404, whether or not the file exists.
    void answerNotFound(const QString &path);
    // Requests for exactly this path are passed, path unchanged, to the server at upstream.
    void proxy(const QString &path, const QUrl &upstream);
    // Requests for the file at this path get its full length announced and half of it sent before
    // the connection closes: the misbehaving server is told to do so and nginx passes it on.
    void cutHalfway(const QString &path, KVTestHttpServer &misbehavingServer);

    // Starts nginx on a free port and returns once it accepts connections, or false with the reason.
    [[nodiscard]] bool start(QString *errorMessage);
    bool isRunning() const { return m_process.state() == QProcess::Running; }

    QUrl url(const QString &path) const;
    // Where nginx keeps its configuration, pid file, logs and temporary files.
    QString stateDirectory() const { return m_state.path(); }
    // The error log so far, to explain a failure.
    QString errorLog() const;

private:
    struct Rule
    {
        QString path;
        QString directive; // what the location does
    };

    QString configuration() const;
    bool startOnce(QString *errorMessage);
    void stop();

    QString m_documentRoot;
    QTemporaryDir m_state;
    QList<Rule> m_rules;
    QProcess m_process;
    quint16 m_port = 0;
};
