#include "KVTestHttpServer.h"

#include <QTcpSocket>
#include <QTimer>

KVTestHttpServer::KVTestHttpServer(QObject *parent)
    : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &KVTestHttpServer::handleConnection);
    const bool listening = m_server.listen(QHostAddress::LocalHost, 0);
    Q_ASSERT(listening);
    Q_UNUSED(listening);
}

KVTestHttpServer::~KVTestHttpServer()
{
    m_server.close();
    for (const QPointer<QTcpSocket> &socket : std::as_const(m_sockets))
        if (socket)
            socket->abort();
}

void KVTestHttpServer::setResponse(const QString &path, const Response &response) { m_responses.insert(path, response); }

void KVTestHttpServer::setRedirect(const QString &path, const QUrl &target)
{
    setResponse(path, Response{302, {}, {{"Location", target.toEncoded()}}, Behaviour::Answer, 0});
}

QUrl KVTestHttpServer::url(const QString &path) const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path));
}

void KVTestHttpServer::handleConnection()
{
    while (QTcpSocket *socket = m_server.nextPendingConnection()) {
        m_sockets << socket;
        auto *buffer = new QByteArray;
        connect(socket, &QObject::destroyed, this, [buffer] { delete buffer; });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket, buffer] {
            buffer->append(socket->readAll());
            const qsizetype headerEnd = buffer->indexOf("\r\n\r\n");
            if (headerEnd < 0)
                return;
            const QList<QByteArray> requestLine = buffer->left(buffer->indexOf("\r\n")).split(' ');
            buffer->remove(0, headerEnd + 4);
            handleRequest(socket, QString::fromUtf8(requestLine.value(1)));
        });
    }
}

void KVTestHttpServer::handleRequest(QTcpSocket *socket, const QString &path)
{
    ++m_requestCounts[path];
    const Response response = m_responses.value(path, Response{404, "not found", {}, Behaviour::Answer, 0});
    switch (response.behaviour) {
    case Behaviour::Stall:
        return;
    case Behaviour::CloseAtOnce:
        socket->close();
        return;
    case Behaviour::Answer:
    case Behaviour::DropHalfway:
        break;
    }
    QByteArray head = "HTTP/1.1 " + QByteArray::number(response.status) + " Status\r\n";
    head += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n";
    for (const auto &[name, value] : response.headers)
        head += name + ": " + value + "\r\n";
    head += "Connection: close\r\n\r\n";
    socket->write(head);
    if (response.behaviour == Behaviour::DropHalfway) {
        socket->write(response.body.left(response.body.size() / 2));
        socket->flush();
        QTimer::singleShot(50, socket, [socket] { socket->abort(); });
        return;
    }
    sendBody(socket, response.body, response.chunkSize, 0);
}

void KVTestHttpServer::sendBody(QTcpSocket *socket, const QByteArray &body, qsizetype chunkSize, qsizetype offset)
{
    if (chunkSize <= 0) {
        socket->write(body);
        socket->disconnectFromHost();
        return;
    }
    socket->write(body.mid(offset, chunkSize));
    if (offset + chunkSize >= body.size()) {
        socket->disconnectFromHost();
        return;
    }
    QTimer::singleShot(5, socket, [this, socket, body, chunkSize, offset] { sendBody(socket, body, chunkSize, offset + chunkSize); });
}
