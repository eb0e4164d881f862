#pragma once

#include "App/Model/KVINISection.h"
#include "Core/Extensions/KVError.h"

#include <QPointF>
#include <QSizeF>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <optional>

// Kinds of manifest section, derived from the section's name.
enum KVUpdateSectionType : long {
    KVUpdateSectionTypeUnknown = 0,
    KVUpdateSectionTypeInstaller = 1,
    KVUpdateSectionTypeInstallerRelease = 2,
    KVUpdateSectionTypeApplication = 3,
    KVUpdateSectionTypeApplicationRelease = 4,
    KVUpdateSectionTypeModule = 5,
    KVUpdateSectionTypeModuleRelease = 6,
    KVUpdateSectionTypeDeviceXML = 7,
    KVUpdateSectionTypeDeviceIcon = 8,
    KVUpdateSectionTypeSmartCards = 9,
};

// Notification names of the engine. Only the plug-in notification is posted; the others are
// declared for observers.
inline const QString KVPlugInInstalledNotification = QStringLiteral("KVPlugInInstalledNotification");
inline const QString KVUpdateFailedNotification = QStringLiteral("KVUpdateFailedNotification");
inline const QString KVUpdateSucceedNotification = QStringLiteral("KVUpdateSucceedNotification");
inline const QString KVPlugInAddedNotification = QStringLiteral("KVPlugInAddedNotification");
inline const QString KVPlugInUpdatedNotification = QStringLiteral("KVPlugInUpdatedNotification");
inline const QString KVUpdateHelperDidCheckUpdateInfo = QStringLiteral("KVUpdateHelperDidCheckUpdateInfo");

// Bundle identifiers of the installer itself and of the companion application it installs.
inline const QString KVInstallerBundleIdentifier = QStringLiteral("com.tovik.nestora.installer");
inline const QString KVCompanionBundleIdentifier = QStringLiteral("com.keldran.nestora");

// A progress report of an update run: the fraction done and, unless absent, a dictionary with
// "message" (text to show) or, in the last report of a failed run, "error" (a KVError).
using KVProgressHandler = std::function<void(float fraction, const std::optional<QVariantMap> &info)>;
// The dictionary of a progress report that shows the text of a string-table key.
QVariantMap KVProgressMessage(const QString &key);
// The end of an update run: the result dictionary and the run's error (null on success).
using KVUpdateCompletionHandler = std::function<void(const QVariantMap &result, const KVError &error)>;

// What a download must turn out to be, where the manifest says: its length in bytes and its
// SHA-256 and MD5 digests in lower-case hex. Made from a bare length where only that is known.
// The MD5 is checked by the caller; here it only tells whether a kept part is still the same file.
struct KVExpectedDownload
{
    KVExpectedDownload(std::optional<qint64> size = std::nullopt, QByteArray sha256 = {}, QByteArray md5 = {})
        : size(size)
        , sha256(std::move(sha256))
        , md5(std::move(md5))
    {}
    std::optional<qint64> size;
    QByteArray sha256;
    QByteArray md5;
};

// Transfer progress of one download, in bytes.
struct KVTransferProgress
{
    qint64 completedUnitCount = 0;
    qint64 totalUnitCount = 0;
    bool retrying = false; // the connection failed, and the transfer is about to be tried again
};

// The string-table key of the text a download's progress shows: downloading, or trying again.
QString KVDownloadingMessageKey(const KVTransferProgress &progress);

// What the engine needs to know of, and ask of, the application around it. The window and the
// screen are read in the platform's bottom-left coordinates; the installer supplies these from its
// window, tests supply their own. Every function is called on the main thread.
struct KVUpdateHost
{
    std::function<QPointF()> windowOrigin; // the installer window's frame origin; (0, 0) without one
    std::function<QSizeF()> windowSize;    // the installer window's frame size; empty without one
    std::function<QSizeF()> screenSize;    // the main screen's frame size
    std::function<double()> menuBarHeight; // height of the main menu bar; 0 where there is none
    std::function<void()> terminate;       // asks the application to end
    // Given to the relaunched installer after its window origin, so that it starts in the mode of
    // this one (the headless mode passes its own flags). Read on the engine's queue. Defaulted, so
    // that hosts naming only the functions above need not name it.
    QStringList relaunchArguments = {};
    // Told instead of terminate() when the application cannot be started after all (nothing is
    // installed, or the bundle has no program to run). Without it the engine asks to end as usual.
    std::function<void(const KVError &)> launchDidFail = {};
};
