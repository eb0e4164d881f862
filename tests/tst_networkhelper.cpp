#include "App/Model/KVNetworkHelper.h"
#include "Core/Extensions/KVNotificationCenter.h"
#include "KVTestSandbox.h"

namespace {

// A reachability source the test sets by hand.
class FakeReachabilitySource : public KVReachabilitySource
{
public:
    explicit FakeReachabilitySource(KVReachabilityStatus status)
        : m_status(status)
    {}
    KVReachabilityStatus status() const override { return m_status; }
    QString name() const override { return QStringLiteral("fake source"); }
    void change(KVReachabilityStatus status)
    {
        m_status = status;
        Q_EMIT statusMayHaveChanged();
    }

private:
    KVReachabilityStatus m_status;
};

} // namespace

// What the network monitor tells the installer: a first report right after it starts, observed by
// whoever adds its observers just after creating it, then one report per real change.
class NetworkHelperTest : public QObject
{
    Q_OBJECT

    QObject m_observer;
    // "R" for each reachable, "N" for each not-reachable notification, in order.
    QString m_reports;

    void observe()
    {
        auto &center = KVNotificationCenter::defaultCenter();
        center.addObserver(&m_observer, KVNetworkReachableNotification, [this](const auto &) { m_reports += 'R'; });
        center.addObserver(&m_observer, KVNetworkNotReachableNotification, [this](const auto &) { m_reports += 'N'; });
    }

private Q_SLOTS:
    void init() { m_reports.clear(); }
    void cleanup() { KVNotificationCenter::defaultCenter().removeObserver(&m_observer); }

    void reportsOncePerChange_data()
    {
        QTest::addColumn<QList<int>>("statuses"); // the first at the start, then one change signal each
        QTest::addColumn<QString>("reports");
        QTest::newRow("nothing to watch: reachable, once") << QList<int>{} << "R";
        QTest::newRow("started offline, then a route appears") << QList<int>{0, 0, 2} << "NR";
        QTest::newRow("unknown counts as offline") << QList<int>{-1, 2, -1} << "NRN";
        QTest::newRow("signals without a change report nothing") << QList<int>{2, 2, 2} << "R";
        QTest::newRow("unknown after offline is no change") << QList<int>{0, -1, 0} << "N";
        QTest::newRow("cellular to Wi-Fi is no change") << QList<int>{1, 2, 1} << "R";
        QTest::newRow("back and forth") << QList<int>{2, 0, 2, 0} << "RNRN";
    }
    void reportsOncePerChange()
    {
        QFETCH(QList<int>, statuses);
        QFETCH(QString, reports);
        std::unique_ptr<FakeReachabilitySource> source;
        if (!statuses.isEmpty())
            source = std::make_unique<FakeReachabilitySource>(KVReachabilityStatus(statuses.takeFirst()));
        FakeReachabilitySource *feed = source.get();
        KVNetworkHelper helper(std::move(source));
        observe();
        QTRY_COMPARE(m_reports.size(), 1);
        for (int status : std::as_const(statuses))
            feed->change(KVReachabilityStatus(status));
        QCoreApplication::processEvents();
        QCOMPARE(m_reports, reports);
    }

    // The machine's own source (the routing table here, where no network manager runs) starts and
    // gives exactly one first report.
    void systemSourceGivesOneFirstReport()
    {
        std::unique_ptr<KVReachabilitySource> source = KVReachabilitySource::systemSource();
        QVERIFY(source);
        KVNetworkHelper helper(std::move(source));
        observe();
        QTRY_COMPARE(m_reports.size(), 1);
        Q_EMIT helper.reachabilityManager()->statusMayHaveChanged();
        QCoreApplication::processEvents();
        QCOMPARE(m_reports.size(), 1);
    }
};

NESTORA_TEST_MAIN(NetworkHelperTest)
#include "tst_networkhelper.moc"
