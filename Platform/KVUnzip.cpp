#include "Platform/KVUnzip.h"

#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <algorithm>
#include <cerrno>

namespace {

const QString kUnzipTool = QStringLiteral("/usr/bin/unzip");

// unzip's exit statuses, from its manual.
enum UnzipStatus { Success = 0, Warning = 1, DiskFull = 50 };

// The warnings of an otherwise successful run that only say how an unsafe entry name was kept
// inside the folder. Any other warning (an entry skipped, unreadable or left unreplaced) means
// that something is missing from the result.
bool onlyPathWarnings(const QString &diagnostics)
{
    static const QRegularExpression pathWarning(
        QStringLiteral(R"(^warning:\s+(stripped absolute path spec from |skipped "\.\./" path component\(s\) in ))"));
    const QStringList lines = diagnostics.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    return std::all_of(lines.cbegin(), lines.cend(),
                       [](const QString &line) { return pathWarning.match(line).hasMatch(); });
}

} // namespace

namespace KVUnzip {

KVError extractArchive(const QString &archivePath, const QString &folder)
{
    // Checked here: the tool reports a missing archive and an unreadable one with the same status.
    if (!QFileInfo::exists(archivePath))
        return KVError::fromErrno(ENOENT, archivePath);
    QProcess unzip;
    // The listing of every unpacked file would only bury the installer's own progress output.
    unzip.setStandardOutputFile(QProcess::nullDevice());
    // A prompt (an entry named twice) must not wait for an answer: with no input it answers "none".
    unzip.setStandardInputFile(QProcess::nullDevice());
    unzip.start(kUnzipTool, {archivePath, QStringLiteral("-d"), folder});
    const bool ran = unzip.waitForFinished(-1) && unzip.exitStatus() == QProcess::NormalExit;
    const QString diagnostics = QString::fromLocal8Bit(unzip.readAllStandardError()).trimmed();
    if (!ran) {
        return KVError(
            KVCocoaErrorDomain, KVFileReadUnknownError,
            {{KVLocalizedDescriptionKey, QStringLiteral("%1 did not run: %2").arg(kUnzipTool, unzip.errorString())},
             {KVFilePathErrorKey, archivePath}});
    }
    const int status = unzip.exitCode();
    if (status == Success || (status == Warning && onlyPathWarnings(diagnostics)))
        return {};
    return KVError(
        KVCocoaErrorDomain, status == DiskFull ? KVFileWriteOutOfSpaceError : KVFileReadCorruptFileError,
        {{KVLocalizedDescriptionKey,
          QStringLiteral("The archive could not be unpacked (unzip exit status %1): %2").arg(status).arg(diagnostics)},
         {KVFilePathErrorKey, archivePath}});
}

} // namespace KVUnzip
