#include "App/Model/KVDownloadTask.h"

#include "App/Model/KVHTTPSession.h"
#include "App/Model/KVNetworkError.h"
#include "App/Model/KVTransferRetry.h"
#include "Core/Extensions/KVDispatch.h"
#include "Core/Logging/KVLog.h"

#include <QNetworkReply>

namespace {

// What one readyRead may hold in memory; the reply stops reading from the socket beyond it.
constexpr qint64 kReadBufferSize = 1 << 20;
constexpr int kPartialContent = 206;

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

// What a later request may name in If-Range: a strong ETag, else the Last-Modified date; nothing
// when the server gives neither, and then the bytes cannot be continued.
QByteArray validatorOf(const QNetworkReply &reply)
{
    const QByteArray etag = reply.rawHeader("ETag").trimmed();
    if (!etag.isEmpty())
        return etag.startsWith("W/") ? QByteArray() : etag;
    return reply.rawHeader("Last-Modified").trimmed();
}

// Whether a 206 answer's Content-Range ("bytes <first>-<last>/<length>") begins at the offset.
bool rangeBeginsAt(const QNetworkReply &reply, qint64 offset)
{
    const QByteArray range = reply.rawHeader("Content-Range").trimmed();
    return range.startsWith("bytes " + QByteArray::number(offset) + '-');
}

} // namespace

void KVDownloadTask::start(const QUrl &url, const QString &destination, const KVExpectedDownload &expected,
                           ProgressHandler progress, CompletionHandler completion)
{
    Q_ASSERT(KVDispatch::isMainThread());
    new KVDownloadTask(url, destination, expected, std::move(progress), std::move(completion));
}

namespace {
// Only a positive size is a promise.
KVExpectedDownload normalised(KVExpectedDownload expected)
{
    if (expected.size && *expected.size <= 0)
        expected.size.reset();
    return expected;
}
} // namespace

KVDownloadTask::KVDownloadTask(const QUrl &url, const QString &destination, const KVExpectedDownload &expected,
                               ProgressHandler progress, CompletionHandler completion)
    : m_url(url)
    , m_partial(destination, normalised(expected))
    , m_file(m_partial.partPath())
    , m_expectedSize(normalised(expected).size)
    , m_expectedSHA256(expected.sha256)
    , m_progress(std::move(progress))
    , m_completion(std::move(completion))
{
    m_retryTimer.setSingleShot(true);
    connect(&m_retryTimer, &QTimer::timeout, this, &KVDownloadTask::startAttempt);
    m_cancellation = std::make_unique<KVCancellation::Registration>(
        [this] { QMetaObject::invokeMethod(this, &KVDownloadTask::cancel, Qt::QueuedConnection); });
    startAttempt();
}

void KVDownloadTask::startAttempt()
{
    m_decoder.reset();
    m_bodyPrepared = false;
    m_stopError = {};
    m_bytesReceived = 0;
    m_resumedFrom = m_partial.continuableLength();
    if (!openPart()) {
        m_stopError = errorOfFile(m_file);
        m_file.close();
        // Completion is always reported after start() has returned, as for a transfer.
        QMetaObject::invokeMethod(this, &KVDownloadTask::finish, Qt::QueuedConnection);
        return;
    }

    // An encoding is named so that the body arrives as sent and its length can be checked; it is
    // decoded on arrival instead. The rest of a file must come unencoded, as ranges count the
    // bytes as sent.
    KVHTTPSession::RawHeaders headers{{"Accept-Encoding", "gzip, deflate"}};
    if (m_resumedFrom > 0)
        headers = {{"Accept-Encoding", "identity"},
                   {"Range", "bytes=" + QByteArray::number(m_resumedFrom) + '-'},
                   {"If-Range", m_partial.validator()}};
    m_reply = m_session.get(m_url, headers);
    m_reply->setReadBufferSize(kReadBufferSize);
    connect(m_reply, &QNetworkReply::readyRead, this, &KVDownloadTask::writeAvailableData);
    connect(m_reply, &QNetworkReply::downloadProgress, this, &KVDownloadTask::reportProgress);
    connect(m_reply, &QNetworkReply::finished, this, &KVDownloadTask::finish);
}

// Opens the part where the kept bytes end, their digest taken once, or empty.
bool KVDownloadTask::openPart()
{
    m_sha256.reset();
    m_bytesWritten = 0;
    if (!m_file.open(QIODevice::ReadWrite))
        return false;
    while (m_bytesWritten < m_resumedFrom) {
        const QByteArray kept = m_file.read(std::min(kReadBufferSize, m_resumedFrom - m_bytesWritten));
        if (kept.isEmpty())
            return false;
        m_sha256.addData(kept);
        m_bytesWritten += kept.size();
    }
    return m_file.resize(m_resumedFrom) && m_file.seek(m_resumedFrom);
}

void KVDownloadTask::restartFromZero()
{
    m_resumedFrom = 0;
    m_bytesWritten = 0;
    m_sha256.reset();
    if (!m_file.resize(0) || !m_file.seek(0))
        stopWith(errorOfFile(m_file));
}

bool KVDownloadTask::hasSuccessStatus() const
{
    const QVariant status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    return !status.isValid() || (status.toInt() >= 200 && status.toInt() < 300);
}

// Once the headers are there: where the body goes in the file, the decoder its Content-Encoding
// needs, and the record that lets a later attempt continue it. False when the body cannot be used.
bool KVDownloadTask::prepareBody()
{
    if (m_bodyPrepared)
        return !m_stopError;
    m_bodyPrepared = true;
    const bool partial = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == kPartialContent;
    if (partial && !rangeBeginsAt(*m_reply, m_resumedFrom)) {
        stopWith(urlError(KVURLErrorBadServerResponse, QStringLiteral("The server sent another part than asked for.")));
        return false;
    }
    // The whole file instead of its rest: it changed on the server, or the server has no ranges.
    if (!partial && m_resumedFrom > 0 && (restartFromZero(), m_stopError))
        return false;
    const QByteArray encoding = m_reply->rawHeader("Content-Encoding");
    if (!KVContentDecoder::isIdentity(encoding) && !(m_decoder = KVContentDecoder::forEncoding(encoding))) {
        stopWith(undecodableError());
        return false;
    }
    // Only bytes as they are in the file can be continued where they broke off.
    if (const KVResult<> recorded = m_partial.recordValidator(m_decoder ? QByteArray() : validatorOf(*m_reply));
        !recorded)
        stopWith(recorded.error());
    return !m_stopError;
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
    if (!prepareBody())
        return;
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
        m_progress(KVTransferProgress{m_resumedFrom + received, total < 0 ? total : m_resumedFrom + total});
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
    if (!m_file.flush())
        return errorOfFile(m_file);
    m_file.close();
    return m_partial.complete();
}

void KVDownloadTask::finish()
{
    const KVError error = m_reply ? outcome().error() : m_stopError;
    const std::optional<std::chrono::seconds> retryAfter =
        m_reply ? KVTransferRetry::retryAfterOf(*m_reply) : std::nullopt;
    m_file.close();
    if (m_reply) {
        m_reply->deleteLater();
        m_reply = nullptr;
    }
    retryOrComplete(error, retryAfter);
}

void KVDownloadTask::retryOrComplete(const KVError &error, std::optional<std::chrono::seconds> retryAfter)
{
    const bool retry = error && KVTransferRetry::isTransient(error) && !KVCancellation::isRequested() &&
                       ++m_failedAttempts < KVTransferRetry::kMaxAttempts;
    if (!retry) {
        complete(error);
        return;
    }
    m_lastError = error;
    if (!m_partial.isRecorded())
        m_partial.discard();
    const std::chrono::milliseconds wait = KVTransferRetry::waitAfter(m_failedAttempts, retryAfter);
    KVLogInfo("%@ will try %@ again in %@ ms after %@", metaObject()->className(), m_url, QString::number(wait.count()),
              error);
    if (m_progress)
        m_progress(KVTransferProgress{m_bytesWritten, m_expectedSize.value_or(-1), true});
    m_retryTimer.start(wait);
}

void KVDownloadTask::complete(const KVError &error)
{
    // Bytes that merely broke off are kept for the next attempt, where they can be continued.
    if (error && !(KVTransferRetry::isTransient(error) && m_partial.isRecorded()))
        m_partial.discard();
    if (m_completion)
        m_completion(error ? QString() : m_partial.destination(), error);
    deleteLater();
}

// Quitting ends the transfer, or the wait for the next attempt, at once.
void KVDownloadTask::cancel()
{
    if (m_reply) {
        m_reply->abort(); // finishes the reply, and the task with it
    } else if (m_retryTimer.isActive()) {
        m_retryTimer.stop();
        complete(m_lastError);
    }
}
