#pragma once

#include "App/Model/KVArchiveCheck.h"
#include "App/Model/KVHTTPSession.h"
#include "App/Model/KVINI.h"
#include "App/Model/KVUpdateEngine.h"
#include "App/Model/KVUpdateTypes.h"
#include "Core/Extensions/KVCancellation.h"
#include "Core/Extensions/KVDispatch.h"

#include <QUrl>

#include <chrono>
#include <memory>
#include <optional>

// The update engine: knows where the manifest lives, holds the parsed manifest and the update
// history, and runs checks and update runs one at a time on its private serial queue.
//
// Threads: the checks and runs are submitted to queue() and return at once; their handlers are
// called on the main thread. The synchronous operations (fetch, decisions, unpacking, deployment)
// are called on queue() only; manifest() and history() are touched only there.
//
// The implementation is split by concern: set-up and manifest fetch here; section kinds and paths,
// checks, transfers, deployment, runs and launching in KVUpdateHelper+*.cpp beside it.
class KVUpdateHelper : public KVUpdateEngine
{
public:
    // The name the engine's log lines begin with, its own and those of the runs it starts.
    static inline const QString kClassName = QStringLiteral("KVUpdateHelper");

    // ---- Set-up and manifest fetch ----------------------------------------------------------

    // The one engine of the process, created on first use with the address from
    // testServerUpdateURL() or, failing that, the bundle's "AppUpdateURL". Thread: any.
    static KVUpdateHelper &sharedInstance();

    // An empty URL takes "AppUpdateURL" from the main bundle's Info.plist.
    explicit KVUpdateHelper(const QUrl &updateURL);
    ~KVUpdateHelper() override;
    KVUpdateHelper(const KVUpdateHelper &) = delete;
    KVUpdateHelper &operator=(const KVUpdateHelper &) = delete;

    // The "ApplicationUpdate" address of $HOME/Downloads/TestServerForVexa.txt, or an empty URL.
    static QUrl testServerUpdateURL();

    const QUrl &updateURL() const { return m_updateURL; }
    KVSerialQueue &queue() { return *m_queue; }
    const QString &archive() const { return m_archive; }
    // Queue only.
    const std::shared_ptr<KVINI> &INI() const { return m_INI; }
    QVariantMap &history() { return m_history; }

    bool updating() const { return m_updating; }
    void setUpdating(bool updating);
    bool installUpdate() const { return m_installUpdate; }
    void setInstallUpdate(bool installUpdate) { m_installUpdate = installUpdate; }

    // The application around the engine. Set once at start-up, before any check runs.
    void setHost(KVUpdateHost host) { m_host = std::move(host); }
    const KVUpdateHost &host() const { return m_host; }

    // Fetches the manifest unless one with sections is held (or force). Always returns true:
    // the outcome is in *error, which the caller must supply. Queue only.
    bool downloadUpdateINI(bool force, KVError *error);
    // A synchronous GET without cache, with the given headers besides the session's own; the body
    // of a 200 answer, else null with *error set (any other status in KVHTTPStatusKey). Where
    // asked, *validators receives the answer's ETag and Last-Modified.
    static QByteArray downloadURL(const QUrl &url, KVError *error, const KVHTTPSession::RawHeaders &headers = {},
                                  KVHTTPValidators *validators = nullptr);
    // How long a transfer may go without data before it fails (60 s; tests shorten it).
    static std::chrono::milliseconds networkTimeout();
    static void setNetworkTimeout(std::chrono::milliseconds timeout);

    // Removes from downloadFolder() what the manifest held no longer names. Queue only.
    void pruneDownloads() const;

    // Every folder where items are deployed, where a killed run may have left staging copies.
    QStringList deploymentFolders() const;

    // Stops the work under way for good, as the installer quits: transfers are aborted, child
    // processes ended, the remaining steps skipped, no handler called and nothing launched. The
    // queue's steps hop to the main thread, so this serves it until the queue is idle. Should the
    // queue still be busy after a grace of 1.5 s, nothing could ever join it: the process then
    // ends here, with the exit status. Thread: main, after its loop has ended.
    void stopWorkForExit(int exitStatus);

    // "major.minor" of the running system.
    static QString OSVersion();

    // ---- Section kinds, installed versions and paths (KVUpdateHelper+Sections.cpp) ----------

    // From the name alone, so that the publishing tool reads a manifest exactly as the engine does.
    static KVUpdateSectionType typeOfSection(const KVINISection &section);
    QString currentVersion() const;
    QString currentVersionOfDevicesXML() const;
    QString currentVersionOfDeviceIcons() const;
    QString currentVersionOfSmartCard() const;
    QString currentVersionOfPlugin(const KVINISection &section) const;
    QString pluginDirectory() const;
    QString downloadPathForSection(const KVINISection &section) const;
    // Where the downloads are kept until they are installed: $XDG_CACHE_HOME/Nestora/Downloads, so
    // that an interrupted one survives a reboot and continues where it broke off.
    static QString downloadFolder();
    QString deploymentPathForSection(const KVINISection &section) const;
    QString featureNameForPlugin(const QString &plugin) const;
    bool isAppLaunchedByInstaller() const;

    // ---- Update checks (KVUpdateHelper+Checks.cpp) -------------------------------------------

    // Handler on the main thread, asynchronously: the installer release due, or null.
    void checkInstallerUpdateWithcompletionHandler(std::function<void(KVINISectionPtr, KVError)> handler) override;
    // Handler on the main thread, synchronously; then, with nothing due and no error, launchApp().
    void checkUpdateWithcompletionHandler(std::function<void(QList<KVINISectionPtr>, KVError)> handler) override;
    // Queue only.
    KVINISectionPtr checkInstallerUpdate();
    KVINISectionPtr checkAppUpdate();
    QList<KVINISectionPtr> checkPlugInsUpdate(const QStringList &plugInNames);
    void updatePlungInsWithFeatureNames(const QStringList &featureNames);
    QList<KVINISectionPtr> checkDeviceXMLAndIconUpdate();
    KVINISectionPtr checkSmartCardsUpdate();

    // ---- Download and digest (KVUpdateHelper+Transfer.cpp) -----------------------------------

    // Streams the URL into the destination (a new upper-case UUID in the temporary folder when
    // empty). Both callbacks run on the main thread, asynchronously. The file must have the
    // expected positive size and SHA-256 where given (see KVDownloadTask). Thread: any.
    static void downloadURL(const QString &url, const QString &destination,
                            std::function<void(const KVTransferProgress &)> progress,
                            std::function<void(const QString &path, const KVError &error)> completionHandler,
                            const KVExpectedDownload &expected = {});
    // The "Bytes" of a section when it states a positive size, and its "SHA256" when it names one.
    static KVExpectedDownload expectedDownloadOfSection(const KVINISection &section);
    // Reads "LiveUpdateMD5VerificationDisabled" afresh on every call.
    bool shouldVerifyMD5() const;
    // True when the file's digest equals the section's "MD5" exactly (case-sensitive).
    bool fileMatchesDigestOfSection(const QString &path, const KVINISection &section) const;

    // ---- Unpacking and deployment (KVUpdateHelper+Deployment.cpp) ----------------------------

    // These block and report through *error (callers test the error, not the result); every
    // replace is atomic, so the destination holds the complete old item or the complete new one.
    // Queue only.
    //
    // The archive's top-level items in a fresh temporary folder, without "__MACOSX", or nothing:
    // an archive that fails a check of KVArchiveCheck (the bundle check too when one is given), or
    // that the unzip tool reports as failed, yields no items at all and leaves no folder.
    [[nodiscard]] static std::optional<QStringList> unzip(const QString &archivePath, KVError *error,
                                                          const std::optional<KVArchiveCheck> &expectedBundle = {});
    // Each item in turn replaces the destination (created as a folder when missing). Always true.
    static bool deploy(const QStringList &items, const QString &destination, KVError *error);
    // deploy(), falling back to "Install.sh" as root when the folder is not writable (error 513).
    static void deployApp(const QStringList &items, const QString &destination, KVError *error);
    // Swaps the new installer bundle in over the running one by way of a hidden sibling, keeping the
    // old one at KVInstallerRelaunch::previousBundlePath() until the relaunched one confirms. Always true.
    static bool deployInstaller(const QString &newBundle, const QString &runningBundle, KVError *error);

    // ---- Update runs (KVUpdateHelper+Run.cpp) ------------------------------------------------

    // A KVSectionUpdateRun on the queue.
    void updateWithSections(const QList<KVINISectionPtr> &sections, KVProgressHandler progressHandler,
                            KVUpdateCompletionHandler completionHandler) override;
    // A KVInstallerUpdateRun on the queue.
    void updateInstaller(const KVINISectionPtr &section, KVProgressHandler progressHandler,
                         KVUpdateCompletionHandler completionHandler) override;

    // ---- Launching (KVUpdateHelper+Launch.cpp) -----------------------------------------------

    // Starts the companion application with the window origin and the installer's dates, then asks
    // the host to end the installer. Queue only.
    void launchApp();
    // SIGKILLs every process of the bundle; true when the last signal was delivered. Thread: any.
    bool terminateWithBundleId(const QString &bundleIdentifier);
    // Starts the bundle's program from a detached, retrying bash script after the delay (seconds)
    // and returns at once; the program outlives this process. Thread: any.
    static void launchWithBundlePath(const QString &bundlePath, const QStringList &arguments, float after);

private:
    QUrl m_updateURL;
    std::shared_ptr<KVINI> m_INI;
    std::unique_ptr<KVSerialQueue> m_queue;
    QVariantMap m_history;
    QString m_archive;
    bool m_updating = false;
    bool m_installUpdate = false;
    KVUpdateHost m_host;
};
