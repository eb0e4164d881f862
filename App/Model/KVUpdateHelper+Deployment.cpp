#include "App/Model/KVArchiveCheck.h"
#include "App/Model/KVInstallerRelaunch.h"
#include "App/Model/KVLeftovers.h"
#include "App/Model/KVPrivilegeHelper.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVShellQuoting.h"
#include "Core/Extensions/KVUUID.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"
#include "Platform/KVFileOperations.h"
#include "Platform/KVPropertyList.h"
#include "Platform/KVStandardPaths.h"
#include "Platform/KVUnzip.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <filesystem>

namespace fs = std::filesystem;

namespace {
const QString kInstallerVendorKey = QStringLiteral("installer_vendor");
const QString kInstallerVendor = QStringLiteral("Keldran");

void setError(KVError *error, const KVError &value)
{
    if (error)
        *error = value;
}

// The full paths of the folder's entries, in the order the file system lists them.
KVResult<QStringList> entriesOfFolder(const QString &folder)
{
    std::error_code code;
    fs::directory_iterator entries(fs::path(QFile::encodeName(folder).toStdString()), code);
    QStringList paths;
    for (; !code && entries != fs::directory_iterator(); entries.increment(code))
        paths << folder + QLatin1Char('/') + QFile::decodeName(entries->path().filename().c_str());
    if (code)
        return KVError::fromErrno(code.value(), folder);
    return paths;
}

// Unpacks the archive into the folder and yields its top-level items, once every check has passed.
// What the archive claims is checked first, so that a hostile one never fills the disk.
KVResult<QStringList> unpackCheckedArchive(const QString &archivePath, const QString &folder,
                                           const std::optional<KVArchiveCheck> &expectedBundle)
{
    if (const KVResult<> listing = KVArchiveCheck::checkListing(archivePath, folder); !listing)
        return listing.error();
    if (const KVResult<> extracted = KVUnzip::extractArchive(archivePath, folder); !extracted)
        return extracted.error();
    KVResult<QStringList> items = entriesOfFolder(folder);
    if (!items)
        return items;
    if (const KVResult<> links = KVArchiveCheck::checkLinks(*items); !links)
        return links.error();
    items->removeIf([](const QString &path) { return QFileInfo(path).fileName() == QLatin1String("__MACOSX"); });
    if (expectedBundle) {
        if (const KVResult<> bundle = expectedBundle->checkBundle(*items); !bundle)
            return bundle.error();
    }
    return items;
}

// Makes sure the installer settings name the vendor; the file is written only when they do not.
void recordInstallerVendor()
{
    const QString path =
        KVStandardPaths::applicationSupportDirectory() + QStringLiteral("/Nestora/InstallerSettings.plist");
    QVariantMap settings = KVPropertyList::readDictionary(path).valueOr({});
    const QVariant vendor = settings.value(kInstallerVendorKey);
    if (vendor.metaType() == QMetaType::fromType<QString>() && vendor.toString() == kInstallerVendor)
        return;
    settings.insert(kInstallerVendorKey, kInstallerVendor);
    QDir().mkpath(QFileInfo(path).absolutePath());
    (void)KVPropertyList::writeDictionary(path, settings); // best effort
}

// Replaces the application through "Install.sh" as root. Every argument is quoted so that the
// shell reads it back exactly: the unpacked item's name comes from a downloaded archive and must
// never be able to run a command of its own.
KVResult<> deployAppWithPrivilege(const QStringList &items, const QString &destination)
{
    const QString script = KVBundle::mainBundle().resourcePath() + QStringLiteral("/Install.sh");
    const QStringList arguments{KVShellQuoting::singleQuoted(destination), KVShellQuoting::singleQuoted(items.value(0)),
                                KVShellQuoting::singleQuoted(QFileInfo(destination).absolutePath())};
    // A script that is missing or cannot run is the installer's own damage: found before any
    // prompt, so that the user is not asked for a password in vain.
    const QFileInfo scriptInfo(script);
    if (!scriptInfo.isFile() || !scriptInfo.isExecutable())
        return KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorInstallScriptUnusable,
                       {{KVFilePathErrorKey, script}});
    QString output;
    QString errorDescription;
    int exitStatus = -1;
    if (KVPrivilegeHelper::runProcessAsAdministrator(script, arguments, &output, &errorDescription, &exitStatus))
        return {};
    QVariantMap info{{QStringLiteral("output"), output},
                     {KVLocalizedDescriptionKey, errorDescription.isNull() ? QStringLiteral("") : errorDescription}};
    if (exitStatus >= 0)
        info.insert(KVExitStatusKey, exitStatus);
    return KVError(QString(), -1, info);
}

// Only a folder that the user's rights cannot write, but root's can: not one on a read-only file
// system, where a password would be asked for in vain.
bool needsAdministratorRights(const KVError &error)
{
    return error.domain() == KVCocoaErrorDomain && error.code() == KVFileWriteNoPermissionError &&
           error.userInfo().value(KVErrnoKey).toInt() != EROFS;
}

} // namespace

std::optional<QStringList> KVUpdateHelper::unzip(const QString &archivePath, KVError *error,
                                                 const std::optional<KVArchiveCheck> &expectedBundle)
{
    const QString folder = KVLeftovers::newUnpackingFolder();
    std::error_code code;
    fs::create_directories(fs::path(QFile::encodeName(folder).toStdString()), code);
    if (code) {
        setError(error, KVError::fromErrno(code.value(), folder));
        return std::nullopt;
    }
    // A failed unpacking yields nothing at all: half an application must never be deployed.
    KVResult<QStringList> items = unpackCheckedArchive(archivePath, folder, expectedBundle);
    if (!items) {
        KVLogError("%s: failed to unzip %@ with error %@", __func__, archivePath, items.error());
        (void)KVFileOperations::removeItem(folder);
        setError(error, items.error());
        return std::nullopt;
    }
    // Nothing to deploy from it: the folder goes now, as it would after a deployment.
    if (items->isEmpty())
        (void)KVFileOperations::removeItem(folder);
    return std::move(items).value();
}

bool KVUpdateHelper::deploy(const QStringList &items, const QString &destination, KVError *error)
{
    if (!KVFileOperations::itemExists(destination)) {
        std::error_code code;
        fs::create_directories(fs::path(QFile::encodeName(destination).toStdString()), code);
        if (code) {
            const KVError createError = KVError::fromErrno(code.value(), destination);
            KVLogError("Failed to create directory at path:%@ with error:%@", destination, createError);
            setError(error, createError);
            return true;
        }
    }
    // Each item replaces the destination itself, so of several items the last one stays.
    for (const QString &item : items) {
        if (const KVResult<> replaced = KVFileOperations::replaceItem(destination, item); !replaced) {
            KVLogError("Failed to replaceItemAtPath:%@ withItemAtPath:%@ with error:%@", destination, item,
                       replaced.error());
            setError(error, replaced.error());
            return true;
        }
    }
    return true;
}

void KVUpdateHelper::deployApp(const QStringList &items, const QString &destination, KVError *error)
{
    KVLogInfo("%@ will deploy app to %@", kClassName, destination);
    KVError deployError;
    deploy(items, destination, &deployError);
    if (deployError) {
        KVLogError("%@ failed to do normal deployment, error %@", kClassName, deployError);
        if (needsAdministratorRights(deployError)) {
            KVLogInfo("%@ will deploy app to %@ with privilege", kClassName, destination);
            deployError = deployAppWithPrivilege(items, destination).error();
        }
    }
    if (deployError) {
        setError(error, deployError);
        KVLogError("%@ failed to deploy app to %@, error %@.", kClassName, destination, deployError);
        return;
    }
    KVLogInfo("%@ did deploy app to %@.", kClassName, destination);
    recordInstallerVendor();
}

bool KVUpdateHelper::deployInstaller(const QString &newBundle, const QString &runningBundle, KVError *error)
{
    KVLogInfo("deployInstaller from %@ to path:%@", newBundle, runningBundle);
    // The new bundle first moves beside the running one, onto the volume of its final place.
    const QFileInfo running(runningBundle);
    const QString temporaryPath =
        running.absolutePath() + QStringLiteral("/.%1_%2").arg(KVUUIDString(), running.fileName());

    KVError outcome;
    if (KVFileOperations::itemExists(temporaryPath)) {
        outcome = KVFileOperations::removeItem(temporaryPath).error();
        if (outcome)
            KVLogError("Failed to remove temp item at path:%@ with error:%@", temporaryPath, outcome);
    }
    if (!outcome)
        outcome = KVFileOperations::moveItem(newBundle, temporaryPath).error();
    if (outcome) {
        KVLogError("Failed to move item at path:%@ to path:%@ with error:%@", newBundle, temporaryPath, outcome);
        setError(error, outcome);
        return true;
    }

    // One step swaps the two, so the installer's place is never empty; the old bundle, now at the
    // temporary path, waits beside the new one until the relaunched installer confirms that it runs.
    outcome = KVFileOperations::exchangeItems(temporaryPath, runningBundle).error();
    if (outcome) {
        KVLogError("Failed to replaceItemAtPath:%@ withItemAtPath:%@ with error:%@", runningBundle, temporaryPath,
                   outcome);
    } else {
        const QString previous = KVInstallerRelaunch::previousBundlePath(runningBundle);
        (void)KVFileOperations::removeItem(previous);
        if (const KVResult<> kept = KVFileOperations::moveItem(temporaryPath, previous); !kept)
            KVLogError("Failed to keep the previous installer at %@ with error:%@", previous, kept.error());
    }

    if (KVFileOperations::itemExists(temporaryPath)) {
        if (const KVResult<> removed = KVFileOperations::removeItem(temporaryPath); !removed)
            outcome = removed.error();
        if (outcome)
            KVLogError("Failed to remove item at path:%@ with error:%@", runningBundle, outcome);
    } else {
        KVLogInfo("temp path is not existed!");
    }
    setError(error, outcome);
    return true;
}
