#include "KVTestServerProcess.h"

#include "KVTestSandbox.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>

namespace {
quint16 freeLoopbackPort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}
} // namespace

KVTestServerProcess::KVTestServerProcess(const QString &name)
    : m_name(name)
    // In the sandbox's root rather than its temporary folder, which tests empty between cases.
    , m_state(KVTestSandbox::current().root() + QLatin1Char('/') + name + QStringLiteral("-XXXXXX"))
{
    m_process.setProcessChannelMode(QProcess::MergedChannels);
}

KVTestServerProcess::~KVTestServerProcess()
{
    Q_ASSERT(!isRunning()); // the subclass stops it
}

QString KVTestServerProcess::readState(const QString &name) const
{
    QFile file(statePath(name));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

bool KVTestServerProcess::start(QString *errorMessage)
{
    Q_ASSERT(!isRunning());
    if (!m_state.isValid()) {
        *errorMessage = QStringLiteral("cannot create the state folder of %1: %2").arg(m_name, m_state.errorString());
        return false;
    }
    // The free port is only known to be free until the program binds it; another process may win
    // the race, so try a few ports before giving up.
    for (int attempt = 0; attempt < 3; ++attempt)
        if (startOnce(errorMessage))
            return true;
    return false;
}

bool KVTestServerProcess::startOnce(QString *errorMessage)
{
    m_port = freeLoopbackPort();
    QFile config(statePath(m_name + QStringLiteral(".conf")));
    if (m_port == 0 || !config.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        config.write(configuration().toUtf8()) < 0 || !config.flush()) {
        *errorMessage = QStringLiteral("cannot configure %1: no free port or %2").arg(m_name, config.errorString());
        return false;
    }
    config.close();

    m_process.start(program(), arguments(config.fileName()));
    if (!m_process.waitForStarted(10000)) {
        *errorMessage = QStringLiteral("cannot run %1: %2").arg(program(), m_process.errorString());
        return false;
    }
    const QDeadlineTimer deadline(15000);
    while (!deadline.hasExpired()) {
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, m_port);
        const bool connected = probe.waitForConnected(200);
        // A failed bind makes the program exit: a connection counts only while it is still alive.
        m_process.waitForFinished(connected ? 50 : 20);
        if (!isRunning())
            break;
        if (connected)
            return true;
    }
    stop();
    *errorMessage =
        QStringLiteral("%1 did not start: %2%3").arg(m_name, QString::fromUtf8(m_process.readAll()), errorLog());
    return false;
}

void KVTestServerProcess::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(10000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}
