#include "App/Model/KVUpdateHelper.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestHost.h"
#include "KVTestHttpServer.h"
#include "KVTestSandbox.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"
#include "Platform/KVUserDefaults.h"

#include <QDir>
#include <QFile>

namespace {

QString applicationPath()
{
    return KVTestSandbox::current().applicationsDirectory() + QStringLiteral("/Nestora.app");
}

// Installed state as the data rows give it: "absent", "file", "no version", "no Info.plist",
// "unreadable Info.plist", "no program" or a CFBundleVersion.
void install(const QString &path, const QString &state)
{
    if (state == QLatin1String("absent"))
        return;
    if (state == QLatin1String("file")) {
        QVERIFY(KVTestFiles::writeFile(path, {}));
        return;
    }
    QVariantMap info{{"CFBundleIdentifier", "com.keldran.test"}, {"CFBundleExecutable", "Nestora"}};
    if (!state.startsWith(QLatin1String("no ")) && !state.startsWith(QLatin1String("unreadable ")))
        info.insert(QStringLiteral("CFBundleVersion"), state);
    if (state != QLatin1String("no program"))
        QVERIFY(KVTestFiles::writeFile(path + QStringLiteral("/Contents/MacOS/Nestora"), "#!/bin/sh\n"));
    const QString infoPath = path + QStringLiteral("/Contents/Info.plist");
    QDir().mkpath(QFileInfo(infoPath).path());
    if (state == QLatin1String("unreadable Info.plist"))
        QVERIFY(KVTestFiles::writeFile(infoPath, "<?xml version=\"1.0\"?><plist><dict><key>CFBundleVersion"));
    else if (state != QLatin1String("no Info.plist"))
        QVERIFY(KVPropertyList::writeDictionary(infoPath, info));
}

void writeHistory(const QVariantMap &history)
{
    const QString path = KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora/UpdateHistory.plist");
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QVERIFY(KVPropertyList::writeDictionary(path, history));
}

QStringList namesOf(const QList<KVINISectionPtr> &sections)
{
    QStringList names;
    for (const KVINISectionPtr &section : sections)
        names << section->name();
    return names;
}

QString nameOf(const KVINISectionPtr &section)
{
    return section ? section->name() : QString();
}

} // namespace

// The update decisions: which installer, application and data sections are due for a manifest
// and an installed state written by each test, what is logged on the way, and how the
// asynchronous checks deliver their results and hand over to the companion application.
class ChecksTest : public QObject
{
    Q_OBJECT

    KVTestHttpServer m_server;
    std::unique_ptr<KVTestCompanion> m_companion;

    // Fetches the manifest and runs the check on the engine's queue: the sections due (names of
    // those not null) must be the ones given.
    void expectDecision(const QString &manifest, const std::function<QList<KVINISectionPtr>(KVUpdateHelper &)> &check,
                        const QStringList &due)
    {
        m_server.setFile(QStringLiteral("/manifest.ini"), manifest.toUtf8());
        KVUpdateHelper engine(m_server.url(QStringLiteral("/manifest.ini")));
        KVError error;
        engine.queue().sync([&] { engine.downloadUpdateINI(false, &error); });
        QVERIFY2(!error, qPrintable(error.description()));
        QList<KVINISectionPtr> sections;
        engine.queue().sync([&] { sections = check(engine); });
        sections.removeAll(nullptr);
        QCOMPARE(namesOf(sections), due);
    }

private Q_SLOTS:
    void init()
    {
        KVTestSandbox::current().reset();
        const QString installer = KVTestSandbox::current().root() + QStringLiteral("/NestoraInstaller.app");
        install(installer, QStringLiteral("1.0.0"));
        KVBundle::setMainBundlePath(installer);
        qputenv("NESTORA_OS_VERSION", "11.2");
        m_companion = std::make_unique<KVTestCompanion>();
    }
    void cleanup() { m_companion.reset(); }

    void installerCheck_data()
    {
        QTest::addColumn<QString>("manifest");
        QTest::addColumn<QByteArray>("osVersion");
        QTest::addColumn<QString>("due");

        // The installed installer is 1.0.0; "index" is its entry in [Mac_Installer].
        const auto release = [](const QString &index, const QString &target, const QString &body) {
            return "[Mac_Installer]\n" + index + "\n[" + target + "]\n" + body;
        };
        const QString listed = release("1.0.0=Mac_Installer_1.1.0", "Mac_Installer_1.1.0", "OSSupport=10.15;11.2");
        const QString all = release("1.0.0=Mac_Installer_1.1.0", "Mac_Installer_1.1.0", "OSSupport=All");
        QTest::newRow("listed system, higher version") << listed << QByteArray("11.2") << "Mac_Installer_1.1.0";
        QTest::newRow("system not listed") << listed << QByteArray("12.0") << QString();
        QTest::newRow("All matches every system") << all << QByteArray("12.0") << "Mac_Installer_1.1.0";
        QTest::newRow("blank after semicolon does not match")
            << release("1.0.0=Mac_Installer_1.1.0", "Mac_Installer_1.1.0", "OSSupport=10.14; 10.15")
            << QByteArray("10.15") << QString();
        QTest::newRow("no OSSupport") << release("1.0.0=Mac_Installer_1.1.0", "Mac_Installer_1.1.0", "URL=x")
                                      << QByteArray("11.2") << QString();
        QTest::newRow("missing target section") << "[Mac_Installer]\n1.0.0=Mac_Installer_1.1.0\n"
                                                << QByteArray("11.2") << QString();
        QTest::newRow("same version is not due")
            << release("1.0.0=Mac_Installer_1.0", "Mac_Installer_1.0", "OSSupport=All") << QByteArray("11.2")
            << QString();
        QTest::newRow("lower version is not due")
            << release("1.0.0=Mac_Installer_0.9", "Mac_Installer_0.9", "OSSupport=All") << QByteArray("11.2")
            << QString();
        QTest::newRow("Debug chooses the target")
            << release("1.0.0=Mac_Installer_1.1\nDebug=Mac_Installer_2.0", "Mac_Installer_2.0", "OSSupport=All")
            << QByteArray("11.2") << "Mac_Installer_2.0";
        QTest::newRow("Debug target still compared")
            << release("Debug=Mac_Installer_0.5", "Mac_Installer_0.5", "OSSupport=All") << QByteArray("11.2")
            << QString();
        QTest::newRow("no entry for the installed version")
            << release("0.9.0=Mac_Installer_1.1", "Mac_Installer_1.1", "OSSupport=All") << QByteArray("11.2")
            << QString();
        QTest::newRow("no installer index") << "[Mac_Installer_1.1]\nOSSupport=All" << QByteArray("11.2") << QString();
    }

    void installerCheck()
    {
        QFETCH(QString, manifest);
        QFETCH(QByteArray, osVersion);
        QFETCH(QString, due);

        qputenv("NESTORA_OS_VERSION", osVersion);
        expectDecision(
            manifest, [](KVUpdateHelper &engine) { return QList{engine.checkInstallerUpdate()}; },
            due.isEmpty() ? QStringList() : QStringList{due});
    }

    void applicationCheck_data()
    {
        QTest::addColumn<QString>("manifest");
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("due");

        const QString releases = "[Mac_Application_2.0.5]\nURL=a\n[Mac_Application_2.1.1]\nURL=b\n";
        const auto manifest = [&](const QString &entries) { return "[Mac_Application]\n" + entries + "\n" + releases; };
        const QString older = QStringLiteral("Mac_Application_2.0.5"), newer = QStringLiteral("Mac_Application_2.1.1");
        QTest::newRow("first installation") << manifest("LatestVersion=" + older) << "absent" << older;
        QTest::newRow("installed is newer") << manifest("LatestVersion=" + older) << "2.1" << QString();
        QTest::newRow("installed is older") << manifest("LatestVersion=" + newer) << "2.1" << newer;
        QTest::newRow("a file in its place") << manifest("LatestVersion=" + older) << "file" << older;
        QTest::newRow("bundle without version is never updated")
            << manifest("LatestVersion=" + newer) << "no version" << QString();
        // A damaged installation counts as none, whatever its version, and is installed again.
        QTest::newRow("no Info.plist") << manifest("LatestVersion=" + older) << "no Info.plist" << older;
        QTest::newRow("unreadable Info.plist")
            << manifest("LatestVersion=" + older) << "unreadable Info.plist" << older;
        QTest::newRow("no program") << manifest("LatestVersion=" + older) << "no program" << older;
        QTest::newRow("per-system entry wins")
            << manifest("LatestVersion=" + older + "\nLatestVersion_11.2=" + newer) << "absent" << newer;
        QTest::newRow("other system's entry is skipped")
            << manifest("LatestVersion_10.15=" + newer + "\nLatestVersion=" + older) << "absent" << older;
        QTest::newRow("last fallback item wins")
            << manifest("LatestVersion=" + newer + "\nNote=" + older) << "absent" << older;
        QTest::newRow("Debug wins") << manifest("LatestVersion_11.2=" + newer + "\nDebug=" + older) << "absent"
                                    << older;
        QTest::newRow("release section missing")
            << manifest("LatestVersion=Mac_Application_3.0") << "absent" << QString();
        QTest::newRow("only per-system entries for others")
            << manifest("LatestVersion_10.15=" + newer) << "absent" << QString();
        QTest::newRow("target without deployment path") << manifest("Debug=Mac_Application") << "absent" << QString();
        QTest::newRow("no application index") << releases << "absent" << QString();
    }

    void applicationCheck()
    {
        QFETCH(QString, manifest);
        QFETCH(QString, installed);
        QFETCH(QString, due);

        install(applicationPath(), installed);
        expectDecision(
            manifest, [](KVUpdateHelper &engine) { return QList{engine.checkAppUpdate()}; },
            due.isEmpty() ? QStringList() : QStringList{due});
    }

    void plugInCheck_data()
    {
        QTest::addColumn<QStringList>("plugIns");
        QTest::addColumn<QString>("installedBackup");
        QTest::addColumn<QStringList>("due");

        QTest::newRow("names match whatever their case")
            << QStringList{"BACKUP", "sync"} << "absent" << QStringList{"Mac_Module_Backup_1.2", "Mac_Module_Sync_3.0"};
        QTest::newRow("installed plug-in is current") << QStringList{"backup"} << "1.2" << QStringList{};
        QTest::newRow("installed plug-in is older")
            << QStringList{"backup"} << "1.1.9" << QStringList{"Mac_Module_Backup_1.2"};
        QTest::newRow("unknown name") << QStringList{"Restore"} << "absent" << QStringList{};
    }

    void plugInCheck()
    {
        QFETCH(QStringList, plugIns);
        QFETCH(QString, installedBackup);
        QFETCH(QStringList, due);

        install(KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora/PlugIns/Backup.vexaplugin"),
                installedBackup);
        plugIns << QStringLiteral("orphan"); // its release section is missing: never due
        expectDecision(
            "[Mac_Module_Backup]\nLatestVersion=Mac_Module_Backup_1.2\n[Mac_Module_Backup_1.2]\nURL=a\n"
            "[Mac_Module_Sync]\nDebug=Mac_Module_Sync_3.0\n[Mac_Module_Sync_3.0]\nURL=b\n"
            "[Mac_Module_Orphan]\nLatestVersion=Mac_Module_Orphan_1.0\n",
            [&](KVUpdateHelper &engine) { return engine.checkPlugInsUpdate(plugIns); }, due);
    }

    void dataItemChecks_data()
    {
        QTest::addColumn<QString>("manifest");
        QTest::addColumn<QVariantMap>("history");
        QTest::addColumn<QStringList>("due"); // devices XML and icons, then smart cards

        const QString all =
            "[Device_XML]\nLatestVersion=3\n[Device_Icon]\nLatestVersion=2.1\n[Smart_Cards]\nLatestVersion=5\n";
        const QString bare = "[Device_XML]\n[Device_Icon]\n[Smart_Cards]\n";
        const QVariantMap current{{"Device_XML", "3"}, {"Device_Icon", "2.1"}, {"Smart_Cards", "5"}};
        const QStringList everything{"Device_XML", "Device_Icon", "Smart_Cards"};
        QTest::newRow("never deployed: all due") << all << QVariantMap() << everything;
        QTest::newRow("never deployed, whatever the version")
            << "[Device_XML]\nLatestVersion=0\n[Device_Icon]\n[Smart_Cards]\n"
            << QVariantMap() << everything;
        QTest::newRow("all current") << all << current << QStringList();
        QTest::newRow("older history") << all
                                       << QVariantMap{{"Device_XML", "2.9"},
                                                      {"Device_Icon", "2.1"},
                                                      {"Smart_Cards", "4.9.9"}}
                                       << QStringList{"Device_XML", "Smart_Cards"};
        QTest::newRow("newer history") << all
                                       << QVariantMap{{"Device_XML", "4"}, {"Device_Icon", "3"}, {"Smart_Cards", "6"}}
                                       << QStringList();
        QTest::newRow("no LatestVersion once deployed") << bare << current << QStringList();
        QTest::newRow("missing icons still reports XML") << "[Device_XML]\nLatestVersion=3\n"
                                                         << QVariantMap() << QStringList{"Device_XML"};
        QTest::newRow("no data sections") << "[Other]\na=b\n" << current << QStringList();
    }

    void dataItemChecks()
    {
        QFETCH(QString, manifest);
        QFETCH(QVariantMap, history);
        QFETCH(QStringList, due);

        writeHistory(history);
        expectDecision(
            manifest,
            [](KVUpdateHelper &engine) {
                return engine.checkDeviceXMLAndIconUpdate() << engine.checkSmartCardsUpdate();
            },
            due);
    }

    void installerCheckDeliversAsynchronouslyOnMainThread_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("manifest");
        QTest::addColumn<QString>("due");
        QTest::addColumn<QString>("errorDomain");

        const QByteArray manifest =
            "[Mac_Installer]\n1.0.0=Mac_Installer_1.1.0\n[Mac_Installer_1.1.0]\nOSSupport=All\n";
        QTest::newRow("due") << 200 << manifest << "Mac_Installer_1.1.0" << QString();
        QTest::newRow("manifest missing") << 404 << manifest << QString() << KVURLErrorDomain;
        QTest::newRow("manifest empty") << 200 << QByteArray() << QString() << KVUpdateHelperErrorDomain;
    }

    void installerCheckDeliversAsynchronouslyOnMainThread()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, manifest);
        QFETCH(QString, due);
        QFETCH(QString, errorDomain);

        m_server.setResponse(QStringLiteral("/manifest.ini"), {status, manifest, {}, {}, 0});
        KVUpdateHelper engine(m_server.url(QStringLiteral("/manifest.ini")));
        bool called = false;
        bool returned = false;
        engine.queue().sync([] {}); // the queue is idle: the check runs as soon as it is submitted
        engine.checkInstallerUpdateWithcompletionHandler([&](KVINISectionPtr section, KVError error) {
            QVERIFY(KVDispatch::isMainThread());
            QVERIFY(returned); // never from inside the call
            QCOMPARE(nameOf(section), due);
            QCOMPARE(error.domain(), errorDomain);
            QCOMPARE(error.code(), errorDomain.isNull() ? 0 : 2);
            called = true;
        });
        returned = true;
        QTRY_VERIFY(called);
    }

    void updateCheck_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("manifest");
        QTest::addColumn<QVariantMap>("history");
        QTest::addColumn<QStringList>("due");
        QTest::addColumn<KVError>("error");
        QTest::addColumn<QStringList>("launchArguments"); // empty: the application is installed but not launched

        // Listed in another order than the check reports them.
        const QByteArray dataItems =
            "[Smart_Cards]\nLatestVersion=1\n[Device_Icon]\nLatestVersion=1\n[Device_XML]\nLatestVersion=2\n";
        QTest::newRow("sections in order")
            << 200 << dataItems + "[Mac_Application]\nLatestVersion=Mac_Application_9.0\n[Mac_Application_9.0]\nURL=a\n"
            << QVariantMap{{"Device_XML", "1"}}
            << QStringList{"Mac_Application_9.0", "Device_XML", "Device_Icon", "Smart_Cards"} << KVError()
            << QStringList();
        QTest::newRow("failure launches nothing")
            << 404 << QByteArray() << QVariantMap() << QStringList()
            << KVError(KVURLErrorDomain, KVURLErrorConnectionFailed, {{KVHTTPStatusKey, 404}}) << QStringList();
        QTest::newRow("nothing due hands over to the application")
            << 200
            << "[Mac_Application]\nLatestVersion=Mac_Application_0.0.1\n[Mac_Application_0.0.1]\nURL=a\n" + dataItems
            << QVariantMap{{"Device_XML", "2"}, {"Device_Icon", "1"}, {"Smart_Cards", "1"}} << QStringList()
            << KVError() << QStringList{"-KVWindowOrigin", "40", "60", "-InstallerLaunchDate", "1700000000"};
    }

    void updateCheck()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, manifest);
        QFETCH(QVariantMap, history);
        QFETCH(QStringList, due);
        QFETCH(KVError, error);
        QFETCH(QStringList, launchArguments);

        if (due.isEmpty()) // an installed application is never due: it has no version
            QVERIFY(KVTestCompanion::install(applicationPath()));
        writeHistory(history);
        m_server.setResponse(QStringLiteral("/manifest.ini"), {status, manifest, {}, {}, 0});
        KVUserDefaults::standardUserDefaults().setObject(QStringLiteral("InstallerLastLaunchDate"),
                                                         QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
        KVUpdateHelper engine(m_server.url(QStringLiteral("/manifest.ini")));
        QStringList events;
        engine.setHost(KVTestHost([&] { events << "terminate"; }, [] { return QPointF(40, 60); }));

        engine.checkUpdateWithcompletionHandler([&](QList<KVINISectionPtr> sections, KVError checkError) {
            QVERIFY(KVDispatch::isMainThread());
            QCOMPARE(namesOf(sections), due);
            QCOMPARE(checkError, error);
            events << "handler";
        });
        const QStringList expectedEvents =
            launchArguments.isEmpty() ? QStringList{"handler"} : QStringList{"handler", "terminate"};
        QTRY_COMPARE(events, expectedEvents);
        engine.queue().sync([] {});
        QCOMPARE(events, expectedEvents);
        const std::optional<QList<KVTestCompanion::Start>> starts = m_companion->settledStarts();
        QVERIFY(starts);
        QCOMPARE(starts->size(), launchArguments.isEmpty() ? 0 : 1);
        if (!launchArguments.isEmpty())
            QCOMPARE(starts->first().arguments, launchArguments);
    }
};

NESTORA_TEST_MAIN(ChecksTest)
#include "tst_checks.moc"
