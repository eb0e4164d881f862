#include "App/Model/KVUpdateHelper.h"
#include "KVLogCapture.h"
#include "KVTestCompanion.h"
#include "KVTestHost.h"
#include "KVTestHttpServer.h"
#include "KVTestSandbox.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"
#include "Platform/KVUserDefaults.h"

#include <QDir>
#include <QFile>

// The update decisions: which installer, application and data sections are due for a manifest
// and an installed state written by each test, what is logged on the way, and how the two
// asynchronous checks deliver their results and hand over to the companion application.
class ChecksTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void installerCheck_data();
    void installerCheck();
    void applicationCheck_data();
    void applicationCheck();
    void plugInCheck_data();
    void plugInCheck();
    void dataItemChecks_data();
    void dataItemChecks();
    void installerCheckDeliversAsynchronouslyOnMainThread_data();
    void installerCheckDeliversAsynchronouslyOnMainThread();
    void updateCheckListsSectionsInOrder();
    void updateCheckFailureLaunchesNothing();
    void nothingDueHandsOverToTheApplication();

private:
    // An engine whose manifest is the given text, already fetched.
    std::unique_ptr<KVUpdateHelper> engineWithManifest(const QString &manifest);
    template <typename Result> static Result onQueue(KVUpdateHelper &engine, const std::function<Result()> &work);

    KVTestHttpServer m_server;
    std::unique_ptr<KVTestCompanion> m_companion;
};

namespace {
const QString kInstallerVersion = QStringLiteral("1.0.0");

QString applicationPath()
{
    return KVTestSandbox::current().applicationsDirectory() + QStringLiteral("/Nestora.app");
}

void writeBundle(const QString &path, const QString &version)
{
    QDir().mkpath(path + QStringLiteral("/Contents"));
    QVariantMap info{{QStringLiteral("CFBundleIdentifier"), QStringLiteral("com.keldran.test")}};
    if (!version.isNull())
        info.insert(QStringLiteral("CFBundleVersion"), version);
    QVERIFY(KVPropertyList::writeDictionary(path + QStringLiteral("/Contents/Info.plist"), info));
}

// Installed state in the form the data rows give it: "absent", "file", "no version" or a version.
void install(const QString &path, const QString &state)
{
    if (state == QLatin1String("absent"))
        return;
    if (state == QLatin1String("file")) {
        QDir().mkpath(QFileInfo(path).path());
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        return;
    }
    writeBundle(path, state == QLatin1String("no version") ? QString() : state);
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

void ChecksTest::init()
{
    KVTestSandbox &sandbox = KVTestSandbox::current();
    sandbox.reset();
    const QString installer = sandbox.root() + QStringLiteral("/NestoraInstaller.app");
    writeBundle(installer, kInstallerVersion);
    KVBundle::setMainBundlePath(installer);
    qputenv("NESTORA_OS_VERSION", "11.2");
    m_companion = std::make_unique<KVTestCompanion>();
}

void ChecksTest::cleanup()
{
    m_companion.reset();
}

std::unique_ptr<KVUpdateHelper> ChecksTest::engineWithManifest(const QString &manifest)
{
    m_server.setFile(QStringLiteral("/manifest.ini"), manifest.toUtf8());
    auto engine = std::make_unique<KVUpdateHelper>(m_server.url(QStringLiteral("/manifest.ini")));
    const KVError error = onQueue<KVError>(*engine, [&] {
        KVError fetchError;
        engine->downloadUpdateINI(false, &fetchError);
        return fetchError;
    });
    return error ? nullptr : std::move(engine);
}

template <typename Result> Result ChecksTest::onQueue(KVUpdateHelper &engine, const std::function<Result()> &work)
{
    Result result;
    engine.queue().sync([&] { result = work(); });
    return result;
}

void ChecksTest::installerCheck_data()
{
    QTest::addColumn<QString>("manifest");
    QTest::addColumn<QByteArray>("osVersion");
    QTest::addColumn<QString>("due");
    QTest::addColumn<QStringList>("log");

    const QString notMatched =
        QStringLiteral("KVUpdateHelper: os support not matched, system version:%1, os supoort:(null),");
    const QString listed = QStringLiteral("[Mac_Installer]\n1.0.0=Mac_Installer_1.1.0\n"
                                          "[Mac_Installer_1.1.0]\nOSSupport=10.15;11.2\n");
    QTest::newRow("listed system, higher version")
        << listed << QByteArray("11.2") << "Mac_Installer_1.1.0" << QStringList();
    QTest::newRow("system not listed") << listed << QByteArray("12.0") << QString()
                                       << QStringList{notMatched.arg("12.0")};
    QTest::newRow("All matches every system")
        << "[Mac_Installer]\n1.0.0=Mac_Installer_1.1.0\n[Mac_Installer_1.1.0]\nOSSupport=All" << QByteArray("12.0")
        << "Mac_Installer_1.1.0" << QStringList();
    QTest::newRow("blank after semicolon does not match")
        << "[Mac_Installer]\n1.0.0=Mac_Installer_1.1.0\n[Mac_Installer_1.1.0]\nOSSupport=10.14; 10.15"
        << QByteArray("10.15") << QString() << QStringList{notMatched.arg("10.15")};
    QTest::newRow("no OSSupport logs both")
        << "[Mac_Installer]\n1.0.0=Mac_Installer_1.1.0\n[Mac_Installer_1.1.0]\nURL=x" << QByteArray("11.2") << QString()
        << QStringList{"KVUpdateHelper: OS support not found in Mac_Installer_1.1.0", notMatched.arg("11.2")};
    QTest::newRow("missing target section")
        << "[Mac_Installer]\n1.0.0=Mac_Installer_1.1.0\n"
        << QByteArray("11.2") << QString()
        << QStringList{"KVUpdateHelper: OS support not found in (null)", notMatched.arg("11.2")};
    QTest::newRow("same version is not due")
        << "[Mac_Installer]\n1.0.0=Mac_Installer_1.0\n[Mac_Installer_1.0]\nOSSupport=All" << QByteArray("11.2")
        << QString() << QStringList();
    QTest::newRow("lower version is not due")
        << "[Mac_Installer]\n1.0.0=Mac_Installer_0.9\n[Mac_Installer_0.9]\nOSSupport=All" << QByteArray("11.2")
        << QString() << QStringList();
    QTest::newRow("Debug chooses the target") << "[Mac_Installer]\n1.0.0=Mac_Installer_1.1\nDebug=Mac_"
                                                 "Installer_2.0\n[Mac_Installer_1.1]\nOSSupport=All\n"
                                                 "[Mac_Installer_2.0]\nOSSupport=All"
                                              << QByteArray("11.2") << "Mac_Installer_2.0" << QStringList();
    QTest::newRow("Debug target still compared")
        << "[Mac_Installer]\nDebug=Mac_Installer_0.5\n[Mac_Installer_0.5]\nOSSupport=All" << QByteArray("11.2")
        << QString() << QStringList();
    QTest::newRow("no entry for the installed version")
        << "[Mac_Installer]\n0.9.0=Mac_Installer_1.1\n[Mac_Installer_1.1]\nOSSupport=All" << QByteArray("11.2")
        << QString() << QStringList();
    QTest::newRow("no installer index") << "[Mac_Installer_1.1]\nOSSupport=All" << QByteArray("11.2") << QString()
                                        << QStringList();
}

void ChecksTest::installerCheck()
{
    QFETCH(QString, manifest);
    QFETCH(QByteArray, osVersion);
    QFETCH(QString, due);
    QFETCH(QStringList, log);

    qputenv("NESTORA_OS_VERSION", osVersion);
    const std::unique_ptr<KVUpdateHelper> engine = engineWithManifest(manifest);
    QVERIFY(engine);
    KVLogCapture capture;
    QCOMPARE(nameOf(onQueue<KVINISectionPtr>(*engine, [&] { return engine->checkInstallerUpdate(); })), due);
    QCOMPARE(capture.messages(), log);
}

void ChecksTest::applicationCheck_data()
{
    QTest::addColumn<QString>("manifest");
    QTest::addColumn<QString>("installed"); // "absent", "file", "no version" or a CFBundleVersion
    QTest::addColumn<QString>("due");
    QTest::addColumn<QStringList>("log");

    const QString releases = QStringLiteral("[Mac_Application_2.0.5]\nURL=a\n[Mac_Application_2.1.1]\nURL=b\n");
    QTest::newRow("first installation") << "[Mac_Application]\nLatestVersion=Mac_Application_2.0.5\n" + releases
                                        << "absent"
                                        << "Mac_Application_2.0.5" << QStringList();
    QTest::newRow("installed is newer") << "[Mac_Application]\nLatestVersion=Mac_Application_2.0.5\n" + releases
                                        << "2.1" << QString() << QStringList();
    QTest::newRow("installed is older") << "[Mac_Application]\nLatestVersion=Mac_Application_2.1.1\n" + releases
                                        << "2.1"
                                        << "Mac_Application_2.1.1" << QStringList();
    QTest::newRow("a file in its place") << "[Mac_Application]\nLatestVersion=Mac_Application_2.0.5\n" + releases
                                         << "file"
                                         << "Mac_Application_2.0.5" << QStringList();
    QTest::newRow("bundle without version is never updated")
        << "[Mac_Application]\nLatestVersion=Mac_Application_2.1.1\n" + releases << "no version" << QString()
        << QStringList();
    QTest::newRow("per-system entry wins") << "[Mac_Application]\nLatestVersion=Mac_Application_2.0."
                                              "5\nLatestVersion_11.2=Mac_Application_2.1.1\n" +
                                                  releases
                                           << "absent"
                                           << "Mac_Application_2.1.1" << QStringList();
    QTest::newRow("other system's entry is skipped")
        << "[Mac_Application]\nLatestVersion_10.15=Mac_Application_2.1.1\nLatestVersion=Mac_Application_2.0."
           "5\n" +
               releases
        << "absent"
        << "Mac_Application_2.0.5" << QStringList();
    QTest::newRow("last fallback item wins")
        << "[Mac_Application]\nLatestVersion=Mac_Application_2.1.1\nNote=Mac_Application_2.0.5\n" + releases << "absent"
        << "Mac_Application_2.0.5" << QStringList();
    QTest::newRow("Debug wins")
        << "[Mac_Application]\nLatestVersion_11.2=Mac_Application_2.1.1\nDebug=Mac_Application_2.0.5\n" + releases
        << "absent"
        << "Mac_Application_2.0.5" << QStringList();
    QTest::newRow("release section missing") << "[Mac_Application]\nLatestVersion=Mac_Application_3.0\n" + releases
                                             << "absent" << QString() << QStringList();
    QTest::newRow("only per-system entries for others")
        << "[Mac_Application]\nLatestVersion_10.15=Mac_Application_2.1.1\n" + releases << "absent" << QString()
        << QStringList();
    QTest::newRow("target without deployment path")
        << "[Mac_Application]\nDebug=Mac_Application\n" + releases << "absent" << QString()
        << QStringList{"deploymentPathForSection: deployment path unavailable for section type 3",
                       "checkAppUpdate: failed to get deployment path for section Mac_Application"};
    QTest::newRow("no application index") << releases << "absent" << QString() << QStringList();
}

void ChecksTest::applicationCheck()
{
    QFETCH(QString, manifest);
    QFETCH(QString, installed);
    QFETCH(QString, due);
    QFETCH(QStringList, log);

    install(applicationPath(), installed);
    const std::unique_ptr<KVUpdateHelper> engine = engineWithManifest(manifest);
    QVERIFY(engine);
    KVLogCapture capture;
    QCOMPARE(nameOf(onQueue<KVINISectionPtr>(*engine, [&] { return engine->checkAppUpdate(); })), due);
    QCOMPARE(capture.messages(), log);
}

void ChecksTest::plugInCheck_data()
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

void ChecksTest::plugInCheck()
{
    QFETCH(QStringList, plugIns);
    QFETCH(QString, installedBackup);
    QFETCH(QStringList, due);

    install(KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora/PlugIns/Backup.vexaplugin"),
            installedBackup);
    const std::unique_ptr<KVUpdateHelper> engine = engineWithManifest(
        QStringLiteral("[Mac_Module_Backup]\nLatestVersion=Mac_Module_Backup_1.2\n[Mac_Module_Backup_1.2]\nURL=a\n"
                       "[Mac_Module_Sync]\nDebug=Mac_Module_Sync_3.0\n[Mac_Module_Sync_3.0]\nURL=b\n"
                       "[Mac_Module_Orphan]\nLatestVersion=Mac_Module_Orphan_1.0\n"));
    QVERIFY(engine);
    plugIns << QStringLiteral("orphan"); // its release section is missing: never due
    QCOMPARE(namesOf(onQueue<QList<KVINISectionPtr>>(*engine, [&] { return engine->checkPlugInsUpdate(plugIns); })),
             due);
}

void ChecksTest::dataItemChecks_data()
{
    QTest::addColumn<QString>("manifest");
    QTest::addColumn<QVariantMap>("history");
    QTest::addColumn<QStringList>("due"); // devices XML and icons, then smart cards
    QTest::addColumn<QStringList>("log");

    const QString all = QStringLiteral("[Device_XML]\nLatestVersion=3\n[Device_Icon]\nLatestVersion=2.1\n"
                                       "[Smart_Cards]\nLatestVersion=5\n");
    const QVariantMap current{{"Device_XML", "3"}, {"Device_Icon", "2.1"}, {"Smart_Cards", "5"}};
    QTest::newRow("never deployed: all due")
        << all << QVariantMap() << QStringList{"Device_XML", "Device_Icon", "Smart_Cards"} << QStringList();
    QTest::newRow("never deployed, whatever the version")
        << "[Device_XML]\nLatestVersion=0\n[Device_Icon]\n[Smart_Cards]\n"
        << QVariantMap() << QStringList{"Device_XML", "Device_Icon", "Smart_Cards"} << QStringList();
    QTest::newRow("all current") << all << current << QStringList() << QStringList();
    QTest::newRow("older history") << all
                                   << QVariantMap{{"Device_XML", "2.9"},
                                                  {"Device_Icon", "2.1"},
                                                  {"Smart_Cards", "4.9.9"}}
                                   << QStringList{"Device_XML", "Smart_Cards"} << QStringList();
    QTest::newRow("newer history") << all
                                   << QVariantMap{{"Device_XML", "4"}, {"Device_Icon", "3"}, {"Smart_Cards", "6"}}
                                   << QStringList() << QStringList();
    QTest::newRow("no LatestVersion once deployed") << "[Device_XML]\n[Device_Icon]\n[Smart_Cards]\n"
                                                    << current << QStringList() << QStringList();
    QTest::newRow("missing icons still reports XML")
        << "[Device_XML]\nLatestVersion=3\n"
        << QVariantMap() << QStringList{"Device_XML"}
        << QStringList{"checkDeviceXMLAndIconUpdate: failed to get section with name Device_Icon"};
    QTest::newRow("no data sections")
        << "[Other]\na=b\n"
        << current << QStringList()
        << QStringList{"checkDeviceXMLAndIconUpdate: failed to get section with name Device_XML",
                       "checkDeviceXMLAndIconUpdate: failed to get section with name Device_Icon"};
}

void ChecksTest::dataItemChecks()
{
    QFETCH(QString, manifest);
    QFETCH(QVariantMap, history);
    QFETCH(QStringList, due);
    QFETCH(QStringList, log);

    writeHistory(history);
    const std::unique_ptr<KVUpdateHelper> engine = engineWithManifest(manifest);
    QVERIFY(engine);
    KVLogCapture capture;
    const QList<KVINISectionPtr> sections = onQueue<QList<KVINISectionPtr>>(*engine, [&] {
        QList<KVINISectionPtr> found = engine->checkDeviceXMLAndIconUpdate();
        if (KVINISectionPtr smartCards = engine->checkSmartCardsUpdate())
            found << smartCards;
        return found;
    });
    QCOMPARE(namesOf(sections), due);
    QCOMPARE(capture.messages(), log);
}

void ChecksTest::installerCheckDeliversAsynchronouslyOnMainThread_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("manifest");
    QTest::addColumn<QString>("due");
    QTest::addColumn<QString>("errorDomain");

    const QByteArray manifest = "[Mac_Installer]\n1.0.0=Mac_Installer_1.1.0\n[Mac_Installer_1.1.0]\nOSSupport=All\n";
    QTest::newRow("due") << 200 << manifest << "Mac_Installer_1.1.0" << QString();
    QTest::newRow("manifest missing") << 404 << manifest << QString() << KVURLErrorDomain;
    QTest::newRow("manifest empty") << 200 << QByteArray() << QString() << KVUpdateHelperErrorDomain;
}

void ChecksTest::installerCheckDeliversAsynchronouslyOnMainThread()
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

void ChecksTest::updateCheckListsSectionsInOrder()
{
    writeHistory({{"Device_XML", "1"}});
    m_server.setFile(QStringLiteral("/manifest.ini"),
                     "[Smart_Cards]\nLatestVersion=1\n[Device_Icon]\nLatestVersion=1\n[Device_XML]\nLatestVersion=2\n"
                     "[Mac_Application]\nLatestVersion=Mac_Application_9.0\n[Mac_Application_9.0]\nURL=a\n");
    KVUpdateHelper engine(m_server.url(QStringLiteral("/manifest.ini")));
    bool terminated = false;
    engine.setHost(KVTestHost([&] { terminated = true; }));

    std::optional<QStringList> names;
    KVError checkError;
    engine.checkUpdateWithcompletionHandler([&](QList<KVINISectionPtr> sections, KVError error) {
        QVERIFY(KVDispatch::isMainThread());
        names = namesOf(sections);
        checkError = error;
    });
    QTRY_VERIFY(names);
    QCOMPARE(*names, (QStringList{"Mac_Application_9.0", "Device_XML", "Device_Icon", "Smart_Cards"}));
    QVERIFY(checkError.isNull());
    engine.queue().sync([] {});
    QVERIFY(!terminated);
}

void ChecksTest::updateCheckFailureLaunchesNothing()
{
    QVERIFY(KVTestCompanion::install(applicationPath()));
    m_server.setResponse(QStringLiteral("/manifest.ini"), {404, {}, {}, {}, 0});
    KVUpdateHelper engine(m_server.url(QStringLiteral("/manifest.ini")));
    bool terminated = false;
    engine.setHost(KVTestHost([&] { terminated = true; }));

    std::optional<QList<KVINISectionPtr>> result;
    KVError checkError;
    engine.checkUpdateWithcompletionHandler([&](QList<KVINISectionPtr> sections, KVError error) {
        result = sections;
        checkError = error;
    });
    QTRY_VERIFY(result);
    QVERIFY(result->isEmpty());
    QCOMPARE(checkError, KVError(KVURLErrorDomain, 2));
    engine.queue().sync([] {});
    QVERIFY(KVTestCompanion::waitForLaunchScripts());
    QVERIFY(!terminated);
    QVERIFY(m_companion->starts().isEmpty());
}

void ChecksTest::nothingDueHandsOverToTheApplication()
{
    QVERIFY(KVTestCompanion::install(applicationPath()));
    writeHistory({{"Device_XML", "2"}, {"Device_Icon", "1"}, {"Smart_Cards", "1"}});
    m_server.setFile(QStringLiteral("/manifest.ini"),
                     "[Mac_Application]\nLatestVersion=Mac_Application_0.0.1\n[Mac_Application_0.0.1]\nURL=a\n"
                     "[Device_XML]\nLatestVersion=2\n[Device_Icon]\nLatestVersion=1\n[Smart_Cards]\nLatestVersion=1\n");
    KVUserDefaults::standardUserDefaults().setObject(QStringLiteral("InstallerLastLaunchDate"),
                                                     QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
    KVUpdateHelper engine(m_server.url(QStringLiteral("/manifest.ini")));
    QStringList events;
    engine.setHost(KVTestHost([&] { events << "terminate"; }, [] { return QPointF(40, 60); }));

    engine.checkUpdateWithcompletionHandler([&](QList<KVINISectionPtr> sections, KVError error) {
        QVERIFY(sections.isEmpty());
        QVERIFY(error.isNull());
        events << "handler";
    });
    QTRY_COMPARE(events, (QStringList{"handler", "terminate"}));
    const std::optional<QList<KVTestCompanion::Start>> starts = m_companion->settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), 1);
    QCOMPARE(starts->first().arguments,
             (QStringList{"-KVWindowOrigin", "40", "60", "-InstallerLaunchDate", "1700000000"}));
}

NESTORA_TEST_MAIN(ChecksTest)
#include "tst_checks.moc"
