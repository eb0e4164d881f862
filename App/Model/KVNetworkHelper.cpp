#include "App/Model/KVNetworkHelper.h"

#include "Core/Extensions/KVNotificationCenter.h"
#include "Core/Logging/KVLog.h"

#include <QTimer>

namespace {
const QString kClassName = QStringLiteral("KVNetworkHelper");
} // namespace

KVNetworkHelper &KVNetworkHelper::sharedInstance()
{
    static KVNetworkHelper *instance = new KVNetworkHelper(KVReachabilitySource::systemSource());
    return *instance;
}

KVNetworkHelper::KVNetworkHelper(std::unique_ptr<KVReachabilitySource> reachabilityManager, QObject *parent)
    : QObject(parent)
    , m_reachabilityManager(std::move(reachabilityManager))
{
    startMonitor();
}

KVNetworkHelper::~KVNetworkHelper() = default;

void KVNetworkHelper::startMonitor()
{
    if (!m_reachabilityManager) {
        // Without a monitor the installer would wait for the network forever; let it try instead
        // and report a failed connection if the server cannot be reached.
        KVLogWarning("%@: reachability cannot be monitored; treating the network as reachable", kClassName);
        QTimer::singleShot(0, this, [this] { reportStatus(KVReachabilityStatusReachableViaWiFi); });
        return;
    }
    KVLogInfo("%@: monitoring reachability through the %@", kClassName, m_reachabilityManager->name());
    connect(m_reachabilityManager.get(), &KVReachabilitySource::statusMayHaveChanged, this,
            &KVNetworkHelper::reportCurrentStatus);
    // Whoever has just created the monitor still gets to add its observers before the first report.
    QTimer::singleShot(0, this, &KVNetworkHelper::reportCurrentStatus);
}

bool KVNetworkHelper::isReachableStatus(KVReachabilityStatus status)
{
    return status == KVReachabilityStatusReachableViaWWAN || status == KVReachabilityStatusReachableViaWiFi;
}

bool KVNetworkHelper::isReachable() const
{
    return !m_reachabilityManager || isReachableStatus(m_reachabilityManager->status());
}

void KVNetworkHelper::reportCurrentStatus()
{
    reportStatus(m_reachabilityManager->status());
}

void KVNetworkHelper::reportStatus(KVReachabilityStatus status)
{
    const QString &notification =
        isReachableStatus(status) ? KVNetworkReachableNotification : KVNetworkNotReachableNotification;
    if (notification == m_lastNotification)
        return;
    m_lastNotification = notification;
    KVLogInfo("%@: network status %d, posting %@", kClassName, int(status), notification);
    KVNotificationCenter::defaultCenter().post(notification);
}
