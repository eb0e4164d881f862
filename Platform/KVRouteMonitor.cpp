#include "Platform/KVRouteMonitor.h"

#include "Core/Logging/KVLog.h"

#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/route.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

const QString kClassName = QStringLiteral("KVRouteMonitor");

// Routes leave with their link or address without an announcement of their own, so those count too.
constexpr unsigned kAnnouncementGroups =
    RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE | RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR;

// Whether one of the table's rows is a default route that is up and not a rejecting one (IPv6
// keeps such a row on "lo" on many machines without any network). The columns are the kernel's:
// destination and prefix (or mask) and flags, at the given positions, all in hexadecimal.
bool tableHasDefaultRoute(const QString &path, int destinationColumn, int prefixColumn, int flagsColumn,
                          bool skipHeader)
{
    QFile table(path);
    if (!table.open(QIODevice::ReadOnly | QIODevice::Text))
        return false;
    if (skipHeader)
        (void)table.readLine();
    for (QByteArray line = table.readLine(); !line.isEmpty(); line = table.readLine()) {
        const QList<QByteArray> columns = line.simplified().split(' ');
        if (columns.size() <= std::max({destinationColumn, prefixColumn, flagsColumn}))
            continue;
        const QByteArray &destination = columns[destinationColumn];
        const bool everywhere =
            destination.count('0') == destination.size() && columns[prefixColumn].toUInt(nullptr, 16) == 0;
        const uint flags = columns[flagsColumn].toUInt(nullptr, 16);
        if (everywhere && (flags & RTF_UP) && !(flags & RTF_REJECT))
            return true;
    }
    return false;
}

} // namespace

std::unique_ptr<KVRouteMonitor> KVRouteMonitor::start()
{
    const int netlinkSocket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (netlinkSocket < 0) {
        KVLogWarning("%@: cannot open a netlink socket: %s", kClassName, std::strerror(errno));
        return nullptr;
    }
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kAnnouncementGroups;
    if (::bind(netlinkSocket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        KVLogWarning("%@: cannot subscribe to route changes: %s", kClassName, std::strerror(errno));
        ::close(netlinkSocket);
        return nullptr;
    }
    return std::unique_ptr<KVRouteMonitor>(new KVRouteMonitor(netlinkSocket));
}

KVRouteMonitor::KVRouteMonitor(int netlinkSocket)
    : m_socket(netlinkSocket)
    , m_notifier(new QSocketNotifier(netlinkSocket, QSocketNotifier::Read, this))
{
    connect(m_notifier, &QSocketNotifier::activated, this, &KVRouteMonitor::drainAnnouncements);
}

KVRouteMonitor::~KVRouteMonitor()
{
    delete m_notifier;
    ::close(m_socket);
}

QString KVRouteMonitor::name() const
{
    return QStringLiteral("routing table");
}

KVReachabilityStatus KVRouteMonitor::status() const
{
    const bool reachable = tableHasDefaultRoute(QStringLiteral("/proc/net/route"), 1, 7, 3, true) ||
                           tableHasDefaultRoute(QStringLiteral("/proc/net/ipv6_route"), 0, 1, 8, false);
    return reachable ? KVReachabilityStatusReachableViaWiFi : KVReachabilityStatusNotReachable;
}

// The announcements themselves are not read: one burst of them means "look at the table again".
void KVRouteMonitor::drainAnnouncements()
{
    char buffer[8192];
    while (::recv(m_socket, buffer, sizeof buffer, 0) > 0) {
    }
    Q_EMIT statusMayHaveChanged();
}
