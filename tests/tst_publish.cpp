#include "App/Model/KVINI.h"
#include "KVTestFiles.h"
#include "KVTestProcess.h"
#include "KVTestSandbox.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QRegularExpression>
#include <QtEndian>

#include <sodium.h>

namespace {

KVTestProcess::Outcome publish(const QStringList &arguments)
{
    return KVTestProcess::run(QStringList{QStringLiteral(NESTORA_PUBLISH_TOOL)} + arguments);
}

QString inSandbox(const QString &name)
{
    return KVTestSandbox::current().root() + QLatin1Char('/') + name;
}

QString deliverables()
{
    return inSandbox(QStringLiteral("deliverables"));
}

// Writes the file, making its folder, and returns its path.
QString writeFile(const QString &path, const QByteArray &content)
{
    if (!KVTestFiles::writeFile(path, content))
        qFatal("cannot write %s", qPrintable(path));
    return path;
}

QString writeDeliverable(const QString &name, const QByteArray &content)
{
    return writeFile(deliverables() + QLatin1Char('/') + name, content);
}

QString writeDescription(const QByteArray &json)
{
    return writeFile(inSandbox(QStringLiteral("description.json")), json);
}

KVINI readManifest(const QString &path)
{
    return KVINI(QString::fromUtf8(KVTestFiles::readFile(path)));
}

QString hex(const QByteArray &content, QCryptographicHash::Algorithm algorithm)
{
    return QString::fromLatin1(QCryptographicHash::hash(content, algorithm).toHex());
}

// A description with a base URL and the given deliverables.
QByteArray based(const QByteArray &deliverables)
{
    return R"({"baseURL": "http://h/", )" + deliverables + "}";
}

// A key pair made by the minisign tool, without a password: <base>.pub and <base>.key.
QString makeKeyPair(const QString &name)
{
    const QString base = inSandbox(name);
    const KVTestProcess::Outcome run =
        KVTestProcess::run({"minisign", "-G", "-f", "-W", "-p", base + ".pub", "-s", base + ".key"});
    if (!run.succeeded())
        qFatal("minisign -G failed: %s", qPrintable(run.errors));
    return base;
}

// The key file of a key pair made with -W, encrypted with the password as minisign encrypts it,
// but with cheap scrypt limits: minisign's own take seconds and a gigabyte on purpose.
QByteArray encryptedKey(const QByteArray &keyFile, const QByteArray &password)
{
    QByteArray key = QByteArray::fromBase64(keyFile.split('\n').value(1));
    key.replace(2, 2, "Sc");
    auto *bytes = reinterpret_cast<unsigned char *>(key.data());
    randombytes_buf(bytes + 6, crypto_pwhash_scryptsalsa208sha256_SALTBYTES);
    qToLittleEndian<quint64>(crypto_pwhash_scryptsalsa208sha256_OPSLIMIT_INTERACTIVE, bytes + 38);
    qToLittleEndian<quint64>(crypto_pwhash_scryptsalsa208sha256_MEMLIMIT_INTERACTIVE, bytes + 46);
    // Key id and secret key, then their checksum, which minisign leaves empty in an unencrypted key.
    const QByteArray checked = "Ed" + key.mid(54, 72);
    crypto_generichash(bytes + 126, 32, reinterpret_cast<const unsigned char *>(checked.constData()),
                       size_t(checked.size()), nullptr, 0);
    QByteArray stream(104, Qt::Uninitialized);
    if (crypto_pwhash_scryptsalsa208sha256(reinterpret_cast<unsigned char *>(stream.data()), 104, password.constData(),
                                           size_t(password.size()), bytes + 6,
                                           crypto_pwhash_scryptsalsa208sha256_OPSLIMIT_INTERACTIVE,
                                           crypto_pwhash_scryptsalsa208sha256_MEMLIMIT_INTERACTIVE) != 0)
        qFatal("scrypt failed");
    for (int i = 0; i < 104; ++i)
        key[54 + i] = char(key[54 + i] ^ stream[i]);
    return "untrusted comment: encrypted test key\n" + key.toBase64() + '\n';
}

} // namespace

// The publishing tool, run as a program: the manifest it writes for every kind of deliverable, read
// back with the installer's own parser; how it refuses bad input without touching an existing manifest;
// its signatures and checks of a published folder, interchangeable with the minisign tool's.
class PublishTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void publishesEveryKind();
    void addressesFilesBelowTheBaseURL_data();
    void addressesFilesBelowTheBaseURL();
    void refusesBadInput_data();
    void refusesBadInput();
    void verifiesPublication_data();
    void verifiesPublication();
    void signsWithEncryptedKey_data();
    void signsWithEncryptedKey();
};

void PublishTest::init()
{
    KVTestSandbox::current().reset();
    QDir(deliverables()).removeRecursively();
    QVERIFY(QDir().mkpath(deliverables()));
}

void PublishTest::publishesEveryKind()
{
    const QList<std::pair<QString, QByteArray>> files{{"NestoraInstaller-1.1.0.zip", QByteArray(70000, 'i')},
                                                      {"app/Nestora-2.2.0.zip", "application 2.2.0"},
                                                      {"app/Nestora-2.1.5.zip", "application 2.1.5"},
                                                      {"Backup-1.2.zip", "backup 1.2"},
                                                      {"devices.xml", "<devices/>"},
                                                      {"icons.zip", ""},
                                                      {"cards.json", "[]"}};
    for (const auto &[name, content] : files)
        writeDeliverable(name, content);
    const QString description = writeDescription(R"({
        "baseURL": "http://updates.example.com/nestora/",
        "installer": {
            "releases": [{"version": "1.1.0", "file": "NestoraInstaller-1.1.0.zip", "osSupport": ["11.2", "12.0"]}],
            "updateFrom": {"1.0.0": "1.1.0", "1.0.5": "1.1.0"}, "debug": "1.1.0"},
        "application": {
            "releases": [{"version": "2.1.5", "file": "app/Nestora-2.1.5.zip"},
                         {"version": "2.2.0", "file": "app/Nestora-2.2.0.zip", "osSupport": "All"}],
            "latestForSystem": {"10.15": "2.1.5"}, "debug": "2.1.5"},
        "modules": {"Backup": {"releases": [{"version": "1.2", "file": "Backup-1.2.zip"}]}},
        "deviceXML": {"version": "5", "file": "devices.xml"},
        "deviceIcons": {"version": "3.1", "file": "icons.zip"},
        "smartCards": {"version": "7", "file": "cards.json"}})");

    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    const KVTestProcess::Outcome run = publish({deliverables(), description});
    const QDateTime after = QDateTime::currentDateTimeUtc().addSecs(1);
    QVERIFY2(run.exitStatus == 0, qPrintable(run.errors));
    QVERIFY(run.output.contains(QStringLiteral("(11 sections)")));
    const KVINI manifest = readManifest(deliverables() + QStringLiteral("/manifest.ini"));
    // By default the serial is the time of publication, and the manifest expires 30 days later.
    const KVINISectionPtr freshness = manifest.sections().value(0);
    QVERIFY(freshness && freshness->name() == "Manifest" && freshness->items().size() == 2);
    const qint64 serial = freshness->valueForKey("Serial").toLongLong();
    QVERIFY(serial >= before.toSecsSinceEpoch() && serial <= after.toSecsSinceEpoch());
    const QDateTime expires = QDateTime::fromString(freshness->valueForKey("Expires"), Qt::ISODate);
    QVERIFY(expires.timeSpec() == Qt::UTC && expires >= before.addDays(30) && expires <= after.addDays(30));
    // The rest read back with the installer's parser, one "section: key=value|…" entry per section, in order.
    QStringList sections;
    for (const KVINISectionPtr &section : manifest.sections().mid(1)) {
        QStringList items;
        for (const KVINIItem &item : section->items())
            items << item.description();
        sections << section->name() + ": " + items.join('|');
    }
    const QString url = QStringLiteral("URL=http://updates.example.com/nestora/");
    const auto digest = [&](int file) {
        return "|MD5=" + hex(files[file].second, QCryptographicHash::Md5) +
               "|SHA256=" + hex(files[file].second, QCryptographicHash::Sha256);
    };
    // "LatestVersion" comes last: it is the fallback the installer takes when no other key fits.
    QCOMPARE(
        sections,
        QStringList({"Mac_Installer: Debug=Mac_Installer_1.1.0|1.0.0=Mac_Installer_1.1.0|1.0.5=Mac_Installer_1.1.0",
                     "Mac_Installer_1.1.0: " + url + "NestoraInstaller-1.1.0.zip|Bytes=70000" + digest(0) +
                         "|OSSupport=11.2;12.0",
                     "Mac_Application: LatestVersion_10.15=Mac_Application_2.1.5|Debug=Mac_Application_2.1.5|"
                     "LatestVersion=Mac_Application_2.2.0",
                     "Mac_Application_2.1.5: " + url + "app/Nestora-2.1.5.zip|Bytes=17" + digest(2) + "|OSSupport=All",
                     "Mac_Application_2.2.0: " + url + "app/Nestora-2.2.0.zip|Bytes=17" + digest(1) + "|OSSupport=All",
                     "Mac_Module_Backup: LatestVersion=Mac_Module_Backup_1.2",
                     "Mac_Module_Backup_1.2: " + url + "Backup-1.2.zip|Bytes=10" + digest(3) + "|OSSupport=All",
                     "Device_XML: LatestVersion=5|" + url + "devices.xml|Bytes=10" + digest(4),
                     "Device_Icon: LatestVersion=3.1|" + url + "icons.zip|Bytes=0" + digest(5),
                     "Smart_Cards: LatestVersion=7|" + url + "cards.json|Bytes=2" + digest(6)}));
}

void PublishTest::addressesFilesBelowTheBaseURL_data()
{
    QTest::addColumn<QString>("baseURL");
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("url");
    const auto row = [](const char *name, const char *base, const char *file, const char *url) {
        QTest::newRow(name) << QString(base) << QString(file) << QString(url);
    };
    row("base with slash", "https://cdn.example.com/n/", "d.xml", "https://cdn.example.com/n/d.xml");
    row("base without slash is still a folder", "http://127.0.0.1:8741/updates", "d.xml",
        "http://127.0.0.1:8741/updates/d.xml");
    row("blanks and percent signs are encoded", "http://h/", "Nestora 2%.xml", "http://h/Nestora%202%25.xml");
    row("sub-folder", "http://h/u/", "data/./d.xml", "http://h/u/data/d.xml");
}

void PublishTest::addressesFilesBelowTheBaseURL()
{
    QFETCH(QString, baseURL);
    QFETCH(QString, file);
    QFETCH(QString, url);
    writeDeliverable(QDir::cleanPath(file), "<devices/>");
    const QString description = writeDescription(
        QStringLiteral(R"({"baseURL": "http://ignored.example.com/", "deviceXML": {"version": "1", "file": "%1"}})")
            .arg(file)
            .toUtf8());
    const QString output = inSandbox(QStringLiteral("out.ini"));
    const KVTestProcess::Outcome run = publish({"--base-url", baseURL, "-o", output, deliverables(), description});
    QVERIFY2(run.exitStatus == 0, qPrintable(run.errors));
    QCOMPARE(readManifest(output).sectionWithName("Device_XML")->valueForKey("URL"), url);
}

void PublishTest::refusesBadInput_data()
{
    QTest::addColumn<QByteArray>("description"); // "<none>": no such file; "<usage>": not even named
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");
    const auto refuse = [](const char *name, const QByteArray &description, const char *message,
                           const QStringList &options = {}, int exitCode = 1) {
        QTest::newRow(name) << description << options << exitCode << QString(message);
    };
    const QByteArray cards = based(R"("smartCards": {"version": "7", "file": "cards.json"})");
    refuse("missing deliverable", based(R"("deviceXML": {"version": "1", "file": "gone.xml"})"),
           "deviceXML: cannot read the deliverable");
    refuse("file outside the folder", based(R"("deviceXML": {"version": "1", "file": "../d.json"})"),
           "deviceXML.file must name a file inside the deliverables folder");
    refuse("no description named", "<usage>", "expected a deliverables folder and a description", {}, 2);
    refuse("expiry no number", cards, "--expires-in-days must be a whole number from 1 to 36500, not \"soon\"",
           {"--expires-in-days", "soon"}, 2);
    refuse("missing description", "<none>", "cannot read the description");
    refuse("nothing described", R"({"baseURL": "http://h/"})", "the description names no deliverable");
    refuse("misspelt key", based(R"("smartCards": {"verison": "7", "file": "cards.json"})"),
           "unknown key \"verison\" in smartCards");
    refuse("no base URL", R"({"smartCards": {"version": "7", "file": "cards.json"}})",
           "the base URL must be an http or https address");
    refuse("latest is no release",
           based(R"("application": {"releases": [{"version": "2", "file": "cards.json"}], "latest": "3"})"),
           "application.latest names version 3, which is not among the releases");
    refuse("installer offered to nobody",
           based(R"("installer": {"releases": [{"version": "2", "file": "cards.json"}]})"),
           "installer needs \"updateFrom\"");
    refuse("output folder missing", cards, "cannot write the manifest",
           {"--output", inSandbox("no-such-folder/manifest.ini")});
    refuse("signing key missing", cards, "cannot sign with", {"--sign", inSandbox("none.key")});
    refuse("verify without a key", cards, "--verify takes a manifest and --key", {"--verify", "manifest.ini"}, 2);
}

void PublishTest::refusesBadInput()
{
    QFETCH(QByteArray, description);
    QFETCH(QStringList, options);
    QFETCH(int, exitCode);
    QFETCH(QString, message);
    writeDeliverable(QStringLiteral("cards.json"), "[]");
    writeDeliverable(QStringLiteral("../d.json"), "{}");
    // A manifest already being served must survive every refusal unchanged.
    const QByteArray servedManifest = "[Smart_Cards]\nLatestVersion=6\n";
    const QString servedPath = writeDeliverable(QStringLiteral("manifest.ini"), servedManifest);

    QStringList arguments = options << deliverables();
    if (description == "<none>")
        arguments << inSandbox(QStringLiteral("missing.json"));
    else if (description != "<usage>")
        arguments << writeDescription(description);
    const KVTestProcess::Outcome run = publish(arguments);
    QCOMPARE(run.exitStatus, exitCode);
    QVERIFY2(run.errors.startsWith(QStringLiteral("nestora-publish: ")) && run.errors.contains(message),
             qPrintable(run.errors));
    QVERIFY(run.output.isEmpty());

    QCOMPARE(KVTestFiles::readFile(servedPath), servedManifest);
    QCOMPARE(QDir(deliverables()).entryList(QDir::Files), QStringList({"cards.json", "manifest.ini"}));
}

void PublishTest::verifiesPublication_data()
{
    QTest::addColumn<QString>("tamper"); // what happens between publishing and checking
    QTest::addColumn<QString>("from");   // "edit" and "re-sign": a pattern of the manifest…
    QTest::addColumn<QString>("to");     // …and what replaces it
    QTest::addColumn<int>("exitStatus");
    QTest::addColumn<QString>("message"); // a pattern of what the check prints
    const auto row = [](const char *name, const char *tamper, const char *from, const char *to, int exitStatus,
                        const char *message) {
        QTest::newRow(name) << QString(tamper) << QString(from) << QString(to) << exitStatus << QString(message);
    };
    row("as published", "", "", "", 0, "manifest.ini verified with key [0-9A-F]{16} \\(0 warning");
    row("one byte of the manifest changed", "edit", "LatestVersion=7", "LatestVersion=8", 1,
        "manifest.ini: error: the data was changed after it was signed");
    row("signed by another key", "other key", "", "", 1, "error: the signature was made with key");
    row("no signature", "unsigned", "", "", 1, "error: the signature .*manifest.ini.minisig cannot be read");
    row("deliverable changed", "deliverable", "", "", 1, "manifest.ini:\\d+: error: MD5=\\w+, but cards.json has");
    // Edited and signed again with the minisign tool: its signatures verify as well.
    row("expired", "re-sign", "Expires=[^\\n]*", "Expires=2020-01-01T00:00:00Z", 1,
        "manifest.ini:3: error: the manifest expired");
    row("no SHA-256", "re-sign", "SHA256=\\w+\\n", "", 1, "error: \\[Smart_Cards\\] has no SHA256");
    row("blanks around =", "re-sign", "\\nBytes=", "\nBytes = ", 0, ":\\d+: warning: blanks around \"=\"");
    row("header in the wrong case", "re-sign", "\\[Smart_Cards\\]", "[smart_cards]", 0,
        "warning: the installer ignores \\[smart_cards\\]: section names are case-sensitive, it reads "
        "\\[Smart_Cards\\]");
    row("misspelt key", "re-sign", "LatestVersion=7", "LatestVerison=7", 0,
        "warning: unknown key \"LatestVerison\" in \\[Smart_Cards\\] \\(did you mean \"LatestVersion\"\\?\\)");
    row("blank in OSSupport", "re-sign", "OSSupport=All", "OSSupport=11.2; 12.0", 0,
        "warning: blank in the OSSupport list");
    row("index names a missing release", "re-sign", "=Mac_Application_2\\n", "=Mac_Application_3\n", 0,
        ":\\d+: warning: LatestVersion=Mac_Application_3 names a section that is not in this manifest");
}

void PublishTest::verifiesPublication()
{
    QFETCH(QString, tamper);
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(int, exitStatus);
    QFETCH(QString, message);
    writeDeliverable(QStringLiteral("cards.json"), "[]");
    writeDeliverable(QStringLiteral("app.zip"), "application");
    const QString description = writeDescription(based(R"("application": {"releases": [{"version": "2", "file":
        "app.zip"}]}, "smartCards": {"version": "7", "file": "cards.json"})"));
    const QString key = makeKeyPair(QStringLiteral("release"));
    const KVTestProcess::Outcome published = publish({"--sign", key + ".key", deliverables(), description});
    QVERIFY2(published.succeeded(), qPrintable(published.errors));
    const QString manifest = deliverables() + QStringLiteral("/manifest.ini");

    if (tamper == "edit" || tamper == "re-sign") {
        QString text = QString::fromUtf8(KVTestFiles::readFile(manifest));
        QVERIFY(text.contains(QRegularExpression(from)));
        writeFile(manifest, text.replace(QRegularExpression(from), to).toUtf8());
        if (tamper == "re-sign")
            QVERIFY(KVTestProcess::run({"minisign", "-S", "-s", key + ".key", "-m", manifest}).succeeded());
    } else if (tamper == "unsigned") {
        QVERIFY(QFile::remove(manifest + ".minisig"));
    } else if (tamper == "deliverable") {
        writeDeliverable(QStringLiteral("cards.json"), "{}"); // the same size
    }
    const QString verifyingKey = tamper == "other key" ? makeKeyPair(QStringLiteral("other")) : key;
    const KVTestProcess::Outcome run = publish({"--verify", manifest, "--key", verifyingKey + ".pub"});
    QCOMPARE(run.exitStatus, exitStatus);
    QVERIFY2((run.output + run.errors).contains(QRegularExpression(message)), qPrintable(run.output + run.errors));
    // The standard tool accepts what the publishing tool signs.
    if (tamper.isEmpty())
        QVERIFY(KVTestProcess::run({"minisign", "-V", "-m", manifest, "-p", key + ".pub"}).succeeded());
}

void PublishTest::signsWithEncryptedKey_data()
{
    QTest::addColumn<QByteArray>("password"); // null: NESTORA_SIGN_PASSWORD unset
    QTest::addColumn<int>("exitStatus");
    QTest::addColumn<QString>("message");
    QTest::newRow("right password") << QByteArray("correct horse") << 0 << "signed with key";
    QTest::newRow("wrong password") << QByteArray("correct hose") << 1 << "release.key: wrong password";
    QTest::newRow("no password and no terminal")
        << QByteArray() << 1 << "is protected by a password: set NESTORA_SIGN_PASSWORD";
}

void PublishTest::signsWithEncryptedKey()
{
    QFETCH(QByteArray, password);
    QFETCH(int, exitStatus);
    QFETCH(QString, message);
    writeDeliverable(QStringLiteral("cards.json"), "[]");
    const QString description = writeDescription(based(R"("smartCards": {"version": "7", "file": "cards.json"})"));
    const QString key = makeKeyPair(QStringLiteral("release"));
    writeFile(key + ".key", encryptedKey(KVTestFiles::readFile(key + ".key"), "correct horse"));

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("NESTORA_SIGN_PASSWORD"));
    if (!password.isNull())
        environment.insert(QStringLiteral("NESTORA_SIGN_PASSWORD"), QString::fromUtf8(password));
    const KVTestProcess::Outcome run = KVTestProcess::run(
        {NESTORA_PUBLISH_TOOL, "--sign", key + ".key", deliverables(), description}, 120000, {}, environment);
    QCOMPARE(run.exitStatus, exitStatus);
    QVERIFY2((run.output + run.errors).contains(message), qPrintable(run.output + run.errors));
    // Nothing is published with a key that cannot sign.
    const QString manifest = deliverables() + QStringLiteral("/manifest.ini");
    QCOMPARE(QFile::exists(manifest), exitStatus == 0);
    if (exitStatus == 0)
        QVERIFY(KVTestProcess::run({"minisign", "-V", "-m", manifest, "-p", key + ".pub"}).succeeded());
}

NESTORA_TEST_MAIN(PublishTest)
#include "tst_publish.moc"
