#pragma once

#include <QMetaType>
#include <QString>
#include <QVariantMap>

// Well-known error domains and user-info keys. The engine's own domain and codes are the ones
// callers test; the others mirror the platform domains that errors are reported in.
inline const QString KVUpdateHelperErrorDomain = QStringLiteral("KVUpdateHelperErrorDomain");
inline const QString KVURLErrorDomain = QStringLiteral("NSURLErrorDomain");
inline const QString KVCocoaErrorDomain = QStringLiteral("NSCocoaErrorDomain");
inline const QString KVPOSIXErrorDomain = QStringLiteral("NSPOSIXErrorDomain");

inline const QString KVLocalizedDescriptionKey = QStringLiteral("NSLocalizedDescription");
inline const QString KVLocalizedFailureReasonErrorKey = QStringLiteral("NSLocalizedFailureReason");
inline const QString KVFilePathErrorKey = QStringLiteral("NSFilePath");
// The causes an error carries beside its own code, for the user's text and for the log: the error
// it stands for (a KVError), the errno of a failed system call, the HTTP status of a server's
// answer, the exit status of a child process, the bytes a full disk lacked, and the address a
// refused redirect led to.
inline const QString KVUnderlyingErrorKey = QStringLiteral("NSUnderlyingError");
inline const QString KVErrnoKey = QStringLiteral("errno");
inline const QString KVHTTPStatusKey = QStringLiteral("HTTPStatus");
inline const QString KVExitStatusKey = QStringLiteral("exitStatus");
inline const QString KVRequiredBytesKey = QStringLiteral("requiredBytes");
inline const QString KVFailingURLStringKey = QStringLiteral("NSErrorFailingURLStringKey");

// Codes of the Cocoa domain that file operations report with.
enum KVCocoaErrorCode : qint64 {
    KVFileNoSuchFileError = 4,
    KVFileReadUnknownError = 256,
    KVFileReadNoPermissionError = 257,
    KVFileReadCorruptFileError = 259,
    KVFileWriteUnknownError = 512,
    KVFileWriteNoPermissionError = 513,
    KVFileWriteOutOfSpaceError = 640,
};

// Codes of the URL domain that transfers report with. The connection error is the engine's own
// choice: it shares its number with the unavailable manifest, so a caller that looks only at the
// code tells a failure to reach the server either way.
enum KVURLErrorCode : qint64 {
    KVURLErrorUnknown = -1,
    KVURLErrorConnectionFailed = 2,
    KVURLErrorTimedOut = -1001,
    KVURLErrorCannotFindHost = -1003,
    KVURLErrorCannotConnectToHost = -1004,
    KVURLErrorNetworkConnectionLost = -1005, // the connection ended before the whole body had arrived
    KVURLErrorNotConnectedToInternet = -1009,
    KVURLErrorBadServerResponse = -1011,          // the server answered, but not with success
    KVURLErrorUserAuthenticationRequired = -1013, // a proxy wants credentials that were not given or not accepted
    KVURLErrorCannotDecodeContentData = -1016,    // the body's content encoding could not be undone
    KVURLErrorInsecureRedirect = -1022,           // a secure request was redirected to plain HTTP, and not followed
    KVURLErrorDataLengthExceedsMaximum = -1103,   // the body went on beyond the length it may have
    KVURLErrorSecureConnectionFailed = -1200,
};

// Codes of the engine's own domain.
enum KVUpdateHelperErrorCode : qint64 {
    KVUpdateHelperErrorMD5Mismatch = 1,
    KVUpdateHelperErrorManifestUnavailable = 2,
    KVUpdateHelperErrorNothingInstalled = 3,      // no application installed, and none offered
    KVUpdateHelperErrorLaunchFailed = 4,          // the application could not be started
    KVUpdateHelperErrorInstallScriptUnusable = 5, // the bundle's install script is missing or not executable
    KVUpdateHelperErrorInvalidArchive = 6,        // a verified archive that must not be unpacked or deployed
    KVUpdateHelperErrorManifestUnverified = 7,    // the manifest's signature, serial or expiry is not good
    KVUpdateHelperErrorSHA256Mismatch = 8,        // a download's SHA-256 is not the one its section names
};

// An error value: domain, code and user info, or nothing at all (the null error means success).
// Every fallible operation of the engine reports through one of these instead of throwing.
class KVError
{
public:
    KVError() = default;
    KVError(QString domain, qint64 code, QVariantMap userInfo = {});

    // A file-system error in the Cocoa domain built from errno, carrying the path and strerror text.
    [[nodiscard]] static KVError fromErrno(int errnoValue, const QString &path);

    bool isNull() const { return m_domain.isNull(); }
    explicit operator bool() const { return !isNull(); }

    const QString &domain() const { return m_domain; }
    qint64 code() const { return m_code; }
    const QVariantMap &userInfo() const { return m_userInfo; }

    // The user-info description if present, else the platform's generic sentence.
    QString localizedDescription() const;
    QString localizedFailureReason() const;
    // The error this one stands for (KVUnderlyingErrorKey), or the null error.
    KVError underlyingError() const;

    // "Error Domain=D Code=N "description" UserInfo={...}", the form log lines show.
    QString description() const;

    bool operator==(const KVError &other) const = default;

private:
    QString m_domain;
    qint64 m_code = 0;
    QVariantMap m_userInfo;
};

Q_DECLARE_METATYPE(KVError)
