#include "Platform/KVReachabilitySource.h"

#include "Core/Logging/KVLog.h"
#include "Platform/KVRouteMonitor.h"

#include <QNetworkInformation>

namespace {

const QString kClassName = QStringLiteral("KVReachabilitySource");

// Reachability as the system's network manager sees it, through Qt's back end for it.
class KVNetworkManagerSource : public KVReachabilitySource
{
public:
    explicit KVNetworkManagerSource(QNetworkInformation *information)
        : m_information(information)
    {
        connect(information, &QNetworkInformation::reachabilityChanged, this,
                &KVReachabilitySource::statusMayHaveChanged);
        connect(information, &QNetworkInformation::transportMediumChanged, this,
                &KVReachabilitySource::statusMayHaveChanged);
    }

    QString name() const override { return m_information->backendName(); }

    // Local (a link-local network only) is not reachable; Site is, because a routed network is up,
    // which is all that host-independent reachability promises.
    KVReachabilityStatus status() const override
    {
        switch (m_information->reachability()) {
        case QNetworkInformation::Reachability::Unknown:
            return KVReachabilityStatusUnknown;
        case QNetworkInformation::Reachability::Disconnected:
        case QNetworkInformation::Reachability::Local:
            return KVReachabilityStatusNotReachable;
        case QNetworkInformation::Reachability::Site:
        case QNetworkInformation::Reachability::Online:
            break;
        }
        return m_information->transportMedium() == QNetworkInformation::TransportMedium::Cellular
                   ? KVReachabilityStatusReachableViaWWAN
                   : KVReachabilityStatusReachableViaWiFi;
    }

private:
    QNetworkInformation *m_information;
};

} // namespace

// Qt's own fallback ("glib") follows a connectivity property that nothing changes on a machine
// without a network manager, so the routing table stands in there.
std::unique_ptr<KVReachabilitySource> KVReachabilitySource::systemSource()
{
    if (QNetworkInformation::loadBackendByName(QStringLiteral("networkmanager")))
        return std::make_unique<KVNetworkManagerSource>(QNetworkInformation::instance());
    KVLogInfo("%@: no network manager answers; watching the routing table", kClassName);
    return KVRouteMonitor::start();
}
