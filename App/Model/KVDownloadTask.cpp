#include "App/Model/KVDownloadTask.h"

#include "App/Model/KVNetworkError.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVDispatch.h"

#include <QNetworkProxyFactory>
#include <QNetworkReply>

namespace {

// What one readyRead may hold in memory; the reply stops reading from the socket beyond it.
constexpr qint64 kReadBufferSize = 1 << 20;

// NSURLErrorBadServerResponse: the server answered, but not with success.
constexpr qint64 kBadServerResponseCode = -1011;

// NSURLErrorNetworkConnectionLost: the connection ended before the whole body had arrived.
constexpr qint64 kNetworkConnectionLostCode = -1005;

// The proxy the system's settings name for each request (on Linux: http_proxy, https_proxy,
// no_proxy), chosen per manager so that the application-wide proxy set-up stays untouched.
class SystemProxyFactory : public QNetworkProxyFactory
{
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery &query) override { return systemProxyForQuery(query); }
};

KVError errorOfFile(const QFileDevice &file)
{
    const qint64 code =
        file.error() == QFileDevice::ResourceError ? KVFileWriteOutOfSpaceError : KVFileWriteUnknownError;
    return KVError(KVCocoaErrorDomain, code,
                   {{KVLocalizedDescriptionKey, file.errorString()}, {KVFilePathErrorKey, file.fileName()}});
}

} // namespace

void KVDownloadTask::start(const QUrl &url, const QString &destination, ProgressHandler progress,
                           CompletionHandler completion)
{
    Q_ASSERT(KVDispatch::isMainThread());
    new KVDownloadTask(url, destination, std::move(progress), std::move(completion));
}

KVDownloadTask::KVDownloadTask(const QUrl &url, const QString &destination, ProgressHandler progress,
                               CompletionHandler completion)
    : m_file(destination)
    , m_progress(std::move(progress))
    , m_completion(std::move(completion))
{
    m_manager.setProxyFactory(new SystemProxyFactory);
    if (!m_file.open(QIODevice::WriteOnly)) {
        m_fileError = errorOfFile(m_file);
        // Completion is always reported after start() has returned, as for a transfer.
        QMetaObject::invokeMethod(this, &KVDownloadTask::finish, Qt::QueuedConnection);
        return;
    }

    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setTransferTimeout(int(KVUpdateHelper::networkTimeout().count()));
    m_reply = m_manager.get(request);
    m_reply->setReadBufferSize(kReadBufferSize);
    connect(m_reply, &QNetworkReply::readyRead, this, &KVDownloadTask::writeAvailableData);
    connect(m_reply, &QNetworkReply::downloadProgress, this, &KVDownloadTask::reportProgress);
    connect(m_reply, &QNetworkReply::finished, this, &KVDownloadTask::finish);
}

bool KVDownloadTask::hasSuccessStatus() const
{
    const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    return !status.isValid() || (status.toInt() >= 200 && status.toInt() < 300);
}

// A connection that breaks off can end a reply without an error (Qt retries a closed connection
// and may then settle for what it got), so the length the server announced is checked as well.
// A compressed body is unpacked on arrival and has no comparable length.
bool KVDownloadTask::isShorterThanAnnounced() const
{
    const QVariant announced = m_reply->header(QNetworkRequest::ContentLengthHeader);
    return announced.isValid() && !m_reply->hasRawHeader("Content-Encoding") &&
           m_bytesWritten != announced.toLongLong();
}

void KVDownloadTask::writeAvailableData()
{
    // The body of a failure answer (an error page) is not the file asked for.
    if (m_fileError || !hasSuccessStatus()) {
        m_reply->skip(m_reply->bytesAvailable());
        return;
    }
    while (m_reply->bytesAvailable() > 0) {
        const QByteArray chunk = m_reply->read(kReadBufferSize);
        // A disk that fills up takes part of a chunk without an error; writing the rest tells why.
        for (qint64 offset = 0; offset < chunk.size();) {
            const qint64 written = m_file.write(chunk.constData() + offset, chunk.size() - offset);
            if (written <= 0) {
                m_fileError = errorOfFile(m_file);
                m_reply->abort(); // finishes the reply; the write error is what gets reported
                return;
            }
            offset += written;
        }
        m_bytesWritten += chunk.size();
    }
}

void KVDownloadTask::reportProgress(qint64 received, qint64 total)
{
    if (m_progress && !m_fileError && hasSuccessStatus())
        m_progress(KVTransferProgress{received, total});
}

KVError KVDownloadTask::outcome()
{
    if (m_fileError)
        return m_fileError;
    if (const KVError transportError = KVTransportErrorOfReply(*m_reply))
        return transportError;
    if (!hasSuccessStatus()) {
        const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        return KVError(KVURLErrorDomain, kBadServerResponseCode,
                       {{KVLocalizedDescriptionKey, QStringLiteral("Request failed with HTTP status %1").arg(status)},
                        {KVHTTPStatusKey, status}});
    }
    if (m_reply->error() != QNetworkReply::NoError) // a protocol failure, such as an unsupported scheme
        return KVError(KVURLErrorDomain, -1, {{KVLocalizedDescriptionKey, m_reply->errorString()}});
    writeAvailableData();
    if (m_fileError)
        return m_fileError;
    if (isShorterThanAnnounced())
        return KVError(KVURLErrorDomain, kNetworkConnectionLostCode,
                       {{KVLocalizedDescriptionKey, QStringLiteral("The network connection was lost.")}});
    if (!m_file.commit())
        return errorOfFile(m_file);
    return {};
}

void KVDownloadTask::finish()
{
    const KVError error = m_reply ? outcome() : m_fileError;
    if (error)
        m_file.cancelWriting(); // the temporary file goes; nothing appears under the destination's name
    if (m_completion)
        m_completion(error ? QString() : m_file.fileName(), error);
    deleteLater();
}
