#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A real server program run for a test: a child process in the foreground that listens on a free
// port of 127.0.0.1, with its configuration, logs and other state in a folder of the test sandbox,
// stopped when destroyed. Subclasses say how the program is started and configured.
// Thread: the test's main thread.
class KVTestServerProcess
{
public:
    virtual ~KVTestServerProcess();
    KVTestServerProcess(const KVTestServerProcess &) = delete;
    KVTestServerProcess &operator=(const KVTestServerProcess &) = delete;

    // Starts the program on a free port and returns once it accepts connections, or false with
    // the reason.
    [[nodiscard]] bool start(QString *errorMessage);
    quint16 port() const { return m_port; }

protected:
    // `name` is the program's file name, for the state folder's name and the messages.
    explicit KVTestServerProcess(const QString &name);

    // Call from the subclass's destructor, while its configuration can still be asked for.
    void stop();
    QString statePath(const QString &name) const { return m_state.filePath(name); }
    QString readState(const QString &name) const;

    virtual QString program() const = 0;
    // The configuration for port(), written to the file given to arguments().
    virtual QString configuration() const = 0;
    virtual QStringList arguments(const QString &configurationFile) const = 0;
    // What the program says about its failures, to explain one.
    virtual QString errorLog() const = 0;

private:
    bool isRunning() const { return m_process.state() == QProcess::Running; }
    bool startOnce(QString *errorMessage);

    QString m_name;
    QTemporaryDir m_state;
    QProcess m_process;
    quint16 m_port = 0;
};
