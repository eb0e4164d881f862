#pragma once

#include "App/Model/KVContentDecoder.h"
#include "App/Model/KVHTTPSession.h"
#include "App/Model/KVPartialDownload.h"
#include "App/Model/KVUpdateTypes.h"
#include "Core/Extensions/KVCancellation.h"
#include "Core/Extensions/KVResult.h"

#include <QCryptographicHash>
#include <QFile>
#include <QObject>
#include <QTimer>
#include <QUrl>

#include <chrono>
#include <memory>
#include <optional>

class QNetworkReply;

// One HTTP download streamed into a file. The body goes to "<destination>.part" as it arrives,
// through a bounded read buffer, so memory stays constant whatever the size; the part takes the
// destination's name only when the whole transfer succeeded, so a failure never leaves a partial
// file under the destination's name.
//
// A transfer that breaks off (connection lost, time-out, 5xx, 429) is tried again after a growing
// wait (see KVTransferRetry), the progress saying so meanwhile. Where the server names a validator
// (ETag or Last-Modified) for an unencoded body, the part and a record of it stay behind after such
// a failure (see KVPartialDownload), and the next attempt, in this run or a later one, asks only
// for the rest with Range and If-Range; a whole answer instead, or a record made for another
// size or digest, starts the file again from zero. Every other failure removes the part.
//
// A response other than 2xx is a failure (URL domain, -1011, with the status), as is any
// transport failure (URL domain, see KVTransportErrorOfReply) and a file that cannot be written
// (Cocoa domain; 640 for a full disk). The body must be exactly as long as announced: a body cut
// short (by its Content-Length, by the end of its gzip or deflate stream, or by the expected size)
// fails with -1005, one longer than the expected size (or than kDownloadCeiling without one) is
// cut off at once and fails with -1103, and an encoding that cannot be undone fails with -1016.
// The SHA-256 of the whole file, the continued part included, is computed as it is written; a
// file whose digest is not the expected one fails with the engine's
// KVUpdateHelperErrorSHA256Mismatch. Requests go through KVHTTPSession; a transfer under way when
// the installer quits fails at once.
class KVDownloadTask : public QObject
{
    Q_OBJECT
public:
    // Both called on the main thread; either may be empty.
    using ProgressHandler = std::function<void(const KVTransferProgress &progress)>;
    using CompletionHandler = std::function<void(const QString &path, const KVError &error)>;

    // The most a download without an expected size may bring.
    static constexpr qint64 kDownloadCeiling = qint64(4) << 30;

    // Starts the transfer and returns at once. The task reports completion exactly once (the
    // destination's path, or an empty path and the error) and then deletes itself. A positive
    // expected size is the length the file must have, an expected SHA-256 its digest. Thread: main.
    static void start(const QUrl &url, const QString &destination, const KVExpectedDownload &expected,
                      ProgressHandler progress, CompletionHandler completion);

private:
    KVDownloadTask(const QUrl &url, const QString &destination, const KVExpectedDownload &expected,
                   ProgressHandler progress, CompletionHandler completion);

    void startAttempt();
    [[nodiscard]] bool openPart();
    void restartFromZero();
    bool hasSuccessStatus() const;
    [[nodiscard]] bool prepareBody();
    [[nodiscard]] bool writeToFile(QByteArrayView data);
    void writeAvailableData();
    void stopWith(const KVError &error);
    void reportProgress(qint64 received, qint64 total);
    void finish();
    void retryOrComplete(const KVError &error, std::optional<std::chrono::seconds> retryAfter);
    void complete(const KVError &error);
    void cancel();
    KVResult<> outcome();
    KVResult<> checkLength() const;
    KVResult<> checkDigest() const;

    KVHTTPSession m_session; // one per download: nothing is shared between downloads
    const QUrl m_url;
    KVPartialDownload m_partial;
    QFile m_file; // the part
    QNetworkReply *m_reply = nullptr;
    const std::optional<qint64> m_expectedSize;
    const QByteArray m_expectedSHA256;
    ProgressHandler m_progress;
    CompletionHandler m_completion;
    std::unique_ptr<KVCancellation::Registration> m_cancellation;
    QTimer m_retryTimer;
    int m_failedAttempts = 0;
    KVError m_lastError; // of the attempt that failed last, reported should the wait be cut short

    // Of the current attempt.
    QCryptographicHash m_sha256{QCryptographicHash::Sha256}; // of the file's bytes, the kept ones too
    std::unique_ptr<KVContentDecoder> m_decoder;
    bool m_bodyPrepared = false;
    KVError m_stopError;        // why the transfer was broken off: the file, the length or the encoding
    qint64 m_resumedFrom = 0;   // bytes kept from earlier attempts
    qint64 m_bytesReceived = 0; // as sent, before decoding
    qint64 m_bytesWritten = 0;  // the file's length so far
};
