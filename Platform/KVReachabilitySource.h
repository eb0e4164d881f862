#pragma once

#include <QNetworkInformation>
#include <QObject>

#include <memory>

// Reachability as the network monitor reports it.
enum KVReachabilityStatus : int {
    KVReachabilityStatusUnknown = -1,
    KVReachabilityStatusNotReachable = 0,
    KVReachabilityStatusReachableViaWWAN = 1,
    KVReachabilityStatusReachableViaWiFi = 2, // Wi-Fi or a wired link
};

// Where the installer learns whether the internet can be reached: the system's network manager
// where one runs, else the kernel's routing table. Tells the current status and signals whenever it
// may have changed; deciding whether it really did is the caller's job.
class KVReachabilitySource : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // The best source this machine offers; null, after logging why, when none can be watched.
    // Thread: main.
    [[nodiscard]] static std::unique_ptr<KVReachabilitySource> systemSource();

    [[nodiscard]] virtual KVReachabilityStatus status() const = 0;
    [[nodiscard]] virtual QString name() const = 0;

Q_SIGNALS:
    void statusMayHaveChanged();
};

// The status for what the system's network manager reports. A link-local network alone is not
// reachable; a site network is, because a routed network is up, which is all that host-independent
// reachability promises.
[[nodiscard]] KVReachabilityStatus KVReachabilityStatusFor(QNetworkInformation::Reachability reachability,
                                                           QNetworkInformation::TransportMedium medium);
