#pragma once

#include <QNetworkInformation>
#include <QObject>
#include <QString>

inline const QString KVNetworkReachableNotification = QStringLiteral("KVNetworkReachableNotification");
inline const QString KVNetworkNotReachableNotification = QStringLiteral("KVNetworkNotReachableNotification");

// Watches general internet reachability for the life of the process and broadcasts every report
// as "KVNetworkReachableNotification" or "KVNetworkNotReachableNotification", so the installer
// can pause while offline and resume when the network returns.
class KVNetworkHelper : public QObject
{
    Q_OBJECT
public:
    // Reachability as reported to observers.
    enum Status : int {
        StatusUnknown = -1,
        StatusNotReachable = 0,
        StatusReachableViaWWAN = 1,
        StatusReachableViaWiFi = 2, // Wi-Fi or a wired link
    };

    // The one monitor of the process, created on first use with the system's back end. Thread: any;
    // its reports reach observers on the main thread, the first one right after creation.
    static KVNetworkHelper &sharedInstance();

    // Monitors the given reachability manager, or, without one, reports the network as reachable
    // once, so that the installer still works where no back end could be loaded. Thread: main.
    explicit KVNetworkHelper(QNetworkInformation *reachabilityManager, QObject *parent = nullptr);

    // Loads the platform's default back end or, where that fails (NetworkManager not running),
    // "glib". Null, after logging why, when neither loads. Thread: main.
    [[nodiscard]] static QNetworkInformation *loadReachabilityManager();

    QNetworkInformation *reachabilityManager() const { return m_reachabilityManager; }

    // Broadcasts one status report, as the back end's own reports are: 1 or 2 post the reachable
    // notification, 0 or -1 the not-reachable one, any other value nothing. Nothing is compared
    // with the previous report. Thread: any; observers run later on the main thread.
    void reportStatus(int status);

    // The status for a state of the back end (see the .cpp for how Qt's levels map).
    [[nodiscard]] static Status statusForReachability(QNetworkInformation::Reachability reachability,
                                                      QNetworkInformation::TransportMedium transportMedium);

private:
    void startMonitor();
    void reportCurrentStatus();

    QNetworkInformation *m_reachabilityManager = nullptr;
};
