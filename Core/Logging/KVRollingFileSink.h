#pragma once

#include <QDateTime>
#include <QFile>
#include <QString>

#include <spdlog/sinks/base_sink.h>

#include <functional>
#include <mutex>

// A log-file sink that starts a new file once the current one is older than the rolling
// frequency, dated in the future (a clock that was set wrong) or grown past the size cap, and
// keeps only the newest files of its folder. spdlog's own file sinks roll by size or at a time of
// day, not by age, hence this one. Files are named "<prefix> yyyy-MM-dd--HH-mm-ss-zzz.log" so that
// their names sort by age; one dated in the future counts as the oldest.
class KVRollingFileSink final : public spdlog::sinks::base_sink<std::mutex>
{
public:
    using Clock = std::function<QDateTime()>;

    static constexpr qint64 kMaximumFileSize = 10 * 1024 * 1024;

    KVRollingFileSink(QString folder, QString prefix, qint64 rollingFrequencySeconds, int maximumNumberOfLogFiles,
                      Clock clock = &QDateTime::currentDateTimeUtc, qint64 maximumFileSize = kMaximumFileSize);

    // Thread: any. The file now written, empty when the folder cannot be written.
    QString currentFilePath();
    // The log files of the folder, oldest first.
    QStringList sortedLogFiles() const;

protected:
    void sink_it_(const spdlog::details::log_msg &message) override;
    void flush_() override;

private:
    bool openFile(const QString &path);
    // Whether a file of that creation date and size may take more lines now.
    bool isCurrent(const QDateTime &created, qint64 size) const;
    void rollIfDue();
    void deleteOldFiles();
    QDateTime creationDateOfFile(const QString &fileName) const;

    const QString m_folder;
    const QString m_prefix;
    const qint64 m_rollingFrequency;
    const int m_maximumFiles;
    const qint64 m_maximumFileSize;
    const Clock m_clock;
    QFile m_file;
    QDateTime m_fileCreated;
    qint64 m_fileSize = 0; // counted here rather than asked of the file system for every line
};
