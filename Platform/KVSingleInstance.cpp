#include "Platform/KVSingleInstance.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QLocalSocket>
#include <QThread>
#include <unistd.h>

namespace {
const QByteArray kActivateMessage = "activate\n";
constexpr int kConnectTimeoutMs = 1000;
} // namespace

KVSingleInstance::KVSingleInstance(const QString &bundleIdentifier, QObject *parent)
    : QObject(parent)
    // Per user, in the user's temporary folder: other users run installers of their own.
    , m_serverName(QDir::tempPath() + QLatin1Char('/') + bundleIdentifier + QLatin1Char('-') +
                   QString::number(getuid()))
{
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

bool KVSingleInstance::becomePrimaryOrActivateOther(std::chrono::milliseconds waitForOtherToEnd)
{
    const QDeadlineTimer deadline(waitForOtherToEnd);
    for (;;) {
        QLocalSocket other;
        other.connectToServer(m_serverName);
        if (!other.waitForConnected(kConnectTimeoutMs))
            break;
        if (deadline.hasExpired()) {
            other.write(kActivateMessage);
            other.waitForBytesWritten(kConnectTimeoutMs);
            other.waitForDisconnected(kConnectTimeoutMs);
            return false;
        }
        other.disconnectFromServer();
        QThread::msleep(100);
    }
    // Nobody answered: whatever socket file is there belongs to a dead instance.
    QLocalServer::removeServer(m_serverName);
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server.listen(m_serverName))
        qWarning("single-instance socket %s unavailable: %s", qPrintable(m_serverName),
                 qPrintable(m_server.errorString()));
    return true; // without the socket the installer still runs, only unguarded
}
