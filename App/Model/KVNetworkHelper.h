#pragma once

#include "Platform/KVReachabilitySource.h"

#include <QObject>
#include <QString>

#include <memory>

inline const QString KVNetworkReachableNotification = QStringLiteral("KVNetworkReachableNotification");
inline const QString KVNetworkNotReachableNotification = QStringLiteral("KVNetworkNotReachableNotification");

// Watches general internet reachability for the life of the process and broadcasts each change as
// "KVNetworkReachableNotification" or "KVNetworkNotReachableNotification", so the installer can
// pause while offline and resume when the network returns. The first report follows the start;
// after it, only a change between reachable and not reachable is reported, once.
//
// Thread: main.
class KVNetworkHelper : public QObject
{
    Q_OBJECT
public:
    // The one monitor of the process, created on first use with the system's source.
    static KVNetworkHelper &sharedInstance();

    // Monitors the given source or, without one, reports the network as reachable once, so that the
    // installer still works where nothing can be watched. Observers added right after creation still
    // hear the first report.
    explicit KVNetworkHelper(std::unique_ptr<KVReachabilitySource> reachabilityManager, QObject *parent = nullptr);
    ~KVNetworkHelper() override;

    KVReachabilitySource *reachabilityManager() const { return m_reachabilityManager.get(); }
    // Whether the network can be reached now, as the next report would say; true with nothing to watch.
    [[nodiscard]] bool isReachable() const;

private:
    void startMonitor();
    void reportCurrentStatus();
    // Posts the notification for the status unless it was the last one posted; unknown counts as
    // not reachable.
    void reportStatus(KVReachabilityStatus status);
    static bool isReachableStatus(KVReachabilityStatus status);

    std::unique_ptr<KVReachabilitySource> m_reachabilityManager;
    QString m_lastNotification;
};
