#include "Platform/KVSingleInstance.h"

#include "Platform/KVStandardPaths.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QLocalSocket>
#include <QThread>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {
const QByteArray kActivateMessage = "activate\n";
constexpr int kConnectTimeoutMs = 1000;
constexpr int kRetryIntervalMs = 100;
// How long a second start keeps trying to reach the holder of the guard, which may have taken
// the lock an instant ago and not be listening yet.
constexpr std::chrono::seconds kActivationTimeout(5);
} // namespace

KVSingleInstance::KVSingleInstance(const QString &bundleIdentifier, QObject *parent)
    : QObject(parent)
{
    const QString folder = KVStandardPaths::runtimeDirectory();
    if (!folder.isEmpty()) {
        m_lockPath = folder + QLatin1Char('/') + bundleIdentifier + QStringLiteral(".lock");
        m_socketPath = folder + QLatin1Char('/') + bundleIdentifier + QStringLiteral(".socket");
    }
    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *socket = m_server.nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
                if (socket->readAll().contains(kActivateMessage))
                    Q_EMIT activationRequested();
                socket->disconnectFromServer();
            });
        }
    });
}

KVSingleInstance::~KVSingleInstance()
{
    if (m_lockDescriptor >= 0)
        ::close(m_lockDescriptor);
}

bool KVSingleInstance::becomePrimaryOrActivateOther(std::chrono::milliseconds waitForOtherToEnd)
{
    if (m_lockPath.isEmpty()) {
        qWarning("no runtime folder for the single-instance guard; running unguarded");
        return true;
    }
    const QDeadlineTimer deadline(waitForOtherToEnd);
    while (!tryLock()) {
        if (m_lockDescriptor < 0) {
            qWarning("single-instance guard %s unavailable; running unguarded", qPrintable(m_lockPath));
            return true;
        }
        if (deadline.hasExpired()) {
            activateOther();
            return false;
        }
        QThread::msleep(kRetryIntervalMs);
    }
    listenForActivation();
    return true;
}

bool KVSingleInstance::tryLock()
{
    if (m_lockDescriptor < 0)
        m_lockDescriptor = ::open(QFile::encodeName(m_lockPath).constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    // Not inherited (O_CLOEXEC): the companion application and a relaunched installer must not
    // keep holding the guard of this process.
    return m_lockDescriptor >= 0 && ::flock(m_lockDescriptor, LOCK_EX | LOCK_NB) == 0;
}

void KVSingleInstance::listenForActivation()
{
    // Whatever socket file is there was left by an earlier holder: only the holder touches it.
    QLocalServer::removeServer(m_socketPath);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server.listen(m_socketPath))
        qWarning("single-instance socket %s unavailable (%s): a second start cannot raise this window",
                 qPrintable(m_socketPath), qPrintable(m_server.errorString()));
}

void KVSingleInstance::activateOther() const
{
    const QDeadlineTimer deadline(kActivationTimeout);
    do {
        QLocalSocket other;
        other.connectToServer(m_socketPath);
        if (other.waitForConnected(kConnectTimeoutMs)) {
            other.write(kActivateMessage);
            other.waitForBytesWritten(kConnectTimeoutMs);
            other.waitForDisconnected(kConnectTimeoutMs);
            return;
        }
        QThread::msleep(kRetryIntervalMs);
    } while (!deadline.hasExpired());
}
