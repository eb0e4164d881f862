#include "App/Model/KVNetworkHelper.h"

#include "Core/Extensions/KVDispatch.h"
#include "Core/Extensions/KVNotificationCenter.h"
#include "Core/Logging/KVLog.h"

namespace {
const QString className = QStringLiteral("KVNetworkHelper");
// Works on any Linux, with or without NetworkManager.
const QString fallbackBackend = QStringLiteral("glib");
} // namespace

KVNetworkHelper &KVNetworkHelper::sharedInstance()
{
    static KVNetworkHelper *instance = new KVNetworkHelper(loadReachabilityManager());
    return *instance;
}

KVNetworkHelper::KVNetworkHelper(QNetworkInformation *reachabilityManager, QObject *parent)
    : QObject(parent)
    , m_reachabilityManager(reachabilityManager)
{
    startMonitor();
}

QNetworkInformation *KVNetworkHelper::loadReachabilityManager()
{
    if (QNetworkInformation::loadDefaultBackend())
        return QNetworkInformation::instance();
    KVLogInfo("%@: the default network information back end did not load; trying %@", className, fallbackBackend);
    if (QNetworkInformation::loadBackendByName(fallbackBackend))
        return QNetworkInformation::instance();
    KVLogWarning("%@: no network information back end could be loaded, available back ends: %@", className,
                 QNetworkInformation::availableBackends());
    return nullptr;
}

void KVNetworkHelper::startMonitor()
{
    if (!m_reachabilityManager) {
        // Without a monitor the installer would wait for the network forever; let it try instead
        // and report a failed connection if the server cannot be reached.
        KVLogWarning("%@: reachability cannot be monitored without a network information back end; "
                     "treating the network as reachable",
                     className);
        reportStatus(StatusReachableViaWiFi);
        return;
    }
    KVLogInfo("%@: monitoring reachability with the %@ back end", className, m_reachabilityManager->backendName());
    connect(m_reachabilityManager, &QNetworkInformation::reachabilityChanged, this,
            &KVNetworkHelper::reportCurrentStatus);
    connect(m_reachabilityManager, &QNetworkInformation::transportMediumChanged, this,
            &KVNetworkHelper::reportCurrentStatus);
    // Qt signals changes only; observers still need to hear the state monitoring starts in.
    reportCurrentStatus();
}

void KVNetworkHelper::reportCurrentStatus()
{
    reportStatus(
        statusForReachability(m_reachabilityManager->reachability(), m_reachabilityManager->transportMedium()));
}

// Qt's reachability levels map to the statuses as follows:
//   Unknown                -> -1 unknown (counts as not reachable)
//   Disconnected, Local    ->  0 not reachable (Local: a link-local network only, nothing routed)
//   Site, Online           ->  1 over a cellular link, else 2 (Wi-Fi, Ethernet, anything else).
// Site counts as reachable because a routed network is up, which is all that host-independent
// reachability promises; an update server on the intranet is reachable then.
KVNetworkHelper::Status KVNetworkHelper::statusForReachability(QNetworkInformation::Reachability reachability,
                                                               QNetworkInformation::TransportMedium transportMedium)
{
    switch (reachability) {
    case QNetworkInformation::Reachability::Unknown:
        return StatusUnknown;
    case QNetworkInformation::Reachability::Disconnected:
    case QNetworkInformation::Reachability::Local:
        return StatusNotReachable;
    case QNetworkInformation::Reachability::Site:
    case QNetworkInformation::Reachability::Online:
        break;
    }
    return transportMedium == QNetworkInformation::TransportMedium::Cellular ? StatusReachableViaWWAN
                                                                             : StatusReachableViaWiFi;
}

void KVNetworkHelper::reportStatus(int status)
{
    QString notification;
    switch (status) {
    case StatusReachableViaWWAN:
    case StatusReachableViaWiFi:
        notification = KVNetworkReachableNotification;
        break;
    case StatusNotReachable:
    case StatusUnknown:
        notification = KVNetworkNotReachableNotification;
        break;
    default:
        return;
    }
    KVLogVerbose("%@: network status %d, posting %@", className, status, notification);
    // Always a hop, even from the main thread: whoever has just created the monitor still gets to
    // add its observers before the first report arrives.
    KVDispatch::asyncMain([notification] { KVNotificationCenter::defaultCenter().post(notification); });
}
