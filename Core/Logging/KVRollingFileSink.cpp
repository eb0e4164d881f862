#include "Core/Logging/KVRollingFileSink.h"

#include <QDir>

#include <algorithm>

namespace {
const QString kDateFormat = QStringLiteral("yyyy-MM-dd--HH-mm-ss-zzz");
const QString kSuffix = QStringLiteral(".log");
} // namespace

KVRollingFileSink::KVRollingFileSink(QString folder, QString prefix, qint64 rollingFrequencySeconds,
                                     int maximumNumberOfLogFiles, Clock clock, qint64 maximumFileSize)
    : m_folder(std::move(folder))
    , m_prefix(std::move(prefix))
    , m_rollingFrequency(rollingFrequencySeconds)
    , m_maximumFiles(maximumNumberOfLogFiles)
    , m_maximumFileSize(maximumFileSize)
    , m_clock(std::move(clock))
{
    // Go on writing the newest file while it may take more; otherwise start afresh.
    const QStringList files = sortedLogFiles();
    if (!files.isEmpty()) {
        const QDateTime created = creationDateOfFile(files.last());
        if (isCurrent(created, QFileInfo(files.last()).size()) && openFile(files.last()))
            m_fileCreated = created;
    }
}

bool KVRollingFileSink::isCurrent(const QDateTime &created, qint64 size) const
{
    if (!created.isValid())
        return false;
    const qint64 age = created.secsTo(m_clock());
    return age >= 0 && age < m_rollingFrequency && size < m_maximumFileSize;
}

QString KVRollingFileSink::currentFilePath()
{
    std::lock_guard lock(mutex_);
    return m_file.isOpen() ? m_file.fileName() : QString();
}

QStringList KVRollingFileSink::sortedLogFiles() const
{
    QStringList files = QDir(m_folder).entryList({m_prefix + QStringLiteral(" *") + kSuffix}, QDir::Files, QDir::Name);
    for (QString &file : files)
        file = m_folder + QLatin1Char('/') + file;
    const QDateTime now = m_clock();
    std::stable_partition(files.begin(), files.end(),
                          [&](const QString &file) { return creationDateOfFile(file) > now; });
    return files;
}

QDateTime KVRollingFileSink::creationDateOfFile(const QString &path) const
{
    const QString name = QFileInfo(path).fileName();
    const QString stamp = name.mid(m_prefix.size() + 1, kDateFormat.size());
    QDateTime date = QDateTime::fromString(stamp, kDateFormat);
    date.setTimeSpec(Qt::UTC);
    return date;
}

bool KVRollingFileSink::openFile(const QString &path)
{
    m_file.close();
    m_file.setFileName(path);
    // Unbuffered: a line is in the file as soon as the sink has handled it.
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        return false;
    m_fileSize = m_file.size();
    return true;
}

void KVRollingFileSink::rollIfDue()
{
    if (m_file.isOpen() && isCurrent(m_fileCreated, m_fileSize))
        return;
    const QDateTime now = m_clock();
    QDir().mkpath(m_folder);
    QString path = m_folder + QLatin1Char('/') + m_prefix + QLatin1Char(' ') + now.toString(kDateFormat) + kSuffix;
    if (!openFile(path))
        return; // an unwritable folder: lines are dropped, the system log still has them
    m_fileCreated = now;
    deleteOldFiles();
}

void KVRollingFileSink::deleteOldFiles()
{
    QStringList files = sortedLogFiles();
    while (files.size() > m_maximumFiles)
        QFile::remove(files.takeFirst());
}

void KVRollingFileSink::sink_it_(const spdlog::details::log_msg &message)
{
    rollIfDue();
    if (!m_file.isOpen())
        return;
    spdlog::memory_buf_t formatted;
    formatter_->format(message, formatted);
    m_file.write(formatted.data(), qint64(formatted.size()));
    m_fileSize += qint64(formatted.size());
}

void KVRollingFileSink::flush_()
{
    if (m_file.isOpen())
        m_file.flush();
}
