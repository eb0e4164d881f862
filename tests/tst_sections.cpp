#include "App/Model/KVUpdateHelper.h"
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

// How the engine types manifest sections by name, where each kind is downloaded to and installed,
// and where it finds the installed version of each kind.
class SectionsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        KVTestSandbox::current().reset();
        writeInfo(installerBundlePath(), {{"CFBundleVersion", "1.4.2"}});
        KVBundle::setMainBundlePath(installerBundlePath());
    }

    void typeOfSection_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<long>("type");
        const std::pair<const char *, KVUpdateSectionType> rows[] = {
            {"Mac_Installer", KVUpdateSectionTypeInstaller},
            {"mac_installer", KVUpdateSectionTypeUnknown}, // names are case-sensitive
            {"Mac_Installer_2.0", KVUpdateSectionTypeInstallerRelease},
            {"Mac_Installer_", KVUpdateSectionTypeInstallerRelease},
            {"Mac_InstallerX", KVUpdateSectionTypeUnknown},
            {"Mac_Application", KVUpdateSectionTypeApplication},
            {"Mac_Application_2.1.1", KVUpdateSectionTypeApplicationRelease},
            {"Mac_Module_Backup", KVUpdateSectionTypeModule},
            {"Mac_Module_Backup_1.2", KVUpdateSectionTypeModuleRelease},
            {"Mac_Module_My_Backup_1.2", KVUpdateSectionTypeUnknown}, // a plug-in name has no underscore
            {"Mac_Module", KVUpdateSectionTypeUnknown},
            {"Device_XML", KVUpdateSectionTypeDeviceXML},
            {"Device_XML ", KVUpdateSectionTypeUnknown},
            {"Device_Icon", KVUpdateSectionTypeDeviceIcon},
            {"Smart_Cards", KVUpdateSectionTypeSmartCards},
            {"", KVUpdateSectionTypeUnknown},
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

        QTest::newRow("installer release") << "Mac_Installer_2.0"
                                           << "<tmp>/keldran-vexa-installer-latest.zip"
                                           << "<installer>";
        QTest::newRow("plug-in release") << "Mac_Module_Backup_1.2"
                                         << "<tmp>/keldran-vexa-Mac_Module_Backup_1.2.zip"
                                         << "<data>/Nestora/PlugIns/Backup.vexaplugin";
        QTest::newRow("installer index") << "Mac_Installer" << QString() << QString();
        QTest::newRow("unknown") << "Readme" << QString() << QString();
    }

    void paths()
    {
        QFETCH(QString, name);
        QFETCH(QString, downloadPath);
        QFETCH(QString, deploymentPath);

        const KVTestSandbox &sandbox = KVTestSandbox::current();
        const auto resolved = [&](QString path) {
            return path.replace(QLatin1String("<tmp>"), sandbox.temporaryDirectory())
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

    void dataItemVersionsComeFromHistory()
    {
        const QString history = KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora/UpdateHistory.plist");
        {
            const KVUpdateHelper engine(kManifestURL);
            QVERIFY(engine.currentVersionOfDevicesXML().isNull()); // never deployed
            QVERIFY(engine.currentVersionOfDeviceIcons().isNull());
            QVERIFY(engine.currentVersionOfSmartCard().isNull());
            QVERIFY(!QFile::exists(history)); // nothing written until a data item is deployed
        }
        QVERIFY(QDir().mkpath(QFileInfo(history).path()));
        QVERIFY(KVPropertyList::writeDictionary(
            history, {{"Device_XML", "3.1"}, {"Device_Icon", "7"}, {"Smart_Cards", qint64(4)}}));
        const KVUpdateHelper engine(kManifestURL);
        QCOMPARE(engine.archive(), history);
        QCOMPARE(engine.currentVersionOfDevicesXML(), QStringLiteral("3.1"));
        QCOMPARE(engine.currentVersionOfDeviceIcons(), QStringLiteral("7"));
        QVERIFY(engine.currentVersionOfSmartCard().isNull()); // a version is text; anything else is no version

        QVERIFY(KVTestFiles::writeFile(history, "<plist><dict><key>x")); // reads as no history at all
        QVERIFY(KVUpdateHelper(kManifestURL).history().isEmpty());
    }

    void installerVersionIsReadFromMainBundleEachTime()
    {
        const KVUpdateHelper engine(kManifestURL);
        QCOMPARE(engine.currentVersion(), QStringLiteral("1.4.2"));
        writeInfo(installerBundlePath(), {});
        QVERIFY(engine.currentVersion().isNull());
    }

    void pluginVersion_data()
    {
        QTest::addColumn<QString>("installed"); // "bundle", "bundle without version", "file", "nothing"
        QTest::addColumn<QString>("version");

        QTest::newRow("installed bundle") << "bundle"
                                          << "1.1";
        QTest::newRow("bundle without version") << "bundle without version" << QString();
        QTest::newRow("a file in its place") << "file" << QString();
        QTest::newRow("not installed") << "nothing" << QString();
    }

    void pluginVersion()
    {
        QFETCH(QString, installed);
        QFETCH(QString, version);

        const QString plugIn =
            KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora/PlugIns/Backup.vexaplugin");
        if (installed == QLatin1String("bundle"))
            writeInfo(plugIn, {{"CFBundleVersion", "1.1"}});
        else if (installed == QLatin1String("bundle without version"))
            writeInfo(plugIn, {{"CFBundleIdentifier", "com.keldran.backup"}});
        else if (installed == QLatin1String("file"))
            QVERIFY(KVTestFiles::writeFile(plugIn, {}));

        const KVUpdateHelper engine(kManifestURL);
        QCOMPARE(engine.currentVersionOfPlugin(KVINISection(QStringLiteral("Mac_Module_Backup_1.2"))), version);
        QVERIFY(engine.currentVersionOfPlugin(KVINISection(QStringLiteral("Mac_Module_Backup"))).isNull());
    }
};

NESTORA_TEST_MAIN(SectionsTest)
#include "tst_sections.moc"
