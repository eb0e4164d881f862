#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMutex>
#include <QSslConfiguration>
#include <QThread>
#include <QUrl>

#include <optional>

class KVTestHttpServerWorker;

// A small HTTP/1.1 server on 127.0.0.1 for tests. It runs on a thread of its own, so it keeps
// answering while the test's main thread is blocked waiting for the engine. Each path answers
// with a canned response or misbehaves on purpose; a Range request gets the rest of the body (206)
// while its If-Range, if any, is the response's ETag, and an If-None-Match of that ETag gets a 304. Requests and the
// body bytes sent are counted per path. It stops, closing every connection, when destroyed. Thread: any, for every
// public function.
class KVTestHttpServer
{
public:
    enum class Behaviour {
        Answer,      // status line, headers, the whole body
        Stall,       // accept the request and never answer
        DropHalfway, // announce the whole length, send half the body, close the connection
        CloseAtOnce, // close the connection without answering
        Endless,     // no length, and the body (repeated) until the client closes the connection
        Unannounced, // no length: the whole body, then the connection closes
        WholeBody,   // as Answer, but a Range request gets the whole body too, with the status given
    };

    struct Response
    {
        int status = 200;
        QByteArray body;
        QList<std::pair<QByteArray, QByteArray>> headers;
        Behaviour behaviour = Behaviour::Answer;
        qsizetype chunkSize = 0; // > 0: the body goes out in pieces of this size, a few ms apart
    };

    // Without a TLS configuration the server speaks plain HTTP.
    explicit KVTestHttpServer(const std::optional<QSslConfiguration> &tls = std::nullopt);
    ~KVTestHttpServer();

    // A TLS configuration with a fresh certificate for 127.0.0.1 (made by the openssl tool), which
    // every client of this process trusts from then on; empty when it could not be made.
    static std::optional<QSslConfiguration> trustedTls();

    void setResponse(const QString &path, const Response &response) { setResponses(path, {response}); }
    // One response per request, in turn; the last one answers every request after it.
    void setResponses(const QString &path, const QList<Response> &responses);
    void setFile(const QString &path, const QByteArray &body) { setResponse(path, Response{200, body, {}, {}, 0}); }
    // A 302 to another address.
    void setRedirect(const QString &path, const QUrl &target);

    QUrl url(const QString &path) const;
    int requestCount(const QString &path) const;
    qint64 bodyBytesSent(const QString &path) const;
    quint16 port() const { return m_port; }

private:
    friend class KVTestHttpServerWorker;
    Response takeResponse(const QString &path);
    void countBodyBytes(const QString &path, qint64 bytes);

    mutable QMutex m_mutex;
    QHash<QString, QList<Response>> m_responses;
    QHash<QString, int> m_requestCounts;
    QHash<QString, qint64> m_bodyBytesSent;
    QThread m_thread;
    QString m_scheme;
    KVTestHttpServerWorker *m_worker = nullptr;
    quint16 m_port = 0;
};

Q_DECLARE_METATYPE(KVTestHttpServer::Response)
