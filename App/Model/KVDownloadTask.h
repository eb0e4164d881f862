#pragma once

#include "App/Model/KVContentDecoder.h"
#include "App/Model/KVHTTPSession.h"
#include "App/Model/KVUpdateTypes.h"
#include "Core/Extensions/KVCancellation.h"
#include "Core/Extensions/KVResult.h"

#include <QCryptographicHash>
#include <QObject>
#include <QSaveFile>
#include <QUrl>

#include <memory>
#include <optional>

class QNetworkReply;

// One HTTP download streamed into a file. The body goes to a temporary file beside the
// destination as it arrives, through a bounded read buffer, so memory stays constant whatever the
// size; the file is renamed to the destination only when the whole transfer succeeded, so a
// failure never leaves a partial file under the destination's name.
//
// A response other than 2xx is a failure (URL domain, -1011), as is any transport failure (URL
// domain, see KVTransportErrorOfReply) and a file that cannot be written (Cocoa domain; 640 for a
// full disk). The body must be exactly as long as announced: a body cut short (by its
// Content-Length, by the end of its gzip or deflate stream, or by the expected size) fails with
// -1005, one longer than the expected size (or than kDownloadCeiling without one) is cut off at
// once and fails with -1103, and an encoding that cannot be undone fails with -1016. The file's
// SHA-256 is computed as it is written; a file whose digest is not the expected one fails with
// the engine's KVUpdateHelperErrorSHA256Mismatch. Redirects are followed unless they
// lead to a less safe scheme; the system's proxy settings apply; no cache is read or written; a transfer that receives
// nothing for KVUpdateHelper::networkTimeout() fails, and so does one under way when the installer
// quits.
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

    bool hasSuccessStatus() const;
    [[nodiscard]] bool prepareDecoding();
    [[nodiscard]] bool writeToFile(QByteArrayView data);
    void writeAvailableData();
    void stopWith(const KVError &error);
    void reportProgress(qint64 received, qint64 total);
    void finish();
    KVResult<> outcome();
    KVResult<> checkLength() const;
    KVResult<> checkDigest() const;

    KVHTTPSession m_session; // one per download: nothing is shared between downloads
    QSaveFile m_file;
    QNetworkReply *m_reply = nullptr;
    const std::optional<qint64> m_expectedSize;
    const QByteArray m_expectedSHA256;
    QCryptographicHash m_sha256{QCryptographicHash::Sha256}; // of the file's bytes as written
    std::unique_ptr<KVContentDecoder> m_decoder;
    bool m_decodingPrepared = false;
    KVError m_stopError;        // why the transfer was broken off: the file, the length or the encoding
    qint64 m_bytesReceived = 0; // as sent, before decoding
    qint64 m_bytesWritten = 0;
    ProgressHandler m_progress;
    CompletionHandler m_completion;
    std::unique_ptr<KVCancellation::Registration> m_cancellation;
};
