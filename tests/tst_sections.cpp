#include "App/Model/KVINI.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVVersionComparison.h"
#include "KVLogCapture.h"
#include "KVTestFiles.h"
#include "KVTestSandbox.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"

#include <QDir>
#include <QFile>

namespace {

const QUrl kManifestURL(QStringLiteral("http://127.0.0.1:9/manifest.ini"));

QString installerBundlePath()
{
    return KVTestSandbox::current().root() + QStringLiteral("/NestoraInstaller.app");
}

void writeInfo(const QString &bundlePath, const QVariantMap &info)
{
    QDir().mkpath(bundlePath + QStringLiteral("/Contents"));
    QVERIFY(KVPropertyList::writeDictionary(bundlePath + QStringLiteral("/Contents/Info.plist"), info));
}

} // namespace

// The manifest parser and the version comparison every update decision rests on; how the engine
// types manifest sections by name, where each kind is downloaded to and installed, and where it
// finds the installed version of each kind.
class SectionsTest : public QObject
{
    Q_OBJECT

    // Sections render as "name: key=value|key=value", one per entry.
    static QStringList describe(const KVINI &ini)
    {
        QStringList out;
        for (const KVINISectionPtr &section : ini.sections()) {
            QStringList items;
            for (const KVINIItem &item : section->items())
                items << item.description();
            out << section->name() + QStringLiteral(": ") + items.join(QLatin1Char('|'));
        }
        return out;
    }

private Q_SLOTS:
    void init()
    {
        KVTestSandbox::current().reset();
        writeInfo(installerBundlePath(), {{"CFBundleVersion", "1.4.2"}});
        KVBundle::setMainBundlePath(installerBundlePath());
    }

    void parsesSections_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("header and item") << "[A]\nkey=value" << QStringList{"A: key=value"};
        QTest::newRow("null text") << QString() << QStringList{};
        QTest::newRow("blanks around brackets trimmed, inside kept")
            << " \t[ Mac_Application ]  \nk=v" << QStringList{" Mac_Application : k=v"};
        QTest::newRow("empty brackets name the empty string") << "[]\na=b" << QStringList{": a=b"};
        QTest::newRow("item before any header is ignored") << "a=b\n[S]\nc=d" << QStringList{"S: c=d"};
        QTest::newRow("blanks around equals sign are kept") << "[S]\nkey = value" << QStringList{"S: key = value"};
        QTest::newRow("second equals sign stays in the value")
            << "[S]\nURL=http://h/x?a=1&b=2" << QStringList{"S: URL=http://h/x?a=1&b=2"};
        QTest::newRow("repeated sections are not merged") << "[S]\na=1\n[S]\na=2" << QStringList{"S: a=1", "S: a=2"};
        QTest::newRow("repeated keys are all kept") << "[S]\na=1\na=2" << QStringList{"S: a=1|a=2"};
        QTest::newRow("comment signs have no meaning") << "[S]\n;x=1\n#y=2" << QStringList{"S: ;x=1|#y=2"};
        QTest::newRow("CRLF line ends") << "[S]\r\na=1\r\nb=2\r\n" << QStringList{"S: a=1|b=2"};
        QTest::newRow("unicode line separators split lines")
            << QStringLiteral("[S]\u2028a=1\u2029b=2\u0085c=3\fd=4") << QStringList{"S: a=1|b=2|c=3|d=4"};
        QTest::newRow("opening bracket alone is not a header") << "[S]\n[T\na=1" << QStringList{"S: a=1"};
        QTest::newRow("binary garbage gives no section")
            << QString::fromLatin1("\x01\x02=\xff\x00", 4) << QStringList{};
    }
    void parsesSections()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, expected);
        QCOMPARE(describe(KVINI(text)), expected);
    }

    void floodOfInvalidLinesIsLoggedInPart()
    {
        // A manifest of long invalid lines must not flood the log: a few lines, each cut short.
        KVLogCapture log;
        (void)KVINI("[S]\n" + QStringList(1000, QString(5000, QLatin1Char('x'))).join('\n'));
        const QStringList lines = log.messages();
        QVERIFY2(lines.size() > 1 && lines.size() <= 20, qPrintable(QString::number(lines.size())));
        for (const QString &line : lines)
            QVERIFY(line.size() < 300);
    }

    void findsFirstSectionAndFirstKey()
    {
        const KVINI ini(QStringLiteral("[S]\n[S]\nk=2\n[Upper]\nKey=1\nKey=2"));
        QVERIFY(ini.sectionWithName(QStringLiteral("S"))->items().isEmpty()); // the first, though empty
        QCOMPARE(ini.sectionWithName(QStringLiteral("upper")), nullptr);
        const KVINISectionPtr upper = ini.sectionWithName(QStringLiteral("Upper"));
        QCOMPARE(upper->valueForKey(QStringLiteral("Key")), QStringLiteral("1"));
        QVERIFY(upper->valueForKey(QStringLiteral("key")).isNull());
        QVERIFY(KVINI::initWithContentOfFile(QStringLiteral("/etc/hostname")).sections().isEmpty());
    }

    void compareVersion_data()
    {
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("offered");
        QTest::addColumn<int>("expected");
        const std::tuple<const char *, const char *, int> rows[] = {
            {"1.2.3", "1.2.4", -1},              // patch lower
            {"1.2.10", "1.2.9", 1},              // numeric, not textual
            {"2", "2.0.0", 0},                   // trailing zeros
            {"1.0.1", "1", 1},                   // longer is higher
            {"", "0.1", -1},                     // empty counts as 0
            {"1.2beta", "1.2", 0},               // letters after digits ignored
            {"-1", "0", -1},                     // negative component
            {"1..2", "1.0.2", 0},                // a double dot is an empty component
            {" 3", "2", 1},                      // leading blanks skipped
            {"99999999999999999999999", "1", 1}, // a huge component saturates, no overflow
        };
        for (const auto &[installed, offered, expected] : rows)
            QTest::addRow("%s vs %s", installed, offered)
                << QString::fromLatin1(installed) << QString::fromLatin1(offered) << expected;
        QTest::newRow("missing receiver counts as same") << QString() << "9.9" << 0;
    }
    void compareVersion()
    {
        QFETCH(QString, installed);
        QFETCH(QString, offered);
        QFETCH(int, expected);
        QCOMPARE(int(::compareVersion(installed, offered)), expected);
    }

    void typeOfSection_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<long>("type");
        const std::pair<const char *, KVUpdateSectionType> rows[] = {
            {"Mac_Installer", KVUpdateSectionTypeInstaller},
            {"mac_installer", KVUpdateSectionTypeUnknown}, // names are case-sensitive
            {"Mac_Installer_2.0", KVUpdateSectionTypeInstallerRelease},
            {"Mac_InstallerX", KVUpdateSectionTypeUnknown},
            {"Mac_Application", KVUpdateSectionTypeApplication},
            {"Mac_Application_2.1.1", KVUpdateSectionTypeApplicationRelease},
            {"Mac_Module_Backup", KVUpdateSectionTypeModule},
            {"Mac_Module_Backup_1.2", KVUpdateSectionTypeModuleRelease},
            {"Mac_Module_My_Backup_1.2", KVUpdateSectionTypeUnknown}, // a plug-in name has no underscore
            {"Device_XML", KVUpdateSectionTypeDeviceXML},
            {"Device_XML ", KVUpdateSectionTypeUnknown},
            {"Device_Icon", KVUpdateSectionTypeDeviceIcon},
            {"Smart_Cards", KVUpdateSectionTypeSmartCards},
        };
        for (const auto &[name, type] : rows)
            QTest::addRow("'%s'", name) << QString::fromLatin1(name) << long(type);
    }

    void typeOfSection()
    {
        QFETCH(QString, name);
        QFETCH(long, type);
        QCOMPARE(long(KVUpdateHelper(kManifestURL).typeOfSection(KVINISection(name))), type);
    }

    void paths_data()
    {
        // Expected paths start with a folder token: <tmp>, <data> (the data home), <installer>. The
        // fixed places of the other kinds are where the end-to-end runs find what they installed.
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("downloadPath");
        QTest::addColumn<QString>("deploymentPath");

        const auto row = [](const char *name, const char *section, const char *downloadPath,
                            const char *deploymentPath) {
            QTest::newRow(name) << QString::fromLatin1(section) << QString::fromLatin1(downloadPath)
                                << QString::fromLatin1(deploymentPath);
        };
        row("installer release", "Mac_Installer_2.0", "<cache>/keldran-vexa-installer-latest.zip", "<installer>");
        row("plug-in release", "Mac_Module_Backup_1.2", "<cache>/keldran-vexa-Mac_Module_Backup_1.2.zip",
            "<data>/Nestora/PlugIns/Backup.vexaplugin");
        row("installer index", "Mac_Installer", nullptr, nullptr);
        row("unknown", "Readme", nullptr, nullptr);
    }

    void paths()
    {
        QFETCH(QString, name);
        QFETCH(QString, downloadPath);
        QFETCH(QString, deploymentPath);

        const KVTestSandbox &sandbox = KVTestSandbox::current();
        const auto resolved = [&](QString path) {
            return path.replace(QLatin1String("<cache>"), sandbox.root() + QStringLiteral("/cache/Nestora/Downloads"))
                .replace(QLatin1String("<data>"), sandbox.dataHome())
                .replace(QLatin1String("<installer>"), installerBundlePath());
        };
        const KVUpdateHelper engine(kManifestURL);
        const KVINISection section(name);
        QCOMPARE(engine.downloadPathForSection(section), resolved(downloadPath));
        QCOMPARE(engine.deploymentPathForSection(section), resolved(deploymentPath));
        // Asking for a plug-in's place never creates the plug-in folder.
        QCOMPARE(engine.pluginDirectory(), resolved("<data>/Nestora/PlugIns"));
        QVERIFY(!QFileInfo::exists(engine.pluginDirectory()));
    }

    void installedVersions_data()
    {
        QTest::addColumn<QString>("name");         // of the section asked about
        QTest::addColumn<QString>("installed");    // "bundle", "history", "broken history", "file" or "nothing"
        QTest::addColumn<QVariantMap>("contents"); // of the bundle's Info.plist or of the history
        QTest::addColumn<QString>("version");

        const auto row = [](const char *name, const char *section, const char *installed, const QVariantMap &contents,
                            const QString &version) {
            QTest::newRow(name) << QString::fromLatin1(section) << QString::fromLatin1(installed) << contents
                                << version;
        };
        const char *plugIn = "Mac_Module_Backup_1.2";
        const QVariantMap history{{"Device_XML", "3.1"}, {"Device_Icon", "7"}, {"Smart_Cards", qint64(4)}};
        row("installer", "Mac_Installer", "bundle", {{"CFBundleVersion", "1.4.2"}}, "1.4.2");
        row("installer without version", "Mac_Installer", "bundle", {}, {});
        row("plug-in", plugIn, "bundle", {{"CFBundleVersion", "1.1"}}, "1.1");
        row("a file in the plug-in's place", plugIn, "file", {}, {});
        row("plug-in not installed", plugIn, "nothing", {}, {});
        row("plug-in index", "Mac_Module_Backup", "bundle", {{"CFBundleVersion", "1.1"}}, {});
        row("devices, never deployed", "Device_XML", "nothing", {}, {});
        row("devices", "Device_XML", "history", history, "3.1");
        row("a number is no version", "Smart_Cards", "history", history, {});
        row("broken history", "Device_XML", "broken history", history, {});
    }

    void installedVersions()
    {
        QFETCH(QString, name);
        QFETCH(QString, installed);
        QFETCH(QVariantMap, contents);
        QFETCH(QString, version);

        const QString data = KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora");
        const QString history = data + QStringLiteral("/UpdateHistory.plist");
        const QString bundle =
            name == "Mac_Installer" ? installerBundlePath() : data + QStringLiteral("/PlugIns/Backup.vexaplugin");
        if (installed == QLatin1String("bundle"))
            writeInfo(bundle, contents);
        else if (installed == QLatin1String("file"))
            QVERIFY(KVTestFiles::writeFile(bundle, {}));
        else if (installed.endsWith(QLatin1String("history")))
            QVERIFY(QDir().mkpath(data) && KVPropertyList::writeDictionary(history, contents));
        if (installed == QLatin1String("broken history"))
            QVERIFY(KVTestFiles::writeFile(history, "<plist><dict><key>x"));

        const KVUpdateHelper engine(kManifestURL);
        const QMap<QString, std::function<QString()>> readers{
            {"Mac_Installer", [&] { return engine.currentVersion(); }},
            {"Device_XML", [&] { return engine.currentVersionOfDevicesXML(); }},
            {"Device_Icon", [&] { return engine.currentVersionOfDeviceIcons(); }},
            {"Smart_Cards", [&] { return engine.currentVersionOfSmartCard(); }}};
        const auto plugInReader = [&] { return engine.currentVersionOfPlugin(KVINISection(name)); };
        QCOMPARE(readers.value(name, plugInReader)(), version);
        QCOMPARE(QFile::exists(history), installed.endsWith(QLatin1String("history"))); // reading writes nothing
    }
};

NESTORA_TEST_MAIN(SectionsTest)
#include "tst_sections.moc"
