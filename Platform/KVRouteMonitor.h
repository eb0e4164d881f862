#pragma once

#include "Platform/KVReachabilitySource.h"

class QSocketNotifier;

// Reachability without a network manager: the internet counts as reachable while the kernel has a
// usable default route, and the kernel's route, address and link announcements (netlink) say when
// to look again.
class KVRouteMonitor : public KVReachabilitySource
{
    Q_OBJECT
public:
    // Null, after logging why, when the kernel's announcements cannot be subscribed to.
    [[nodiscard]] static std::unique_ptr<KVRouteMonitor> start();
    ~KVRouteMonitor() override;

    [[nodiscard]] KVReachabilityStatus status() const override;
    [[nodiscard]] QString name() const override;

private:
    explicit KVRouteMonitor(int netlinkSocket);
    void drainAnnouncements();

    int m_socket;
    QSocketNotifier *m_notifier;
};
