#include "App/Model/KVNetworkHelper.h"
#include "Core/Extensions/KVNotificationCenter.h"
#include "KVTestFiles.h"
#include "KVTestSandbox.h"
#include "Platform/KVPropertyList.h"
#include "Platform/KVStandardPaths.h"
#include "Platform/KVSystemInfo.h"
#include "Platform/KVUserDefaults.h"

#include <QDir>
#include <QFile>

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

// The platform layer: property lists keep their types, the user-defaults store layers the
// registration domain under the user's values, system versions read right; and what
// the network monitor tells the installer: a first report right after it starts, observed by
// whoever adds its observers just after creating it, then one report per real change.
class PlatformTest : public QObject
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
    void init()
    {
        KVTestSandbox::current().reset();
        m_reports.clear();
    }
    void cleanup() { KVNotificationCenter::defaultCenter().removeObserver(&m_observer); }
    void propertyListsKeepTypes()
    {
        const QDateTime date = QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC);
        const QVariantMap original{{"string", QStringLiteral("Keldran \u00e9")},
                                   {"integer", qint64(42)},
                                   {"real", 0.5},
                                   {"yes", true},
                                   {"no", false},
                                   {"date", date},
                                   {"data", QByteArray("\x00\x01", 2)},
                                   {"array", QVariantList{QStringLiteral("a"), qint64(1)}},
                                   {"dict", QVariantMap{{"k", QStringLiteral("v")}}}};
        const QString path = KVTestSandbox::current().root() + QStringLiteral("/types.plist");
        QVERIFY(KVPropertyList::writeDictionary(path, original));

        const QByteArray xml = KVTestFiles::readFile(path);
        QVERIFY(xml.contains("<date>2023-11-14T22:13:20Z</date>")); // dates keep the right epoch
        QVERIFY(xml.contains("<true/>"));

        const QVariantMap read = KVPropertyList::readDictionary(path).valueOr({});
        QCOMPARE(read, original);
        QCOMPARE(read.value("integer").metaType(), QMetaType::fromType<qint64>());
        QCOMPARE(read.value("date").metaType(), QMetaType::fromType<QDateTime>());
    }

    void propertyListFailures_data()
    {
        QTest::addColumn<QByteArray>("content"); // null: no file at all
        QTest::addColumn<qint64>("code");
        QTest::newRow("missing") << QByteArray() << qint64(KVFileNoSuchFileError);
        QTest::newRow("truncated") << QByteArray("<?xml version=\"1.0\"?><plist><dict><key>a</key>")
                                   << qint64(KVFileReadUnknownError);
        QTest::newRow("array at top") << QByteArray("<plist version=\"1.0\"><array/></plist>")
                                      << qint64(KVFileReadUnknownError);
        QTest::newRow("binary garbage") << QByteArray("\xff\xfe\x00garbage", 10) << qint64(KVFileReadUnknownError);
        // libplist itself would abort on a NUL in a string or a key; a binary list may hold one.
        static const char nulByte[] = "<plist version=\"1.0\"><dict><key>a</key><string>x\0y</string></dict></plist>";
        QTest::newRow("NUL byte in a string")
            << QByteArray(nulByte, sizeof nulByte - 1) << qint64(KVFileReadUnknownError);
        QTest::newRow("NUL reference in a key")
            << QByteArray("<plist version=\"1.0\"><dict><key>a&#0;b</key><true/></dict></plist>")
            << qint64(KVFileReadUnknownError);
        QTest::newRow("binary, NUL in a string")
            << QByteArray::fromHex("62706c6973743030d10102516153780079080b0d00000000000001010000000000000003000000"
                                   "00000000000000000000000011")
            << qint64(KVFileReadUnknownError);
    }

    void propertyListFailures()
    {
        QFETCH(QByteArray, content);
        QFETCH(qint64, code);
        const QString path = KVTestSandbox::current().root() + QStringLiteral("/broken.plist");
        if (!content.isNull())
            QVERIFY(KVTestFiles::writeFile(path, content));
        const KVResult<QVariantMap> read = KVPropertyList::readDictionary(path);
        QVERIFY(!read);
        QCOMPARE(read.error().domain(), KVCocoaErrorDomain);
        QCOMPARE(read.error().code(), code);
    }

    void userDefaultsLayers()
    {
        const QString path = KVTestSandbox::current().configHome() + QStringLiteral("/defaults.plist");
        KVUserDefaults defaults(path);
        defaults.registerDefaults({{"LogLevel", QStringLiteral("debug")}, {"Flag", true}});
        QCOMPARE(defaults.stringForKey("LogLevel"), QStringLiteral("debug"));
        QVERIFY(!defaults.persistentObjectForKey("LogLevel").isValid());

        defaults.setObject("LogLevel", qint64(3));
        QVERIFY(defaults.stringForKey("LogLevel").isNull()); // a number is not a string
        QCOMPARE(defaults.objectForKey("LogLevel").toLongLong(), 3);
        defaults.removeObjectForKey("LogLevel");
        QCOMPARE(defaults.stringForKey("LogLevel"), QStringLiteral("debug")); // the registered value again

        // Another process's change is seen by the next read; registered values never reach the file.
        KVUserDefaults otherProcess(path);
        otherProcess.setObject("InstallerLastLaunchDate", QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
        QCOMPARE(defaults.dateForKey("InstallerLastLaunchDate").toSecsSinceEpoch(), 1700000000);
        QVERIFY(!KVPropertyList::readDictionary(path).valueOr({}).contains("Flag"));
        QVERIFY(defaults.boolForKey("Flag"));
        otherProcess.setObject("Flag", QStringLiteral("NO"));
        QVERIFY(!defaults.boolForKey("Flag"));
    }

    void userDefaultsOnReadOnlyFolderKeepValues()
    {
        // A plain file where the settings folder should be: unwritable even for root.
        const QString blocker = KVTestSandbox::current().root() + QStringLiteral("/blocker");
        QVERIFY(KVTestFiles::writeFile(blocker, {}));
        KVUserDefaults defaults(blocker + QStringLiteral("/defaults.plist"));
        defaults.setObject("Key", QStringLiteral("value"));
        QVERIFY(!defaults.synchronize());
        QCOMPARE(defaults.stringForKey("Key"), QStringLiteral("value"));
    }

    void osReleaseVersions_data()
    {
        QTest::addColumn<QString>("osRelease");
        QTest::addColumn<long>("major");
        QTest::addColumn<long>("minor");
        QTest::newRow("Debian 12") << "PRETTY_NAME=\"Debian GNU/Linux 12\"\nVERSION_ID=\"12\"\n" << 12L << 0L;
        QTest::newRow("Ubuntu 24.04") << "NAME=Ubuntu\nVERSION_ID=\"24.04\"" << 24L << 4L;
        QTest::newRow("patch dropped") << "VERSION_ID=10.15.7" << 10L << 15L;
        QTest::newRow("rolling release has none") << "NAME=Arch\nBUILD_ID=rolling" << 0L << 0L;
    }

    void osReleaseVersions()
    {
        QFETCH(QString, osRelease);
        QFETCH(long, major);
        QFETCH(long, minor);
        const KVSystemInfo::Version version = KVSystemInfo::versionFromOsRelease(osRelease);
        QCOMPARE(version.major, major);
        QCOMPARE(version.minor, minor);
    }

    void foldersFollowTheEnvironment()
    {
        const KVTestSandbox &sandbox = KVTestSandbox::current();
        // The sandbox's own folders are checked where the engine's paths are.
        QCOMPARE(KVStandardPaths::expandTilde("~/Downloads/x"), sandbox.home() + "/Downloads/x");
        qputenv("XDG_DATA_HOME", "relative/path"); // invalid by the XDG rules: ignored
        QCOMPARE(KVStandardPaths::applicationSupportDirectory(), sandbox.home() + "/.local/share");
        qputenv("XDG_DATA_HOME", sandbox.dataHome().toUtf8());
        qunsetenv("NESTORA_APPLICATIONS_DIR");
        QCOMPARE(KVStandardPaths::applicationsDirectory(), QStringLiteral("/opt"));
        qputenv("NESTORA_APPLICATIONS_DIR", sandbox.applicationsDirectory().toUtf8());
        // Without a runtime folder of the user's own, a private one in the cache folder stands in.
        qunsetenv("XDG_RUNTIME_DIR");
        const QString runtime = KVStandardPaths::runtimeDirectory();
        QCOMPARE(runtime, sandbox.root() + "/cache/Nestora/Runtime");
        QCOMPARE(QFile::permissions(runtime) & 0x0077, QFileDevice::Permissions()); // the group's and others' bits
        qputenv("XDG_RUNTIME_DIR", sandbox.runtimeDirectory().toUtf8());
    }

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

    void networkManagerStatuses()
    {
        using Medium = QNetworkInformation::TransportMedium;
        using Reach = QNetworkInformation::Reachability;
        QCOMPARE(KVReachabilityStatusFor(Reach::Unknown, Medium::Ethernet), KVReachabilityStatusUnknown);
        QCOMPARE(KVReachabilityStatusFor(Reach::Local, Medium::WiFi), KVReachabilityStatusNotReachable);
        QCOMPARE(KVReachabilityStatusFor(Reach::Site, Medium::Cellular), KVReachabilityStatusReachableViaWWAN);
        QCOMPARE(KVReachabilityStatusFor(Reach::Online, Medium::Ethernet), KVReachabilityStatusReachableViaWiFi);
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

NESTORA_TEST_MAIN(PlatformTest)
#include "tst_platform.moc"
