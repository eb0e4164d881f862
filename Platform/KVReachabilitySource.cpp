#include "Platform/KVReachabilitySource.h"

#include "Core/Logging/KVLog.h"
#include "Platform/KVRouteMonitor.h"

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

    KVReachabilityStatus status() const override
    {
        return KVReachabilityStatusFor(m_information->reachability(), m_information->transportMedium());
    }

private:
    QNetworkInformation *m_information;
};

} // namespace

KVReachabilityStatus KVReachabilityStatusFor(QNetworkInformation::Reachability reachability,
                                             QNetworkInformation::TransportMedium medium)
{
    switch (reachability) {
    case QNetworkInformation::Reachability::Unknown:
        return KVReachabilityStatusUnknown;
    case QNetworkInformation::Reachability::Disconnected:
    case QNetworkInformation::Reachability::Local:
        return KVReachabilityStatusNotReachable;
    case QNetworkInformation::Reachability::Site:
    case QNetworkInformation::Reachability::Online:
        break;
    }
    return medium == QNetworkInformation::TransportMedium::Cellular ? KVReachabilityStatusReachableViaWWAN
                                                                    : KVReachabilityStatusReachableViaWiFi;
}

// Qt's own fallback ("glib") follows a connectivity property that nothing changes on a machine
// without a network manager, so the routing table stands in there.
std::unique_ptr<KVReachabilitySource> KVReachabilitySource::systemSource()
{
    if (QNetworkInformation::loadBackendByName(QStringLiteral("networkmanager")))
        return std::make_unique<KVNetworkManagerSource>(QNetworkInformation::instance());
    KVLogInfo("%@: no network manager answers; watching the routing table", kClassName);
    return KVRouteMonitor::start();
}
