#include "App/Model/KVUpdateHelper.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestHost.h"
#include "KVTestHttpServer.h"
#include "KVTestInstallation.h"
#include "KVTestSandbox.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"
#include "Platform/KVUserDefaults.h"

#include <QDir>
#include <QFile>

namespace {

// Installed state as the data rows give it: "absent", "file", "no version", "no Info.plist",
// "no program" or a CFBundleVersion.
void install(const QString &path, const QString &state)
{
    if (state == QLatin1String("absent"))
        return;
    if (state == QLatin1String("file")) {
        QVERIFY(KVTestFiles::writeFile(path, {}));
        return;
    }
    QVariantMap info{{"CFBundleIdentifier", "com.keldran.test"}, {"CFBundleExecutable", "Nestora"}};
    if (!state.startsWith(QLatin1String("no ")))
        info.insert(QStringLiteral("CFBundleVersion"), state);
    if (state != QLatin1String("no program"))
        QVERIFY(KVTestFiles::writeFile(path + QStringLiteral("/Contents/MacOS/Nestora"), "#!/bin/sh\n"));
    const QString infoPath = path + QStringLiteral("/Contents/Info.plist");
    QDir().mkpath(QFileInfo(infoPath).path());
    if (state != QLatin1String("no Info.plist"))
        QVERIFY(KVPropertyList::writeDictionary(infoPath, info));
}

// The names of the sections that are not null.
QStringList namesOf(const QList<KVINISectionPtr> &sections)
{
    QStringList names;
    for (const KVINISectionPtr &section : sections)
        if (section)
            names << section->name();
    return names;
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

        // The installed installer is 1.0.0; "index" are the entries of [Mac_Installer], the last names the target.
        const auto release = [](const QString &index, const QString &body) {
            return "[Mac_Installer]\n" + index + "\n[" + index.section('=', -1) + "]\n" + body;
        };
        const auto row = [](const char *name, const QString &manifest, const char *osVersion, const QString &due) {
            QTest::newRow(name) << manifest << QByteArray(osVersion) << due;
        };
        const QString due = QStringLiteral("Mac_Installer_1.1.0");
        const QString listed = release("1.0.0=" + due, "OSSupport=10.15;11.2");
        const QString all = release("1.0.0=" + due, "OSSupport=All");
        row("listed system, higher version", listed, "11.2", due);
        row("system not listed", listed, "12.0", {});
        row("All matches every system", all, "12.0", due);
        row("blank after semicolon does not match", release("1.0.0=" + due, "OSSupport=10.14; 10.15"), "10.15", {});
        row("no OSSupport", release("1.0.0=" + due, "URL=x"), "11.2", {});
        row("missing target section", "[Mac_Installer]\n1.0.0=" + due, "11.2", {});
        row("same version is not due", release("1.0.0=Mac_Installer_1.0", "OSSupport=All"), "11.2", {});
        row("Debug chooses the target", release("1.0.0=" + due + "\nDebug=Mac_Installer_2.0", "OSSupport=All"), "11.2",
            "Mac_Installer_2.0");
        row("Debug target still compared", release("Debug=Mac_Installer_0.5", "OSSupport=All"), "11.2", {});
        row("no entry for the installed version", release("0.9.0=" + due, "OSSupport=All"), "11.2", {});
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
        const auto row = [&](const char *name, const QString &entries, const char *installed, const QString &due) {
            QTest::newRow(name) << "[Mac_Application]\n" + entries + "\n" + releases << QString::fromLatin1(installed)
                                << due;
        };
        const QString older = QStringLiteral("Mac_Application_2.0.5"), newer = QStringLiteral("Mac_Application_2.1.1");
        row("first installation", "LatestVersion=" + older, "absent", older);
        row("installed is newer", "LatestVersion=" + older, "2.1", {});
        row("installed is older", "LatestVersion=" + newer, "2.1", newer);
        row("a file in its place", "LatestVersion=" + older, "file", older);
        row("bundle without version is never updated", "LatestVersion=" + newer, "no version", {});
        // A damaged installation counts as none, whatever its version, and is installed again.
        row("no Info.plist", "LatestVersion=" + older, "no Info.plist", older);
        row("no program", "LatestVersion=" + older, "no program", older);
        row("per-system entry wins", "LatestVersion=" + older + "\nLatestVersion_11.2=" + newer, "absent", newer);
        row("other system's entry is skipped", "LatestVersion_10.15=" + newer + "\nLatestVersion=" + older, "absent",
            older);
        row("last fallback item wins", "LatestVersion=" + newer + "\nNote=" + older, "absent", older);
        row("Debug wins", "LatestVersion_11.2=" + newer + "\nDebug=" + older, "absent", older);
        row("release section missing", "LatestVersion=Mac_Application_3.0", "absent", {});
        row("target without deployment path", "Debug=Mac_Application", "absent", {});
        QTest::newRow("no application index") << releases << "absent" << QString();
    }

    void applicationCheck()
    {
        QFETCH(QString, manifest);
        QFETCH(QString, installed);
        QFETCH(QString, due);

        install(KVTestInstallation::applicationPath(), installed);
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

        install(KVTestInstallation::pluginFolder() + QStringLiteral("/Backup.vexaplugin"), installedBackup);
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

        const auto row = [](const char *name, const QString &manifest, const QVariantMap &history,
                            const QStringList &due) { QTest::newRow(name) << manifest << history << due; };
        const QString all =
            "[Device_XML]\nLatestVersion=3\n[Device_Icon]\nLatestVersion=2.1\n[Smart_Cards]\nLatestVersion=5\n";
        const QVariantMap current{{"Device_XML", "3"}, {"Device_Icon", "2.1"}, {"Smart_Cards", "5"}};
        const QStringList everything{"Device_XML", "Device_Icon", "Smart_Cards"};
        row("never deployed: all due", all, {}, everything);
        row("never deployed, whatever the version", "[Device_XML]\nLatestVersion=0\n[Device_Icon]\n[Smart_Cards]\n", {},
            everything);
        row("all current", all, current, {});
        row("older history", all, {{"Device_XML", "2.9"}, {"Device_Icon", "2.1"}, {"Smart_Cards", "4.9.9"}},
            {"Device_XML", "Smart_Cards"});
        row("newer history", all, {{"Device_XML", "4"}, {"Device_Icon", "3"}, {"Smart_Cards", "6"}}, {});
        row("no LatestVersion once deployed", "[Device_XML]\n[Device_Icon]\n[Smart_Cards]\n", current, {});
        row("no data sections", "[Other]\na=b\n", current, {});
    }

    void dataItemChecks()
    {
        QFETCH(QString, manifest);
        QFETCH(QVariantMap, history);
        QFETCH(QStringList, due);

        QVERIFY(KVTestInstallation::writeHistory(history));
        expectDecision(
            manifest,
            [](KVUpdateHelper &engine) {
                return engine.checkDeviceXMLAndIconUpdate() << engine.checkSmartCardsUpdate();
            },
            due);
    }

    void asynchronousCheck_data()
    {
        QTest::addColumn<bool>("installer");      // the installer's own check, else the deliverables check
        QTest::addColumn<QByteArray>("manifest"); // null: none is served
        QTest::addColumn<QVariantMap>("history");
        QTest::addColumn<QStringList>("due");
        QTest::addColumn<QStringList>("launchArguments"); // empty: the application is installed but not launched
        const auto row = [](const char *name, bool installer, const QByteArray &manifest, const QVariantMap &history,
                            const QStringList &due, const QStringList &launchArguments) {
            QTest::newRow(name) << installer << manifest << history << due << launchArguments;
        };

        // Listed in another order than the check reports them.
        const QByteArray dataItems =
            "[Smart_Cards]\nLatestVersion=1\n[Device_Icon]\nLatestVersion=1\n[Device_XML]\nLatestVersion=2\n";
        row("installer due", true, "[Mac_Installer]\n1.0.0=Mac_Installer_1.1.0\n[Mac_Installer_1.1.0]\nOSSupport=All\n",
            {}, {"Mac_Installer_1.1.0"}, {});
        row("installer, manifest missing", true, {}, {}, {}, {});
        row("sections in order", false,
            dataItems + "[Mac_Application]\nLatestVersion=Mac_Application_9.0\n[Mac_Application_9.0]\nURL=a\n",
            {{"Device_XML", "1"}}, {"Mac_Application_9.0", "Device_XML", "Device_Icon", "Smart_Cards"}, {});
        row("failure launches nothing", false, {}, {}, {}, {});
        row("nothing due hands over to the application", false,
            "[Mac_Application]\nLatestVersion=Mac_Application_0.0.1\n[Mac_Application_0.0.1]\nURL=a\n" + dataItems,
            {{"Device_XML", "2"}, {"Device_Icon", "1"}, {"Smart_Cards", "1"}}, {},
            {"-KVWindowOrigin", "40", "60", "-InstallerLaunchDate", "1700000000"});
    }

    void asynchronousCheck()
    {
        QFETCH(bool, installer);
        QFETCH(QByteArray, manifest);
        QFETCH(QVariantMap, history);
        QFETCH(QStringList, due);
        QFETCH(QStringList, launchArguments);
        const KVError error = manifest.isNull()
                                  ? KVError(KVURLErrorDomain, KVURLErrorConnectionFailed, {{KVHTTPStatusKey, 404}})
                                  : KVError();

        if (due.isEmpty()) // an installed application is never due: it has no version
            QVERIFY(KVTestCompanion::install(KVTestInstallation::applicationPath()));
        QVERIFY(KVTestInstallation::writeHistory(history));
        m_server.setResponse(QStringLiteral("/manifest.ini"), {manifest.isNull() ? 404 : 200, manifest, {}, {}, 0});
        KVUserDefaults::standardUserDefaults().setObject(QStringLiteral("InstallerLastLaunchDate"),
                                                         QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
        KVUpdateHelper engine(m_server.url(QStringLiteral("/manifest.ini")));
        QStringList events;
        engine.setHost(KVTestHost([&] { events << "terminate"; }, [] { return QPointF(40, 60); }));

        bool returned = false;
        const auto delivered = [&](const QStringList &names, const KVError &checkError) {
            QVERIFY(KVDispatch::isMainThread());
            QVERIFY(returned); // never from inside the call
            QCOMPARE(names, due);
            QCOMPARE(checkError.domain(), error.domain());
            QCOMPARE(checkError.code(), error.code());
            events << "handler";
        };
        engine.queue().sync([] {}); // the queue is idle: the check runs as soon as it is submitted
        if (installer)
            engine.checkInstallerUpdateWithcompletionHandler(
                [&](KVINISectionPtr section, KVError checkError) { delivered(namesOf({section}), checkError); });
        else
            engine.checkUpdateWithcompletionHandler(
                [&](QList<KVINISectionPtr> sections, KVError checkError) { delivered(namesOf(sections), checkError); });
        returned = true;
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
