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

struct ToolRun
{
    KVError error; // set unless the tool ended with status 0
    QByteArray output;
};

// Runs the tool on the archive and waits for it. Checked here: the tool reports a missing archive
// and an unreadable one with the same status.
ToolRun runUnzip(const QString &archivePath, const QStringList &arguments)
{
    if (!QFileInfo::exists(archivePath))
        return {KVError::fromErrno(ENOENT, archivePath), {}};
    QProcess unzip;
    // A prompt (an entry named twice) must not wait for an answer: with no input it answers "none".
    unzip.setStandardInputFile(QProcess::nullDevice());
    unzip.start(kUnzipTool, arguments);
    const bool ran = KVChildProcess::waitForExit(unzip);
    ToolRun run{{}, unzip.readAllStandardOutput()};
    // Most complaints go to the error output; a few ("Empty zipfile.") only to the listing.
    QString diagnostics = QString::fromLocal8Bit(unzip.readAllStandardError()).trimmed();
    if (diagnostics.isEmpty())
        diagnostics = QString::fromLocal8Bit(run.output.left(200)).trimmed();
    if (!ran) {
        run.error = KVError(
            KVCocoaErrorDomain, KVFileReadUnknownError,
            {{KVLocalizedDescriptionKey, QStringLiteral("%1 did not run: %2").arg(kUnzipTool, unzip.errorString())},
             {KVFilePathErrorKey, archivePath}});
    } else if (const int status = unzip.exitCode(); status != Success) {
        run.error = KVError(
            KVCocoaErrorDomain, status == DiskFull ? KVFileWriteOutOfSpaceError : KVFileReadCorruptFileError,
            {{KVLocalizedDescriptionKey,
              QStringLiteral("The archive could not be read (unzip exit status %1): %2").arg(status).arg(diagnostics)},
             {KVFilePathErrorKey, archivePath}});
    }
    return run;
}

} // namespace

namespace KVUnzip {

std::optional<Listing> listArchive(const QString &archivePath, KVError *error)
{
    // "-Z1": one entry name a line; "-Zt": only the totals line, "N files, B bytes uncompressed, …".
    const ToolRun names = runUnzip(archivePath, {QStringLiteral("-Z1"), archivePath});
    const ToolRun totals = names.error ? names : runUnzip(archivePath, {QStringLiteral("-Zt"), archivePath});
    static const QRegularExpression totalsLine(QStringLiteral(R"(^\d+ files?, (\d+) bytes uncompressed)"));
    const QRegularExpressionMatch match = totalsLine.match(QString::fromLatin1(totals.output));
    if (totals.error || !match.hasMatch()) {
        *error = totals.error
                     ? totals.error
                     : KVError(KVCocoaErrorDomain, KVFileReadCorruptFileError, {{KVFilePathErrorKey, archivePath}});
        return std::nullopt;
    }
    Listing listing;
    for (const QByteArray &name : names.output.split('\n'))
        if (!name.isEmpty())
            listing.entryNames << QFile::decodeName(name);
    listing.unpackedBytes = match.captured(1).toLongLong();
    return listing;
}

KVError extractArchive(const QString &archivePath, const QString &folder)
{
    // "-q": the listing of every unpacked file would only bury the installer's own progress output.
    return runUnzip(archivePath, {QStringLiteral("-q"), archivePath, QStringLiteral("-d"), folder}).error;
}

} // namespace KVUnzip
