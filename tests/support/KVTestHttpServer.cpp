#include "KVTestHttpServer.h"

#include "KVTestProcess.h"

#include <QFile>
#include <QPointer>
#include <QSslKey>
#include <QSslServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTimer>

// Lives on the server's thread: accepts connections and answers them.
class KVTestHttpServerWorker : public QObject
{
public:
    KVTestHttpServerWorker(KVTestHttpServer &owner, const std::optional<QSslConfiguration> &tls)
        : m_owner(owner)
    {
        // A child, so that it moves to the server's thread with the worker.
        if (tls) {
            auto *server = new QSslServer(this);
            server->setSslConfiguration(*tls);
            m_server = server;
        } else {
            m_server = new QTcpServer(this);
        }
    }

    quint16 listen()
    {
        // After the handshake, where there is one.
        connect(m_server, &QTcpServer::pendingConnectionAvailable, this, &KVTestHttpServerWorker::handleConnection);
        return m_server->listen(QHostAddress::LocalHost, 0) ? m_server->serverPort() : 0;
    }

    void stop()
    {
        m_server->close();
        for (const QPointer<QTcpSocket> &socket : std::as_const(m_sockets))
            if (socket)
                socket->abort();
    }

private:
    void handleConnection()
    {
        while (QTcpSocket *socket = m_server->nextPendingConnection()) {
            socket->setParent(this);
            m_sockets << socket;
            auto buffer = std::make_shared<QByteArray>();
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket, buffer] {
                buffer->append(socket->readAll());
                const qsizetype headerEnd = buffer->indexOf("\r\n\r\n");
                if (headerEnd < 0)
                    return;
                const QList<QByteArray> lines = buffer->left(headerEnd).split('\n');
                buffer->remove(0, headerEnd + 4);
                QHash<QByteArray, QByteArray> headers;
                for (const QByteArray &line : lines.mid(1))
                    headers.insert(line.left(line.indexOf(':')).trimmed().toLower(),
                                   line.mid(line.indexOf(':') + 1).trimmed());
                const QString path = QString::fromUtf8(lines.value(0).split(' ').value(1));
                answer(socket, path, conditional(m_owner.takeResponse(path), headers));
            });
        }
    }

    // A 304 for an If-None-Match of the response's ETag; the rest of the body for a
    // "Range: bytes=<first>-" that its If-Range, if any, allows.
    static KVTestHttpServer::Response conditional(KVTestHttpServer::Response response,
                                                  const QHash<QByteArray, QByteArray> &request)
    {
        const QByteArray range = request.value("range");
        const qint64 first = range.mid(6, range.indexOf('-') - 6).toLongLong();
        const auto etag = std::find_if(response.headers.cbegin(), response.headers.cend(),
                                       [](const auto &header) { return header.first.toLower() == "etag"; });
        if (etag != response.headers.cend() && response.status == 200 &&
            etag->second == request.value("if-none-match")) {
            response.status = 304;
            response.body.clear();
            return response;
        }
        const bool unchanged = !request.contains("if-range") ||
                               (etag != response.headers.cend() && etag->second == request.value("if-range"));
        if (response.behaviour == KVTestHttpServer::Behaviour::WholeBody || response.status != 200 ||
            !range.startsWith("bytes=") || !unchanged || first <= 0 || first >= response.body.size())
            return response;
        response.headers.append({"Content-Range", "bytes " + QByteArray::number(first) + '-' +
                                                      QByteArray::number(response.body.size() - 1) + '/' +
                                                      QByteArray::number(response.body.size())});
        response.status = 206;
        response.body = response.body.mid(first);
        return response;
    }

    void answer(QTcpSocket *socket, const QString &path, const KVTestHttpServer::Response &response)
    {
        using Behaviour = KVTestHttpServer::Behaviour;
        if (response.behaviour == Behaviour::Stall)
            return;
        if (response.behaviour == Behaviour::CloseAtOnce) {
            socket->abort();
            return;
        }
        QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + " Status\r\n";
        if (response.behaviour != Behaviour::Endless && response.behaviour != Behaviour::Unannounced)
            head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
        for (const auto &[name, value] : response.headers)
            head += name + ": " + value + "\r\n";
        head += "Connection: close\r\n\r\n";
        socket->write(head);
        if (response.behaviour == Behaviour::DropHalfway) {
            socket->write(response.body.left(response.body.size() / 2));
            m_owner.countBodyBytes(path, response.body.size() / 2);
            // Closed, not reset: a reset could discard what was sent, and the client would ask again.
            socket->disconnectFromHost();
            return;
        }
        if (response.behaviour == Behaviour::Endless) {
            sendForever(socket, response.body);
            return;
        }
        m_owner.countBodyBytes(path, response.body.size());
        sendBody(socket, response.body, response.chunkSize, 0);
    }

    // Tops the socket's buffer up whenever it runs low, for as long as the client reads.
    void sendForever(QTcpSocket *socket, const QByteArray &piece)
    {
        const auto topUp = [socket, piece] {
            while (socket->state() == QAbstractSocket::ConnectedState && socket->bytesToWrite() < (1 << 20))
                socket->write(piece);
        };
        connect(socket, &QTcpSocket::bytesWritten, socket, topUp);
        topUp();
    }

    void sendBody(QTcpSocket *socket, const QByteArray &body, qsizetype chunkSize, qsizetype offset)
    {
        const qsizetype size = chunkSize > 0 ? chunkSize : body.size();
        socket->write(body.mid(offset, size));
        if (offset + size >= body.size()) {
            socket->disconnectFromHost();
            return;
        }
        QTimer::singleShot(5, socket, [=, this] { sendBody(socket, body, chunkSize, offset + size); });
    }

    KVTestHttpServer &m_owner;
    QTcpServer *m_server = nullptr;
    QList<QPointer<QTcpSocket>> m_sockets;
};

KVTestHttpServer::KVTestHttpServer(const std::optional<QSslConfiguration> &tls)
    : m_scheme(tls ? QStringLiteral("https") : QStringLiteral("http"))
{
    m_thread.setObjectName(QStringLiteral("KVTestHttpServer"));
    m_thread.start();
    m_worker = new KVTestHttpServerWorker(*this, tls);
    m_worker->moveToThread(&m_thread);
    QMetaObject::invokeMethod(
        m_worker, [this] { m_port = m_worker->listen(); }, Qt::BlockingQueuedConnection);
    Q_ASSERT(m_port != 0);
}

KVTestHttpServer::~KVTestHttpServer()
{
    QMetaObject::invokeMethod(
        m_worker,
        [this] {
            m_worker->stop();
            delete m_worker;
        },
        Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

void KVTestHttpServer::setResponses(const QString &path, const QList<Response> &responses)
{
    QMutexLocker lock(&m_mutex);
    m_responses.insert(path, responses);
}

void KVTestHttpServer::setRedirect(const QString &path, const QUrl &target)
{
    setResponse(path, Response{302, {}, {{"Location", target.toEncoded()}}, Behaviour::Answer, 0});
}

QUrl KVTestHttpServer::url(const QString &path) const
{
    return QUrl(QStringLiteral("%1://127.0.0.1:%2%3").arg(m_scheme).arg(m_port).arg(path));
}

std::optional<QSslConfiguration> KVTestHttpServer::trustedTls()
{
    QTemporaryDir folder;
    const QString key = folder.filePath(QStringLiteral("key.pem"));
    const QString certificate = folder.filePath(QStringLiteral("certificate.pem"));
    if (!KVTestProcess::run({QStringLiteral("openssl"), QStringLiteral("req"), QStringLiteral("-x509"),
                             QStringLiteral("-newkey"), QStringLiteral("rsa:2048"), QStringLiteral("-nodes"),
                             QStringLiteral("-days"), QStringLiteral("2"), QStringLiteral("-subj"),
                             QStringLiteral("/CN=127.0.0.1"), QStringLiteral("-addext"),
                             QStringLiteral("subjectAltName=IP:127.0.0.1"), QStringLiteral("-keyout"), key,
                             QStringLiteral("-out"), certificate})
             .succeeded())
        return std::nullopt;
    QFile keyFile(key);
    const QList<QSslCertificate> certificates = QSslCertificate::fromPath(certificate);
    if (!keyFile.open(QIODevice::ReadOnly) || certificates.isEmpty())
        return std::nullopt;
    QSslConfiguration clients = QSslConfiguration::defaultConfiguration();
    clients.addCaCertificate(certificates.first());
    QSslConfiguration::setDefaultConfiguration(clients);
    QSslConfiguration server = QSslConfiguration::defaultConfiguration();
    server.setLocalCertificate(certificates.first());
    server.setPrivateKey(QSslKey(&keyFile, QSsl::Rsa));
    return server;
}

int KVTestHttpServer::requestCount(const QString &path) const
{
    QMutexLocker lock(&m_mutex);
    return m_requestCounts.value(path);
}

KVTestHttpServer::Response KVTestHttpServer::takeResponse(const QString &path)
{
    QMutexLocker lock(&m_mutex);
    ++m_requestCounts[path];
    QList<Response> &responses = m_responses[path];
    if (responses.isEmpty())
        return Response{404, "not found", {}, Behaviour::Answer, 0};
    return responses.size() > 1 ? responses.takeFirst() : responses.first();
}

void KVTestHttpServer::countBodyBytes(const QString &path, qint64 bytes)
{
    QMutexLocker lock(&m_mutex);
    m_bodyBytesSent[path] += bytes;
}

qint64 KVTestHttpServer::bodyBytesSent(const QString &path) const
{
    QMutexLocker lock(&m_mutex);
    return m_bodyBytesSent.value(path);
}
