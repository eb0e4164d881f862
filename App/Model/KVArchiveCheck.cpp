#include "App/Model/KVArchiveCheck.h"

#include "Platform/KVBundle.h"
#include "Platform/KVUnzip.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QProcess>
#include <QStorageInfo>

namespace {

// The user's texts of every problem an archive can have, in one place.
KVError unsafeArchive(const QString &problem)
{
    return KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorInvalidArchive,
                   {{KVLocalizedDescriptionKey, QStringLiteral("the archive cannot be unpacked safely: ") + problem}});
}

KVError invalidBundle(const QString &bundleName, const QString &problem)
{
    return KVError(
        KVUpdateHelperErrorDomain, KVUpdateHelperErrorInvalidArchive,
        {{KVLocalizedDescriptionKey, QStringLiteral("the archive is not a valid %1: %2").arg(bundleName, problem)}});
}

// An entry name that the unzip tool would have to rewrite to keep it inside the folder.
bool leavesFolder(const QString &entryName)
{
    return entryName.startsWith(QLatin1Char('/')) || entryName.split(QLatin1Char('/')).contains(QStringLiteral(".."));
}

// True when the path lies inside the folder (both absolute and clean).
bool isInside(const QString &path, const QString &folder)
{
    return path == folder || path.startsWith(folder + QLatin1Char('/'));
}

} // namespace

KVResult<> KVArchiveCheck::checkListing(const QString &archivePath, const QString &folder)
{
    const KVResult<KVUnzip::Listing> listing = KVUnzip::listArchive(archivePath);
    if (!listing)
        return listing.error();
    for (const QString &name : listing->entryNames)
        if (leavesFolder(name))
            return unsafeArchive(QStringLiteral("the entry \u201c%1\u201d points outside its folder").arg(name));
    const qint64 archiveBytes = QFileInfo(archivePath).size();
    if (listing->unpackedBytes > maximumExpansion * archiveBytes)
        return unsafeArchive(QStringLiteral("it would unpack to %1 bytes, more than %2 times its size of %3 bytes")
                                 .arg(listing->unpackedBytes)
                                 .arg(maximumExpansion)
                                 .arg(archiveBytes));
    const qint64 freeBytes = QStorageInfo(folder).bytesAvailable();
    if (listing->unpackedBytes > freeBytes)
        return unsafeArchive(QStringLiteral("it would unpack to %1 bytes, but only %2 bytes are free in %3")
                                 .arg(listing->unpackedBytes)
                                 .arg(freeBytes)
                                 .arg(folder));
    return {};
}

KVResult<> KVArchiveCheck::checkLinks(const QStringList &items)
{
    for (const QString &item : items) {
        const QString top = QFileInfo(item).absoluteFilePath();
        if (QFileInfo(top).isSymLink())
            return unsafeArchive(
                QStringLiteral("its top-level item \u201c%1\u201d is a link").arg(QFileInfo(top).fileName()));
        QDirIterator entries(top, QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        while (entries.hasNext()) {
            const QFileInfo entry(entries.next());
            if (!entry.isSymLink())
                continue;
            // Judged by the link's text (made absolute), not by what lies there now: a link must not
            // lead out even where its target does not exist yet.
            const QString target = QDir::cleanPath(entry.symLinkTarget());
            if (!isInside(target, top))
                return unsafeArchive(QStringLiteral("the link \u201c%1\u201d leads outside \u201c%2\u201d")
                                         .arg(QDir(QFileInfo(top).absolutePath()).relativeFilePath(entry.filePath()),
                                              QFileInfo(top).fileName()));
        }
    }
    return {};
}

KVArchiveCheck::KVArchiveCheck(QString bundleName, QString bundleIdentifier)
    : m_bundleName(std::move(bundleName))
    , m_bundleIdentifier(std::move(bundleIdentifier))
{}

KVResult<> KVArchiveCheck::checkBundle(const QStringList &items) const
{
    if (items.isEmpty())
        return invalidBundle(m_bundleName, QStringLiteral("it holds nothing"));
    if (items.size() > 1) {
        QStringList names;
        for (const QString &item : items)
            names << QFileInfo(item).fileName();
        names.sort();
        return invalidBundle(m_bundleName, QStringLiteral("it holds %1 items instead of one bundle: %2")
                                               .arg(items.size())
                                               .arg(names.join(QStringLiteral(", "))));
    }
    const QFileInfo bundle(items.first());
    if (bundle.fileName() != m_bundleName)
        return invalidBundle(m_bundleName, QStringLiteral("it holds \u201c%1\u201d").arg(bundle.fileName()));
    if (bundle.isSymLink() || !bundle.isDir())
        return invalidBundle(m_bundleName, QStringLiteral("%1 is not a folder").arg(m_bundleName));

    const std::optional<KVBundle> opened = KVBundle::bundleWithPath(bundle.filePath());
    if (!opened || opened->infoDictionary().isEmpty())
        return invalidBundle(m_bundleName, QStringLiteral("Contents/Info.plist is missing or unreadable"));
    if (opened->bundleIdentifier() != m_bundleIdentifier)
        return invalidBundle(m_bundleName, QStringLiteral("its bundle identifier is \u201c%1\u201d, not \u201c%2\u201d")
                                               .arg(opened->bundleIdentifier(), m_bundleIdentifier));
    const QString executable = opened->objectForInfoDictionaryKey(QStringLiteral("CFBundleExecutable")).toString();
    if (executable.isEmpty())
        return invalidBundle(m_bundleName, QStringLiteral("Contents/Info.plist names no CFBundleExecutable"));
    const QFileInfo program(opened->executablePath());
    if (executable.contains(QLatin1Char('/')) || program.isSymLink() || !program.isFile() || !program.isExecutable())
        return invalidBundle(m_bundleName,
                             QStringLiteral("Contents/MacOS/%1 is not an executable file").arg(executable));
    return {};
}

KVResult<> KVArchiveCheck::checkReportedVersion(const QString &bundlePath, const QString &version) const
{
    const std::optional<KVBundle> bundle = KVBundle::bundleWithPath(bundlePath);
    const QString program = bundle ? bundle->executablePath() : QString();
    QProcess probe;
    probe.setStandardInputFile(QProcess::nullDevice());
    probe.start(program, {QStringLiteral("--version")});
    if (!probe.waitForFinished(versionTimeoutSeconds * 1000)) {
        const QString reason = probe.error() == QProcess::Timedout
                                   ? QStringLiteral("no answer within %1 seconds").arg(versionTimeoutSeconds)
                                   : probe.errorString();
        probe.kill();
        probe.waitForFinished();
        return invalidBundle(m_bundleName, QStringLiteral("its program does not run (%1)").arg(reason));
    }
    if (probe.exitStatus() != QProcess::NormalExit || probe.exitCode() != 0)
        return invalidBundle(
            m_bundleName, probe.exitStatus() == QProcess::CrashExit
                              ? QStringLiteral("its program crashes when it starts")
                              : QStringLiteral("its program ends with status %1 when it starts").arg(probe.exitCode()));
    const QString reported =
        QString::fromUtf8(probe.readAllStandardOutput()).section(QLatin1Char('\n'), 0, 0).trimmed();
    if (reported != version)
        return invalidBundle(
            m_bundleName,
            QStringLiteral("it is version \u201c%1\u201d, not \u201c%2\u201d as published").arg(reported, version));
    return {};
}
