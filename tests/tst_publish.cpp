#include "App/Model/KVINI.h"
#include "KVTestSandbox.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>

// The publishing tool, run as a program: the manifest it writes for every kind of deliverable,
// read back with the installer's own parser, and how it refuses bad input without touching an
// existing manifest.
class PublishTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void init();

    void publishesEveryKind();
    void addressesFilesBelowTheBaseURL_data();
    void addressesFilesBelowTheBaseURL();
    void refusesBadInput_data();
    void refusesBadInput();

private:
    struct Run {
        int exitCode = -1;
        QString output;
        QString errors;
    };
    static Run publish(const QStringList &arguments);
    QString deliverables() const { return KVTestSandbox::current().root() + QStringLiteral("/deliverables"); }
    QString writeDeliverable(const QString &name, const QByteArray &content) const;
    QString writeDescription(const QByteArray &json) const;
};

PublishTest::Run PublishTest::publish(const QStringList &arguments) {
    QProcess tool;
    tool.start(QStringLiteral(NESTORA_PUBLISH_TOOL), arguments);
    if (!tool.waitForFinished(60000) || tool.exitStatus() != QProcess::NormalExit)
        return {};
    return {tool.exitCode(), QString::fromUtf8(tool.readAllStandardOutput()),
            QString::fromUtf8(tool.readAllStandardError())};
}

void PublishTest::init() {
    KVTestSandbox::current().reset();
    QDir(deliverables()).removeRecursively();
    QVERIFY(QDir().mkpath(deliverables()));
}

QString PublishTest::writeDeliverable(const QString &name, const QByteArray &content) const {
    const QString path = deliverables() + QLatin1Char('/') + name;
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

QString PublishTest::writeDescription(const QByteArray &json) const {
    const QString path = KVTestSandbox::current().root() + QStringLiteral("/description.json");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(json) != json.size())
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

static QString md5(const QByteArray &content) {
    return QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
}

static QStringList itemTexts(const KVINISectionPtr &section) {
    QStringList texts;
    for (const KVINIItem &item : section->items())
        texts << item.description();
    return texts;
}

void PublishTest::publishesEveryKind() {
    const QByteArray installer(70000, 'i');
    const QByteArray application = QByteArrayLiteral("application 2.2.0");
    const QByteArray oldApplication = QByteArrayLiteral("application 2.1.5");
    const QByteArray plugIn = QByteArrayLiteral("backup 1.2");
    const QByteArray devices = QByteArrayLiteral("<devices/>");
    const QByteArray icons;
    const QByteArray cards = QByteArrayLiteral("[]");
    writeDeliverable(QStringLiteral("NestoraInstaller-1.1.0.zip"), installer);
    writeDeliverable(QStringLiteral("app/Nestora-2.2.0.zip"), application);
    writeDeliverable(QStringLiteral("app/Nestora-2.1.5.zip"), oldApplication);
    writeDeliverable(QStringLiteral("Backup-1.2.zip"), plugIn);
    writeDeliverable(QStringLiteral("devices.xml"), devices);
    writeDeliverable(QStringLiteral("icons.zip"), icons);
    writeDeliverable(QStringLiteral("cards.json"), cards);
    const QString description = writeDescription(R"({
        "baseURL": "http://updates.example.com/nestora/",
        "installer": {
            "releases": [{"version": "1.1.0", "file": "NestoraInstaller-1.1.0.zip", "osSupport": ["11.2", "12.0"]}],
            "updateFrom": {"1.0.0": "1.1.0", "1.0.5": "1.1.0"},
            "debug": "1.1.0"
        },
        "application": {
            "releases": [{"version": "2.1.5", "file": "app/Nestora-2.1.5.zip"},
                         {"version": "2.2.0", "file": "app/Nestora-2.2.0.zip", "osSupport": "All"}],
            "latestForSystem": {"10.15": "2.1.5"},
            "debug": "2.1.5"
        },
        "modules": {"Backup": {"releases": [{"version": "1.2", "file": "Backup-1.2.zip"}]}},
        "deviceXML": {"version": "5", "file": "devices.xml"},
        "deviceIcons": {"version": "3.1", "file": "icons.zip"},
        "smartCards": {"version": "7", "file": "cards.json"}
    })");

    const Run run = publish({deliverables(), description});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
    QFile manifestFile(deliverables() + QStringLiteral("/manifest.ini"));
    QVERIFY(manifestFile.open(QIODevice::ReadOnly));
    const KVINI manifest(QString::fromUtf8(manifestFile.readAll()));

    QStringList names;
    for (const KVINISectionPtr &section : manifest.sections())
        names << section->name();
    QCOMPARE(names, QStringList({"Mac_Installer", "Mac_Installer_1.1.0", "Mac_Application",
                                 "Mac_Application_2.1.5", "Mac_Application_2.2.0", "Mac_Module_Backup",
                                 "Mac_Module_Backup_1.2", "Device_XML", "Device_Icon", "Smart_Cards"}));

    const QString base = QStringLiteral("http://updates.example.com/nestora/");
    QCOMPARE(
        itemTexts(manifest.sectionWithName("Mac_Installer")),
        QStringList({"Debug=Mac_Installer_1.1.0", "1.0.0=Mac_Installer_1.1.0", "1.0.5=Mac_Installer_1.1.0"}));
    QCOMPARE(itemTexts(manifest.sectionWithName("Mac_Installer_1.1.0")),
             QStringList({"URL=" + base + "NestoraInstaller-1.1.0.zip", "Bytes=70000",
                          "MD5=" + md5(installer), "OSSupport=11.2;12.0"}));
    // "LatestVersion" comes last: it is the fallback the installer takes when no other key fits.
    QCOMPARE(itemTexts(manifest.sectionWithName("Mac_Application")),
             QStringList({"LatestVersion_10.15=Mac_Application_2.1.5", "Debug=Mac_Application_2.1.5",
                          "LatestVersion=Mac_Application_2.2.0"}));
    QCOMPARE(itemTexts(manifest.sectionWithName("Mac_Application_2.2.0")),
             QStringList({"URL=" + base + "app/Nestora-2.2.0.zip", "Bytes=17", "MD5=" + md5(application),
                          "OSSupport=All"}));
    QCOMPARE(manifest.sectionWithName("Mac_Application_2.1.5")->valueForKey("MD5"), md5(oldApplication));
    QCOMPARE(itemTexts(manifest.sectionWithName("Mac_Module_Backup")),
             QStringList({"LatestVersion=Mac_Module_Backup_1.2"}));
    QCOMPARE(manifest.sectionWithName("Mac_Module_Backup_1.2")->valueForKey("MD5"), md5(plugIn));
    QCOMPARE(
        itemTexts(manifest.sectionWithName("Device_XML")),
        QStringList({"LatestVersion=5", "URL=" + base + "devices.xml", "Bytes=10", "MD5=" + md5(devices)}));
    QCOMPARE(itemTexts(manifest.sectionWithName("Device_Icon")),
             QStringList({"LatestVersion=3.1", "URL=" + base + "icons.zip", "Bytes=0",
                          "MD5=d41d8cd98f00b204e9800998ecf8427e"}));
    QCOMPARE(manifest.sectionWithName("Smart_Cards")->valueForKey("URL"), base + "cards.json");
    QVERIFY(run.output.contains(QStringLiteral("(10 sections)")));
}

void PublishTest::addressesFilesBelowTheBaseURL_data() {
    QTest::addColumn<QString>("baseURL");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("url");

    QTest::newRow("base with slash") << "https://cdn.example.com/n/"
                                     << "d.xml"
                                     << "https://cdn.example.com/n/d.xml";
    QTest::newRow("base without slash is still a folder") << "http://127.0.0.1:8741/updates"
                                                          << "d.xml"
                                                          << "http://127.0.0.1:8741/updates/d.xml";
    QTest::newRow("server root") << "http://127.0.0.1:8741"
                                 << "d.xml"
                                 << "http://127.0.0.1:8741/d.xml";
    QTest::newRow("blanks and percent signs are encoded") << "http://h/"
                                                          << "Nestora 2%.xml"
                                                          << "http://h/Nestora%202%25.xml";
    QTest::newRow("sub-folder") << "http://h/u/"
                                << "data/./d.xml"
                                << "http://h/u/data/d.xml";
}

void PublishTest::addressesFilesBelowTheBaseURL() {
    QFETCH(QString, baseURL);
    QFETCH(QString, file);
    QFETCH(QString, url);

    writeDeliverable(QDir::cleanPath(file), "<devices/>");
    const QString description = writeDescription(QStringLiteral(R"({"baseURL": "http://ignored.example.com/",
                                            "deviceXML": {"version": "1", "file": "%1"}})")
                                                     .arg(file)
                                                     .toUtf8());
    const QString output = KVTestSandbox::current().root() + QStringLiteral("/out.ini");
    const Run run = publish(
        {QStringLiteral("--base-url"), baseURL, QStringLiteral("-o"), output, deliverables(), description});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
    QFile manifestFile(output);
    QVERIFY(manifestFile.open(QIODevice::ReadOnly));
    QCOMPARE(
        KVINI(QString::fromUtf8(manifestFile.readAll())).sectionWithName("Device_XML")->valueForKey("URL"),
        url);
}

void PublishTest::refusesBadInput_data() {
    QTest::addColumn<QByteArray>("description"); // "<none>": no such file; "<usage>": not even named
    QTest::addColumn<QString>("output");         // relative to the sandbox; empty: the default
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");

    const QByteArray base = R"("baseURL": "http://h/", )";
    const QByteArray cards = "{" + base + R"("smartCards": {"version": "7", "file": "cards.json"}})";
    QTest::newRow("missing deliverable")
        << "{" + base + R"("deviceXML": {"version": "1", "file": "gone.xml"}})"
        << "" << 1 << "deviceXML: cannot read the deliverable";
    QTest::newRow("a folder is no deliverable")
        << "{" + base + R"("deviceXML": {"version": "1", "file": "sub"}})"
        << "" << 1 << "deviceXML: cannot read the deliverable";
    QTest::newRow("file outside the folder")
        << "{" + base + R"("deviceXML": {"version": "1", "file": "../d.json"}})"
        << "" << 1 << "deviceXML.file must name a file inside the deliverables folder";
    QTest::newRow("no description named")
        << QByteArray("<usage>") << "" << 2 << "expected a deliverables folder and a description";
    QTest::newRow("missing description") << QByteArray("<none>") << "" << 1 << "cannot read the description";
    QTest::newRow("not JSON") << QByteArray("{\"smartCards\": ") << "" << 1 << "is not valid JSON";
    QTest::newRow("not an object") << QByteArray("[1]") << "" << 1 << "must hold a JSON object";
    QTest::newRow("nothing described") << "{" + base.chopped(2) + "}"
                                       << "" << 1 << "the description names no deliverable";
    QTest::newRow("misspelt key") << "{" + base + R"("smartCards": {"verison": "7", "file": "cards.json"}})"
                                  << "" << 1 << "unknown key \"verison\" in smartCards";
    QTest::newRow("no base URL") << QByteArray(R"({"smartCards": {"version": "7", "file": "cards.json"}})")
                                 << "" << 1 << "the base URL must be an http or https address";
    QTest::newRow("ftp base URL")
        << QByteArray(R"({"baseURL": "ftp://h/", "smartCards": {"version": "7", "file": "cards.json"}})")
        << "" << 1 << "the base URL must be an http or https address";
    QTest::newRow("underscore in a version")
        << "{" + base + R"("application": {"releases": [{"version": "2_1", "file": "cards.json"}]}})"
        << "" << 1 << "application.releases[0].version must be a non-empty text without blanks";
    QTest::newRow("blank in a system version")
        << "{" + base +
               R"("application": {"releases": [{"version": "2", "file": "cards.json", "osSupport": ["10.14", " 10.15"]}]}})"
        << "" << 1 << "application.releases[0].osSupport must be a non-empty text";
    QTest::newRow("latest is no release")
        << "{" + base +
               R"("application": {"releases": [{"version": "2", "file": "cards.json"}], "latest": "3"}})"
        << "" << 1 << "application.latest names version 3, which is not among the releases";
    QTest::newRow("version listed twice")
        << "{" + base +
               R"("modules": {"B": {"releases": [{"version": "2", "file": "cards.json"}, {"version": "2", "file": "cards.json"}]}}})"
        << "" << 1 << "modules.B.releases[1]: version 2 is listed twice";
    QTest::newRow("underscore in a module name")
        << "{" + base + R"("modules": {"My_Backup": {"releases": [{"version": "2", "file": "cards.json"}]}}})"
        << "" << 1 << "modules.My_Backup must be a non-empty text";
    QTest::newRow("installer offered to nobody")
        << "{" + base + R"("installer": {"releases": [{"version": "2", "file": "cards.json"}]}})"
        << "" << 1 << "installer needs \"updateFrom\"";
    QTest::newRow("installer updates to an unknown release")
        << "{" + base +
               R"("installer": {"releases": [{"version": "2", "file": "cards.json"}], "updateFrom": {"1": "3"}}})"
        << "" << 1 << "installer.updateFrom.1 names version 3";
    QTest::newRow("output folder missing")
        << cards << "no-such-folder/manifest.ini" << 1 << "cannot write the manifest";
    QTest::newRow("output is a folder") << cards << "deliverables" << 1 << "cannot write the manifest";
}

void PublishTest::refusesBadInput() {
    QFETCH(QByteArray, description);
    QFETCH(QString, output);
    QFETCH(int, exitCode);
    QFETCH(QString, message);

    writeDeliverable(QStringLiteral("cards.json"), "[]");
    QVERIFY(QDir().mkpath(deliverables() + QStringLiteral("/sub")));
    writeDeliverable(QStringLiteral("../d.json"), "{}");
    // A manifest already being served must survive every refusal unchanged.
    const QByteArray servedManifest = "[Smart_Cards]\nLatestVersion=6\n";
    const QString servedPath = writeDeliverable(QStringLiteral("manifest.ini"), servedManifest);

    const QString descriptionPath = description == "<none>"
                                        ? KVTestSandbox::current().root() + QStringLiteral("/missing.json")
                                        : writeDescription(description);
    QStringList arguments{deliverables()};
    if (description != "<usage>")
        arguments << descriptionPath;
    if (!output.isEmpty())
        arguments << QStringLiteral("--output")
                  << KVTestSandbox::current().root() + QLatin1Char('/') + output;
    const Run run = publish(arguments);
    QCOMPARE(run.exitCode, exitCode);
    QVERIFY2(run.errors.startsWith(QStringLiteral("nestora-publish: ")) && run.errors.contains(message),
             qPrintable(run.errors));
    QVERIFY(run.output.isEmpty());

    QFile served(servedPath);
    QVERIFY(served.open(QIODevice::ReadOnly));
    QCOMPARE(served.readAll(), servedManifest);
    QCOMPARE(QDir(deliverables()).entryList(QDir::Files), QStringList({"cards.json", "manifest.ini"}));
}

NESTORA_TEST_MAIN(PublishTest)
#include "tst_publish.moc"
