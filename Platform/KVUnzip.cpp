#include "Platform/KVUnzip.h"

#include "Platform/KVChildProcess.h"

#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <cerrno>

namespace {

const QString kUnzipTool = QStringLiteral("/usr/bin/unzip");

// unzip's exit statuses, from its manual.
enum UnzipStatus { Success = 0, DiskFull = 50 };

// Runs the tool on the archive, waits for it and yields its standard output; any status but 0 is
// an error. Checked here: the tool reports a missing archive and an unreadable one with the same status.
KVResult<QByteArray> runUnzip(const QString &archivePath, const QStringList &arguments)
{
    if (!QFileInfo::exists(archivePath))
        return KVError::fromErrno(ENOENT, archivePath);
    QProcess unzip;
    // A prompt (an entry named twice) must not wait for an answer: with no input it answers "none".
    unzip.setStandardInputFile(QProcess::nullDevice());
    unzip.start(kUnzipTool, arguments);
    const bool ran = KVChildProcess::waitForExit(unzip);
    QByteArray output = unzip.readAllStandardOutput();
    // Most complaints go to the error output; a few ("Empty zipfile.") only to the listing.
    QString diagnostics = QString::fromLocal8Bit(unzip.readAllStandardError()).trimmed();
    if (diagnostics.isEmpty())
        diagnostics = QString::fromLocal8Bit(output.left(200)).trimmed();
    if (!ran) {
        return KVError(
            KVCocoaErrorDomain, KVFileReadUnknownError,
            {{KVLocalizedDescriptionKey, QStringLiteral("%1 did not run: %2").arg(kUnzipTool, unzip.errorString())},
             {KVFilePathErrorKey, archivePath}});
    }
    if (const int status = unzip.exitCode(); status != Success) {
        return KVError(
            KVCocoaErrorDomain, status == DiskFull ? KVFileWriteOutOfSpaceError : KVFileReadCorruptFileError,
            {{KVLocalizedDescriptionKey,
              QStringLiteral("The archive could not be read (unzip exit status %1): %2").arg(status).arg(diagnostics)},
             {KVFilePathErrorKey, archivePath}});
    }
    return output;
}

} // namespace

namespace KVUnzip {

KVResult<Listing> listArchive(const QString &archivePath)
{
    // "-Z1": one entry name a line; "-Zt": only the totals line, "N files, B bytes uncompressed, …".
    const KVResult<QByteArray> names = runUnzip(archivePath, {QStringLiteral("-Z1"), archivePath});
    if (!names)
        return names.error();
    const KVResult<QByteArray> totals = runUnzip(archivePath, {QStringLiteral("-Zt"), archivePath});
    if (!totals)
        return totals.error();
    static const QRegularExpression totalsLine(QStringLiteral(R"(^\d+ files?, (\d+) bytes uncompressed)"));
    const QRegularExpressionMatch match = totalsLine.match(QString::fromLatin1(*totals));
    if (!match.hasMatch())
        return KVError(KVCocoaErrorDomain, KVFileReadCorruptFileError, {{KVFilePathErrorKey, archivePath}});
    Listing listing;
    for (const QByteArray &name : names->split('\n'))
        if (!name.isEmpty())
            listing.entryNames << QFile::decodeName(name);
    listing.unpackedBytes = match.captured(1).toLongLong();
    return listing;
}

KVResult<> extractArchive(const QString &archivePath, const QString &folder)
{
    // "-q": the listing of every unpacked file would only bury the installer's own progress output.
    const KVResult<QByteArray> run =
        runUnzip(archivePath, {QStringLiteral("-q"), archivePath, QStringLiteral("-d"), folder});
    if (!run)
        return run.error();
    return {};
}

} // namespace KVUnzip
