#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QPointer>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

// A small HTTP/1.1 server on 127.0.0.1 for tests, in the test's own process. Each path answers
// with a canned response or misbehaves on purpose; it counts the requests it got per path.
// It stops, closing every connection, when destroyed.
class KVTestHttpServer : public QObject
{
    Q_OBJECT
public:
    enum class Behaviour {
        Answer,        // status line, headers, the whole body
        Stall,         // accept the request and never answer
        DropHalfway,   // announce the whole length, send half the body, close the connection
        CloseAtOnce,   // close the connection without answering
    };

    struct Response
    {
        int status = 200;
        QByteArray body;
        QList<std::pair<QByteArray, QByteArray>> headers;
        Behaviour behaviour = Behaviour::Answer;
        qsizetype chunkSize = 0; // > 0: the body is sent in pieces of this size, one per event-loop turn
    };

    explicit KVTestHttpServer(QObject *parent = nullptr);
    ~KVTestHttpServer() override;

    void setResponse(const QString &path, const Response &response);
    void setFile(const QString &path, const QByteArray &body) { setResponse(path, Response{200, body, {}, {}, 0}); }
    // A 302 to another address.
    void setRedirect(const QString &path, const QUrl &target);

    QUrl url(const QString &path) const;
    int requestCount(const QString &path) const { return m_requestCounts.value(path); }
    quint16 port() const { return m_server.serverPort(); }

private:
    void handleConnection();
    void handleRequest(QTcpSocket *socket, const QString &path);
    void sendBody(QTcpSocket *socket, const QByteArray &body, qsizetype chunkSize, qsizetype offset);

    QTcpServer m_server;
    QHash<QString, Response> m_responses;
    QHash<QString, int> m_requestCounts;
    QList<QPointer<QTcpSocket>> m_sockets;
};
