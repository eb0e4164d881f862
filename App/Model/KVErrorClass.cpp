#include "App/Model/KVErrorClass.h"

#include "Core/Extensions/KVLocalizedString.h"
#include "Core/Logging/KVFormat.h"

#include <QFileInfo>
#include <QLocale>

#include <cerrno>

namespace {

struct ErrorClassRow
{
    KVErrorClass errorClass;
    const char *textKey;
    int exitStatus;
};

// Every class of failure: its text in the string tables, and the exit status of the headless mode.
// The texts may name {product}, {address} (the vendor's download page), {status} (HTTP status),
// {folder}, {size} (the space a folder lacks), {script}, {url} (where a refused redirect led) and {cause}
// (the underlying error's text).
constexpr ErrorClassRow kErrorClasses[] = {
    {KVErrorClass::Failed, "IDS_WSPDH", 1},
    {KVErrorClass::ServerUnreachable, "IDS_ERROR_SERVER_UNREACHABLE", 3},
    {KVErrorClass::UpdateURLNotFound, "IDS_ERROR_UPDATE_URL_NOT_FOUND", 5},
    {KVErrorClass::ServerError, "IDS_ERROR_SERVER_ERROR", 6},
    {KVErrorClass::InvalidManifest, "IDS_ERROR_INVALID_MANIFEST", 7},
    {KVErrorClass::DamagedDownload, "IDS_ERROR_DAMAGED_DOWNLOAD", 8},
    {KVErrorClass::DiskFull, "IDS_ERROR_DISK_FULL", 9},
    {KVErrorClass::ReadOnlyFolder, "IDS_ERROR_READ_ONLY_FOLDER", 10},
    {KVErrorClass::PromptDismissed, "IDS_ERROR_PROMPT_DISMISSED", 11},
    {KVErrorClass::ElevatorUnavailable, "IDS_ERROR_ELEVATOR_UNAVAILABLE", 12},
    {KVErrorClass::InstallerDamaged, "IDS_ERROR_INSTALLER_DAMAGED", 13},
    {KVErrorClass::UnpackFailed, "IDS_ERROR_UNPACK_FAILED", 14},
    {KVErrorClass::LaunchFailed, "IDS_ERROR_LAUNCH_FAILED", 15},
    {KVErrorClass::NothingInstalled, "IDS_ERROR_NOTHING_INSTALLED", 16},
    {KVErrorClass::InvalidArchive, "IDS_ERROR_INVALID_ARCHIVE", 17},
    {KVErrorClass::UnverifiedManifest, "IDS_ERROR_UNVERIFIED_MANIFEST", 18},
    {KVErrorClass::InsecureRedirect, "IDS_ERROR_INSECURE_REDIRECT", 19},
    {KVErrorClass::ProxyRefused, "IDS_ERROR_PROXY_REFUSED", 20},
};

const ErrorClassRow &rowOf(KVErrorClass errorClass)
{
    for (const ErrorClassRow &row : kErrorClasses)
        if (row.errorClass == errorClass)
            return row;
    return kErrorClasses[0];
}

// The innermost error of the chain: the one that says what really happened.
KVError rootCauseOf(const KVError &error)
{
    const KVError underlying = error.underlyingError();
    return underlying ? rootCauseOf(underlying) : error;
}

// The first value of the key along the chain, outermost first.
QVariant detailOf(const KVError &error, const QString &key)
{
    for (KVError level = error; level; level = level.underlyingError())
        if (level.userInfo().contains(key))
            return level.userInfo().value(key);
    return {};
}

// The folder a file error concerns: the path itself when it is a folder, else the folder it lies in.
QString folderOf(const KVError &error)
{
    QString path = detailOf(error, KVFilePathErrorKey).toString();
    if (path.isEmpty())
        return path;
    const QFileInfo info(path);
    return info.isDir() ? info.absoluteFilePath() : info.absolutePath();
}

KVErrorClass classOfEngineError(const KVError &error)
{
    switch (error.code()) {
    case KVUpdateHelperErrorMD5Mismatch:
    case KVUpdateHelperErrorSHA256Mismatch:
        return KVErrorClass::DamagedDownload;
    case KVUpdateHelperErrorManifestUnverified:
        return KVErrorClass::UnverifiedManifest;
    case KVUpdateHelperErrorManifestUnavailable:
        return error.localizedFailureReason() == QLatin1String("update URL not found") ? KVErrorClass::UpdateURLNotFound
                                                                                       : KVErrorClass::InvalidManifest;
    case KVUpdateHelperErrorNothingInstalled:
        return KVErrorClass::NothingInstalled;
    case KVUpdateHelperErrorLaunchFailed:
        return KVErrorClass::LaunchFailed;
    case KVUpdateHelperErrorInstallScriptUnusable:
        return KVErrorClass::InstallerDamaged;
    case KVUpdateHelperErrorInvalidArchive:
        return KVErrorClass::InvalidArchive;
    default:
        return KVErrorClass::Failed;
    }
}

KVErrorClass classOfURLError(const KVError &error)
{
    switch (error.code()) {
    case KVURLErrorNetworkConnectionLost:
        return KVErrorClass::DamagedDownload;
    case KVURLErrorBadServerResponse:
        return KVErrorClass::ServerError;
    case KVURLErrorInsecureRedirect:
        return KVErrorClass::InsecureRedirect;
    case KVURLErrorUserAuthenticationRequired:
        return KVErrorClass::ProxyRefused;
    default:
        return KVErrorClass::ServerUnreachable;
    }
}

// The privileged deployment's error: the elevator's exit status tells a dismissed prompt (126)
// from an elevator that refused or found no authentication agent (127); no status at all means
// it could not be started.
KVErrorClass classOfPrivilegedError(const KVError &error)
{
    const QVariant status = error.userInfo().value(KVExitStatusKey);
    if (!status.isValid() || status.toInt() == 127)
        return KVErrorClass::ElevatorUnavailable;
    return status.toInt() == 126 ? KVErrorClass::PromptDismissed : KVErrorClass::Failed;
}

} // namespace

KVErrorClass KVErrorClassOf(const KVError &error)
{
    const KVError cause = rootCauseOf(error);
    if (cause.userInfo().contains(KVHTTPStatusKey))
        return KVErrorClass::ServerError;
    if (cause.userInfo().value(KVErrnoKey).toInt() == EROFS)
        return KVErrorClass::ReadOnlyFolder;
    if (cause.domain() == KVUpdateHelperErrorDomain)
        return classOfEngineError(cause);
    if (cause.domain() == KVURLErrorDomain)
        return classOfURLError(cause);
    if (cause.domain() == KVCocoaErrorDomain && cause.code() == KVFileWriteOutOfSpaceError)
        return KVErrorClass::DiskFull;
    if (cause.domain() == KVCocoaErrorDomain && cause.code() == KVFileReadCorruptFileError)
        return KVErrorClass::UnpackFailed;
    if (cause.domain().isEmpty() && cause.code() == -1)
        return classOfPrivilegedError(cause);
    return KVErrorClass::Failed;
}

QString KVErrorText(const KVError &error)
{
    const KVErrorClass errorClass = KVErrorClassOf(error);
    const QString text = KVLocalizedString(QString::fromLatin1(rowOf(errorClass).textKey));
    if (errorClass == KVErrorClass::Failed) // the one text with positional placeholders
        return KVFormat(text, KVProductName(), KVVendorDownloadAddress());

    const KVError cause = rootCauseOf(error);
    const qint64 requiredBytes = detailOf(error, KVRequiredBytesKey).toLongLong();
    const std::pair<QString, QString> details[] = {
        {QStringLiteral("{product}"), KVProductName()},
        {QStringLiteral("{address}"), KVVendorDownloadAddress()},
        {QStringLiteral("{status}"), detailOf(error, KVHTTPStatusKey).toString()},
        {QStringLiteral("{folder}"), folderOf(error)},
        {QStringLiteral("{size}"), requiredBytes > 0 ? QLocale().formattedDataSize(requiredBytes) : QString()},
        {QStringLiteral("{script}"), detailOf(error, KVFilePathErrorKey).toString()},
        {QStringLiteral("{url}"), detailOf(error, KVFailingURLStringKey).toString()},
        {QStringLiteral("{cause}"), cause.localizedDescription()},
    };
    QString filled = text;
    for (const auto &[placeholder, value] : details)
        filled.replace(placeholder, value);
    return filled;
}

int KVErrorExitStatus(KVErrorClass errorClass)
{
    return rowOf(errorClass).exitStatus;
}

QString KVProductName()
{
    return QStringLiteral("Nestora");
}

QString KVVendorDownloadAddress()
{
    return QStringLiteral("https://" NESTORA_VENDOR_SITE "/");
}
