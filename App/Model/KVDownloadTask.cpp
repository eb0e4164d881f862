#include "App/Model/KVDownloadTask.h"

#include "App/Model/KVHTTPSession.h"
#include "App/Model/KVNetworkError.h"
#include "Core/Extensions/KVDispatch.h"

#include <QNetworkReply>

namespace {

// What one readyRead may hold in memory; the reply stops reading from the socket beyond it.
constexpr qint64 kReadBufferSize = 1 << 20;

KVError urlError(qint64 code, const QString &description)
{
    return KVError(KVURLErrorDomain, code, {{KVLocalizedDescriptionKey, description}});
}

KVError undecodableError()
{
    return urlError(KVURLErrorCannotDecodeContentData, QStringLiteral("The download could not be decoded."));
}

KVError errorOfFile(const QFileDevice &file)
{
    const qint64 code =
        file.error() == QFileDevice::ResourceError ? KVFileWriteOutOfSpaceError : KVFileWriteUnknownError;
    return KVError(KVCocoaErrorDomain, code,
                   {{KVLocalizedDescriptionKey, file.errorString()}, {KVFilePathErrorKey, file.fileName()}});
}

} // namespace

void KVDownloadTask::start(const QUrl &url, const QString &destination, const KVExpectedDownload &expected,
                           ProgressHandler progress, CompletionHandler completion)
{
    Q_ASSERT(KVDispatch::isMainThread());
    new KVDownloadTask(url, destination, expected, std::move(progress), std::move(completion));
}

KVDownloadTask::KVDownloadTask(const QUrl &url, const QString &destination, const KVExpectedDownload &expected,
                               ProgressHandler progress, CompletionHandler completion)
    : m_file(destination)
    , m_expectedSize(expected.size && *expected.size > 0 ? expected.size : std::nullopt)
    , m_expectedSHA256(expected.sha256)
    , m_progress(std::move(progress))
    , m_completion(std::move(completion))
{
    if (!m_file.open(QIODevice::WriteOnly)) {
        m_stopError = errorOfFile(m_file);
        // Completion is always reported after start() has returned, as for a transfer.
        QMetaObject::invokeMethod(this, &KVDownloadTask::finish, Qt::QueuedConnection);
        return;
    }

    // Named here, so that the body arrives as sent and its length can be checked; it is decoded
    // on arrival instead.
    m_reply = m_session.get(url, "gzip, deflate");
    m_reply->setReadBufferSize(kReadBufferSize);
    connect(m_reply, &QNetworkReply::readyRead, this, &KVDownloadTask::writeAvailableData);
    connect(m_reply, &QNetworkReply::downloadProgress, this, &KVDownloadTask::reportProgress);
    connect(m_reply, &QNetworkReply::finished, this, &KVDownloadTask::finish);
    // Aborting finishes the reply, so the completion (and the partial file's removal) follows.
    m_cancellation = std::make_unique<KVCancellation::Registration>(
        [reply = m_reply] { QMetaObject::invokeMethod(reply, &QNetworkReply::abort); });
}

bool KVDownloadTask::hasSuccessStatus() const
{
    const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    return !status.isValid() || (status.toInt() >= 200 && status.toInt() < 300);
}

// The decoder the body's Content-Encoding needs, once the headers are there. False when the body
// comes in an encoding that cannot be undone.
bool KVDownloadTask::prepareDecoding()
{
    if (m_decodingPrepared)
        return true;
    m_decodingPrepared = true;
    const QByteArray encoding = m_reply->rawHeader("Content-Encoding");
    if (KVContentDecoder::isIdentity(encoding))
        return true;
    m_decoder = KVContentDecoder::forEncoding(encoding);
    return m_decoder != nullptr;
}

// False when the body has grown beyond what it may be or the file cannot take it.
bool KVDownloadTask::writeToFile(QByteArrayView data)
{
    if (m_bytesWritten + data.size() > m_expectedSize.value_or(kDownloadCeiling)) {
        stopWith(
            urlError(KVURLErrorDataLengthExceedsMaximum, QStringLiteral("The download was longer than announced.")));
        return false;
    }
    // A disk that fills up takes part of a chunk without an error; writing the rest tells why.
    for (qint64 offset = 0; offset < data.size();) {
        const qint64 written = m_file.write(data.data() + offset, data.size() - offset);
        if (written <= 0) {
            stopWith(errorOfFile(m_file));
            return false;
        }
        offset += written;
    }
    m_bytesWritten += data.size();
    m_sha256.addData(data);
    return true;
}

void KVDownloadTask::writeAvailableData()
{
    // The body of a failure answer (an error page) is not the file asked for.
    if (m_stopError || !hasSuccessStatus()) {
        m_reply->skip(m_reply->bytesAvailable());
        return;
    }
    if (!prepareDecoding()) {
        stopWith(undecodableError());
        return;
    }
    while (m_reply->bytesAvailable() > 0) {
        const QByteArray chunk = m_reply->read(kReadBufferSize);
        m_bytesReceived += chunk.size();
        if (!m_decoder) {
            if (!writeToFile(chunk))
                return;
            continue;
        }
        const bool decoded = m_decoder->decode(chunk, [this](QByteArrayView piece) { return writeToFile(piece); });
        if (m_stopError)
            return;
        if (!decoded) {
            stopWith(undecodableError());
            return;
        }
    }
}

void KVDownloadTask::stopWith(const KVError &error)
{
    m_stopError = error;
    m_reply->abort(); // finishes the reply; this error is what gets reported
}

// A connection that breaks off can end a reply without an error (Qt retries a closed connection
// and may then settle for what it got), so the body is measured against every length announced:
// the Content-Length as sent, the end of an encoded stream, and the size the caller expects.
KVResult<> KVDownloadTask::checkLength() const
{
    bool hasLength = false;
    const qint64 announced = m_reply->rawHeader("Content-Length").trimmed().toLongLong(&hasLength);
    const bool complete = (!hasLength || m_bytesReceived == announced) && (!m_decoder || m_decoder->isComplete()) &&
                          (!m_expectedSize || m_bytesWritten == *m_expectedSize);
    if (complete)
        return {};
    return urlError(KVURLErrorNetworkConnectionLost, QStringLiteral("The network connection was lost."));
}

KVResult<> KVDownloadTask::checkDigest() const
{
    if (m_expectedSHA256.isEmpty())
        return {};
    const QByteArray actual = m_sha256.resultView().toByteArray().toHex();
    if (actual == m_expectedSHA256)
        return {};
    return KVError(
        KVUpdateHelperErrorDomain, KVUpdateHelperErrorSHA256Mismatch,
        {{KVLocalizedDescriptionKey, QStringLiteral("The download's SHA-256 digest is %1, not %2 as published.")
                                         .arg(QString::fromLatin1(actual), QString::fromLatin1(m_expectedSHA256))}});
}

void KVDownloadTask::reportProgress(qint64 received, qint64 total)
{
    if (!m_progress || m_stopError || !hasSuccessStatus())
        return;
    // The file's bytes, not the encoded ones, against the length the file will have.
    if (m_decoder)
        m_progress(KVTransferProgress{m_bytesWritten, m_expectedSize.value_or(-1)});
    else
        m_progress(KVTransferProgress{received, total});
}

KVResult<> KVDownloadTask::outcome()
{
    if (m_stopError)
        return m_stopError;
    if (KVError transportError = KVTransportErrorOfReply(*m_reply))
        return transportError;
    if (!hasSuccessStatus()) {
        const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        return KVError(KVURLErrorDomain, KVURLErrorBadServerResponse,
                       {{KVLocalizedDescriptionKey, QStringLiteral("Request failed with HTTP status %1").arg(status)},
                        {KVHTTPStatusKey, status}});
    }
    if (m_reply->error() != QNetworkReply::NoError) // a protocol failure, such as an unsupported scheme
        return urlError(-1, m_reply->errorString());
    writeAvailableData();
    if (m_stopError)
        return m_stopError;
    if (KVResult<> length = checkLength(); !length)
        return length;
    if (KVResult<> digest = checkDigest(); !digest)
        return digest;
    if (!m_file.commit())
        return errorOfFile(m_file);
    return {};
}

void KVDownloadTask::finish()
{
    const KVError error = m_reply ? outcome().error() : m_stopError;
    if (error)
        m_file.cancelWriting(); // the temporary file goes; nothing appears under the destination's name
    if (m_completion)
        m_completion(error ? QString() : m_file.fileName(), error);
    deleteLater();
}
