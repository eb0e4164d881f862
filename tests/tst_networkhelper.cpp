#include "App/Model/KVNetworkHelper.h"
#include "Core/Extensions/KVNotificationCenter.h"
#include "KVLogCapture.h"
#include "KVTestSandbox.h"

// How reachability reports become notifications: which report posts which name, on the main thread
// and never before the report returns, with nothing folded together.
class NetworkHelperTest : public QObject
{
    Q_OBJECT

    QObject m_observer;
    int m_reachable = 0;
    int m_notReachable = 0;
    bool m_postedOffMainThread = false;

    // Delivers the hops to the main thread that are already queued.
    static void deliverPostedReports() { QCoreApplication::sendPostedEvents(qApp, QEvent::MetaCall); }

private Q_SLOTS:
    void init()
    {
        deliverPostedReports();
        m_reachable = m_notReachable = 0;
        m_postedOffMainThread = false;
        const auto count = [this](int &counter) {
            return [this, &counter](const KVNotification &) {
                ++counter;
                m_postedOffMainThread |= QThread::currentThread() != qApp->thread();
            };
        };
        auto &center = KVNotificationCenter::defaultCenter();
        center.addObserver(&m_observer, KVNetworkReachableNotification, count(m_reachable));
        center.addObserver(&m_observer, KVNetworkNotReachableNotification, count(m_notReachable));
    }
    void cleanup() { KVNotificationCenter::defaultCenter().removeObserver(&m_observer); }

    void mapsQtReachability_data()
    {
        using Reachability = QNetworkInformation::Reachability;
        using Medium = QNetworkInformation::TransportMedium;
        QTest::addColumn<Reachability>("reachability");
        QTest::addColumn<Medium>("medium");
        QTest::addColumn<int>("status");
        QTest::newRow("unknown") << Reachability::Unknown << Medium::WiFi << -1;
        QTest::newRow("disconnected") << Reachability::Disconnected << Medium::Ethernet << 0;
        QTest::newRow("link-local only") << Reachability::Local << Medium::Ethernet << 0;
        QTest::newRow("site") << Reachability::Site << Medium::Ethernet << 2;
        QTest::newRow("online over cellular") << Reachability::Online << Medium::Cellular << 1;
        QTest::newRow("online over Wi-Fi") << Reachability::Online << Medium::WiFi << 2;
        QTest::newRow("online over Ethernet") << Reachability::Online << Medium::Ethernet << 2;
        QTest::newRow("online, medium unknown") << Reachability::Online << Medium::Unknown << 2;
    }
    void mapsQtReachability()
    {
        QFETCH(QNetworkInformation::Reachability, reachability);
        QFETCH(QNetworkInformation::TransportMedium, medium);
        QFETCH(int, status);
        QCOMPARE(int(KVNetworkHelper::statusForReachability(reachability, medium)), status);
    }

    void broadcastsEveryReport_data()
    {
        QTest::addColumn<QList<int>>("statuses");
        QTest::addColumn<int>("reachable");
        QTest::addColumn<int>("notReachable");
        QTest::newRow("other values post nothing") << QList<int>{3, -2, 100} << 0 << 0;
        QTest::newRow("the same status twice posts twice") << QList<int>{2, 2} << 2 << 0;
        QTest::newRow("repeated outage, unknown included, is not folded") << QList<int>{0, -1, 0} << 0 << 3;
        QTest::newRow("changes back and forth, cellular included") << QList<int>{2, 0, 1} << 2 << 1;
    }
    void broadcastsEveryReport()
    {
        QFETCH(QList<int>, statuses);
        QFETCH(int, reachable);
        QFETCH(int, notReachable);
        KVLogCapture log;
        KVNetworkHelper helper(nullptr);
        deliverPostedReports();
        // Without a back end the network counts as reachable, once.
        QCOMPARE(m_reachable, 1);
        QCOMPARE(m_notReachable, 0);
        QTRY_VERIFY(log.contains(QStringLiteral("KVNetworkHelper: reachability cannot be monitored without a network "
                                                "information back end; treating the network as reachable")));
        m_reachable = 0;

        for (int status : statuses)
            helper.reportStatus(status);
        QCOMPARE(m_reachable + m_notReachable, 0); // observers never run inside the report itself
        deliverPostedReports();
        QCOMPARE(m_reachable, reachable);
        QCOMPARE(m_notReachable, notReachable);
    }

    void reportsFromAnyThreadArriveOnMainThread()
    {
        KVNetworkHelper helper(nullptr);
        deliverPostedReports();
        m_reachable = 0;
        std::unique_ptr<QThread> reporter(QThread::create([&helper] {
            helper.reportStatus(0);
            helper.reportStatus(1);
        }));
        reporter->start();
        QVERIFY(reporter->wait(5000));
        QTRY_COMPARE(m_notReachable, 1);
        QTRY_COMPARE(m_reachable, 1);
        QVERIFY(!m_postedOffMainThread);
    }

    void firstReportFollowsLoadingAndChangesFollow()
    {
        KVLogCapture log;
        QNetworkInformation *manager = KVNetworkHelper::loadReachabilityManager();
        if (!manager)
            QSKIP("No network information back end loads on this machine; broadcastsEveryReport covers its absence");

        // Observers added after creation, as the flow controller adds them, still hear the first report.
        KVNetworkHelper helper(manager);
        const bool reachable =
            KVNetworkHelper::statusForReachability(manager->reachability(), manager->transportMedium()) > 0;
        int &expected = reachable ? m_reachable : m_notReachable;
        QTRY_COMPARE(m_reachable + m_notReachable, 1);
        QCOMPARE(expected, 1);
        QVERIFY(log.contains(QStringLiteral("KVNetworkHelper: monitoring reachability with the %1 back end")
                                 .arg(manager->backendName())));

        // Every change the back end signals is broadcast, even one that leaves the status as it was.
        Q_EMIT manager->reachabilityChanged(manager->reachability());
        QTRY_COMPARE(expected, 2);
        Q_EMIT manager->transportMediumChanged(manager->transportMedium());
        QTRY_COMPARE(expected, 3);
        QCOMPARE(m_reachable + m_notReachable, 3);
        QVERIFY(!m_postedOffMainThread);
    }
};

NESTORA_TEST_MAIN(NetworkHelperTest)
#include "tst_networkhelper.moc"
