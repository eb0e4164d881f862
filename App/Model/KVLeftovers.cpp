#include "App/Model/KVLeftovers.h"

#include "Core/Extensions/KVUUID.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVFileOperations.h"
#include "Platform/KVStandardPaths.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <unistd.h>

namespace {

const QString kUnpackingPrefix = QStringLiteral("nestora-unpack-");
const QString kDownloadPrefix = QStringLiteral("keldran-vexa-");
const QString kUUIDPattern = QStringLiteral("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");

// The downloads ("keldran-vexa-…") with the temporary files they are written through.
const QString kDownloadPattern = QRegularExpression::escape(kDownloadPrefix) + QStringLiteral(".+");

// What the installer leaves in the temporary directory: extraction folders and the downloads.
const QRegularExpression kTemporaryItem(
    QStringLiteral("^(%1%2|%3)$").arg(QRegularExpression::escape(kUnpackingPrefix), kUUIDPattern, kDownloadPattern));

// What the installer leaves beside a deployed item: a hidden copy on the way to its place
// (".<UUID>_<name>"), a property list or data file half written through QSaveFile
// ("<name>.XXXXXX"), and a staging folder of the install script.
const QRegularExpression kStagingItem(
    QStringLiteral(
        R"(^(\.%1_.+|(UpdateHistory\.plist|InstallerSettings\.plist|devices\.data|SmartCards\.json)\.[A-Za-z0-9]{6}|\.install-[A-Za-z0-9]{6})$)")
        .arg(kUUIDPattern));

// The marker the install script puts in each of its staging folders.
const QString kInstallStagingMarker = QStringLiteral(".nestora-install-staging");

bool isOwnedByThisUser(const QFileInfo &entry)
{
    return entry.ownerId() == ::getuid();
}

// A staging folder of the install script counts only when it carries the script's marker.
bool isMarkedAsOurs(const QFileInfo &entry)
{
    if (!entry.fileName().startsWith(QLatin1String(".install-")))
        return true;
    return entry.isDir() && !entry.isSymLink() &&
           QFileInfo::exists(entry.filePath() + QLatin1Char('/') + kInstallStagingMarker);
}

void removeMatching(const QString &folder, const QRegularExpression &pattern)
{
    const QFileInfoList entries =
        QDir(folder).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        if (!pattern.match(entry.fileName()).hasMatch() || !isOwnedByThisUser(entry) || !isMarkedAsOurs(entry))
            continue;
        if (const KVResult<> removed = KVFileOperations::removeItem(entry.filePath()); !removed)
            KVLogWarning("%s: failed to remove %@ with error %@", __func__, entry.filePath(), removed.error());
        else
            KVLogInfo("%s: removed %@", __func__, entry.filePath());
    }
}

} // namespace

namespace KVLeftovers {

QString newUnpackingFolder()
{
    return KVStandardPaths::temporaryDirectory() + QLatin1Char('/') + kUnpackingPrefix + KVUUIDString();
}

void removeUnpackingFolderOf(const QStringList &items)
{
    if (items.isEmpty())
        return;
    const QFileInfo folder(QFileInfo(items.first()).absolutePath());
    if (!folder.fileName().startsWith(kUnpackingPrefix))
        return;
    if (const KVResult<> removed = KVFileOperations::removeItem(folder.filePath()); !removed)
        KVLogWarning("%s: failed to remove %@ with error %@", __func__, folder.filePath(), removed.error());
}

void pruneDownloads(const QString &folder, const QStringList &namedFiles)
{
    QStringList alternatives;
    for (const QString &name : namedFiles)
        alternatives << QRegularExpression::escape(name);
    const QRegularExpression named(
        QStringLiteral("^(%1)(\\.part(\\.json)?)?$").arg(alternatives.join(QLatin1Char('|'))));
    for (const QFileInfo &entry : QDir(folder).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)) {
        if (!alternatives.isEmpty() && named.match(entry.fileName()).hasMatch())
            continue;
        if (const KVResult<> removed = KVFileOperations::removeItem(entry.filePath()); !removed)
            KVLogWarning("%s: failed to remove %@ with error %@", __func__, entry.filePath(), removed.error());
        else
            KVLogInfo("%s: removed %@, which the manifest no longer names", __func__, entry.filePath());
    }
}

void removeLeftoversOfEarlierRuns(const QStringList &deploymentFolders)
{
    removeMatching(KVStandardPaths::temporaryDirectory(), kTemporaryItem);
    for (const QString &folder : deploymentFolders)
        removeMatching(folder, kStagingItem);
}

} // namespace KVLeftovers
