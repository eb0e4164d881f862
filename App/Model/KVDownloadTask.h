#pragma once

#include "App/Model/KVUpdateTypes.h"

#include <QNetworkAccessManager>
#include <QObject>
#include <QSaveFile>
#include <QUrl>

class QNetworkReply;

// One HTTP download streamed into a file. The body goes to a temporary file beside the
// destination as it arrives, through a bounded read buffer, so memory stays constant whatever the
// size; the file is renamed to the destination only when the whole transfer succeeded, so a
// failure never leaves a partial file under the destination's name.
//
// A response other than 2xx is a failure (URL domain, -1011), as is any transport failure (URL
// domain, see KVTransportErrorOfReply) and a file that cannot be written (Cocoa domain; 640 for a
// full disk). Redirects are followed unless they lead to a less safe scheme; the system's proxy
// settings apply; no cache is read or written; a transfer that receives nothing for
// KVUpdateHelper::networkTimeout() fails.
class KVDownloadTask : public QObject
{
    Q_OBJECT
public:
    // Both called on the main thread; either may be empty.
    using ProgressHandler = std::function<void(const KVTransferProgress &progress)>;
    using CompletionHandler = std::function<void(const QString &path, const KVError &error)>;

    // Starts the transfer and returns at once. The task reports completion exactly once (the
    // destination's path, or an empty path and the error) and then deletes itself.
    // Thread: main.
    static void start(const QUrl &url, const QString &destination, ProgressHandler progress,
                      CompletionHandler completion);

private:
    KVDownloadTask(const QUrl &url, const QString &destination, ProgressHandler progress, CompletionHandler completion);

    bool hasSuccessStatus() const;
    bool isShorterThanAnnounced() const;
    void writeAvailableData();
    void reportProgress(qint64 received, qint64 total);
    void finish();
    KVError outcome();

    QNetworkAccessManager m_manager; // one per download: nothing is shared between downloads
    QSaveFile m_file;
    QNetworkReply *m_reply = nullptr;
    KVError m_fileError;
    qint64 m_bytesWritten = 0;
    ProgressHandler m_progress;
    CompletionHandler m_completion;
};
