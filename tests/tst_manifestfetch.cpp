#include "App/Model/KVMinisign.h"
#include "App/Model/KVUpdateHelper.h"
#include "KVTestFiles.h"
#include "KVTestHttpServer.h"
#include "KVTestSandbox.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"

#include <QDir>
#include <QFile>
#include <QTcpServer>

using namespace std::chrono_literals;

namespace {

// A fake installer bundle in the sandbox whose Info.plist carries the given AppUpdateURL.
void makeMainBundle(const QString &appUpdateURL)
{
    const QString bundle = KVTestSandbox::current().root() + QStringLiteral("/NestoraInstaller.app");
    QDir().mkpath(bundle + QStringLiteral("/Contents"));
    QVariantMap info{{"CFBundleVersion", "1.0.0"}};
    if (!appUpdateURL.isNull())
        info.insert(QStringLiteral("AppUpdateURL"), appUpdateURL);
    QVERIFY(KVPropertyList::writeDictionary(bundle + QStringLiteral("/Contents/Info.plist"), info));
    KVBundle::setMainBundlePath(bundle);
}

KVError fetch(KVUpdateHelper &engine, bool force = false)
{
    KVError error;
    engine.queue().sync([&] { engine.downloadUpdateINI(force, &error); });
    return error;
}

} // namespace

// Where the engine finds its manifest, how it fetches and reuses it, and the error of every way
// the fetch can fail.
class ManifestFetchTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        KVTestSandbox::current().reset();
        makeMainBundle(QStringLiteral("http://127.0.0.1:9/bundle.ini"));
    }
    void cleanup() { KVUpdateHelper::setNetworkTimeout(60s); }

    void choosesManifestAddress_data()
    {
        QTest::addColumn<QByteArray>("testServerFile"); // empty: none; "<dir>": a folder of that name
        QTest::addColumn<QString>("expectedURL");

        const QString bundleURL = QStringLiteral("http://127.0.0.1:9/bundle.ini");
        QTest::newRow("no file: bundle") << QByteArray() << bundleURL;
        QTest::newRow("test server file wins")
            << QByteArray("{\"ApplicationUpdate\": \"http://127.0.0.1:1/t.ini\"}") << "http://127.0.0.1:1/t.ini";
        QTest::newRow("a folder is ignored") << QByteArray("<dir>") << bundleURL;
        QTest::newRow("invalid JSON") << QByteArray("{not json") << bundleURL;
        QTest::newRow("key missing") << QByteArray("{\"Other\": 1}") << bundleURL;
    }

    void choosesManifestAddress()
    {
        QFETCH(QByteArray, testServerFile);
        QFETCH(QString, expectedURL);

        const QString path = KVTestSandbox::current().home() + QStringLiteral("/Downloads/TestServerForVexa.txt");
        if (testServerFile == "<dir>")
            QVERIFY(QDir().mkpath(path));
        else if (!testServerFile.isEmpty())
            QVERIFY(KVTestFiles::writeFile(path, testServerFile));

        QCOMPARE(KVUpdateHelper(KVUpdateHelper::testServerUpdateURL()).updateURL().toString(), expectedURL);
    }

    // Known answers of the minisign tool (key pair made with -G, "hello\n" signed with -t "tc here").
    void readsSignatureFormat_data()
    {
        QTest::addColumn<QByteArray>("publicKey");
        QTest::addColumn<QByteArray>("signature");
        QTest::addColumn<bool>("verifies");

        const QByteArray key = "untrusted comment: minisign public key ED3CA3DE65935A75\n"
                               "RWR1WpNl3qM87Y85KMnHZhd/uw4EU1T8W2USVBNemK1CPA8mumjqexTB\n";
        const QByteArray line =
            "RUR1WpNl3qM87ZXRYx6t9o0hTbO2hMvDdkCg95XriJerqVmlx7DyT8DKIt38Au596XlHa9fRRCwY97sUED5zBk8gRdjk"
            "EiS2xQo=";
        const QByteArray global =
            "OTH4mFjxjzO3SlorhGDsuFgChNzXrSCgskjxrJx5apybQtwHw7ATfXjPfkvBSTa1w27l9+g+dTNjr50LVqUqDQ==";
        const QByteArray good = "untrusted comment: any\n" + line + "\ntrusted comment: tc here\n" + global + "\n";
        QTest::newRow("as the tool writes it") << key << good << true;
        QTest::newRow("key line alone, no final line end") << key.split('\n')[1] << good.chopped(1) << true;
        QTest::newRow("CRLF") << QByteArray(key).replace("\n", "\r\n") << QByteArray(good).replace("\n", "\r\n")
                              << true;
        QTest::newRow("another key") << QByteArray("RWSCsS1zbtEX8xILs3qczuBdRlH7QG2YJDJBwW0Lizb4MzEE1ktJ5Nem") << good
                                     << false;
        QTest::newRow("trusted comment altered") << key << QByteArray(good).replace("tc here", "tc hero") << false;
        QTest::newRow("no trusted comment") << key << "untrusted comment: any\n" + line + "\n" + global + "\n" << false;
        QTest::newRow("legacy kind") << key << QByteArray(good).replace("RUR1", "RWR1") << false;
        QTest::newRow("cut base64") << key << QByteArray(good).replace(line, line.left(60)) << false;
        QTest::newRow("cut key") << key.left(80) << good << false;
    }

    void readsSignatureFormat()
    {
        QFETCH(QByteArray, publicKey);
        QFETCH(QByteArray, signature);
        QFETCH(bool, verifies);

        const KVResult<KVMinisign::PublicKey> key = KVMinisign::PublicKey::fromText(publicKey);
        const KVResult<KVMinisign::Signature> parsed = KVMinisign::Signature::fromText(signature);
        const bool verified = key && parsed && parsed->verify("hello\n", *key).ok();
        QCOMPARE(verified, verifies);
        if (verifies) {
            QCOMPARE(KVMinisign::keyIdText(key->keyId), QStringLiteral("ED3CA3DE65935A75"));
            QCOMPARE(parsed->trustedComment, QStringLiteral("tc here"));
            QVERIFY(!parsed->verify("hello", *key)); // one byte less
            // Written back, it is the tool's file again.
            QCOMPARE(parsed->toText(),
                     QByteArray(signature).replace("\r", "").append(signature.endsWith('\n') ? "" : "\n"));
        }
    }

    void fetchesOnceAndReuses()
    {
        KVTestHttpServer server;
        server.setFile("/manifest.ini", "[Mac_Installer]\n1.0.0=Mac_Installer_1.1\n[Device_XML]\nLatestVersion=3\n");
        KVUpdateHelper engine(server.url("/manifest.ini"));

        QVERIFY(fetch(engine).isNull());
        QCOMPARE(engine.INI()->sections().size(), 2);
        QVERIFY(fetch(engine).isNull());
        QCOMPARE(server.requestCount("/manifest.ini"), 1);

        // Forcing fetches again and replaces the document.
        server.setFile("/manifest.ini", "[Smart_Cards]\nLatestVersion=1\n");
        QVERIFY(fetch(engine, true).isNull());
        QCOMPARE(server.requestCount("/manifest.ini"), 2);
        QCOMPARE(engine.INI()->sections().first()->name(), QStringLiteral("Smart_Cards"));
    }

    void reportsEveryFailure_data()
    {
        QTest::addColumn<KVTestHttpServer::Response>("response");
        QTest::addColumn<QString>("domain");
        QTest::addColumn<qint64>("code");
        QTest::addColumn<bool>("keepsEarlierManifest");

        using R = KVTestHttpServer::Response;
        using B = KVTestHttpServer::Behaviour;
        const QString url = KVURLErrorDomain, helper = KVUpdateHelperErrorDomain;
        QTest::newRow("404") << R{404, "missing", {}, B::Answer, 0} << url << qint64(KVURLErrorConnectionFailed)
                             << true;
        QTest::newRow("empty 200") << R{200, "", {}, B::Answer, 0} << helper
                                   << qint64(KVUpdateHelperErrorManifestUnavailable) << false;
        QTest::newRow("no sections") << R{200, "a=b\ngarbage", {}, B::Answer, 0} << helper
                                     << qint64(KVUpdateHelperErrorManifestUnavailable) << false;
        QTest::newRow("not UTF-8") << R{200, "[S]\na=\xff\xfe\xc3", {}, B::Answer, 0} << helper
                                   << qint64(KVUpdateHelperErrorManifestUnavailable) << false;
        QTest::newRow("binary") << R{200, QByteArray("\x89PNG\r\n\x1a\n\0\0[x]", 14), {}, B::Answer, 0} << helper
                                << qint64(KVUpdateHelperErrorManifestUnavailable) << false;
        QTest::newRow("stalls") << R{200, {}, {}, B::Stall, 0} << url << qint64(-1001) << true;
        QTest::newRow("closed without answer") << R{200, {}, {}, B::CloseAtOnce, 0} << url << qint64(-1005) << true;
        // Read up to a ceiling of 4 MiB, whatever the server sends.
        const QByteArray lines = QByteArray("[S]\n") + QByteArray(64 << 10, 'x') + '\n';
        QTest::newRow("endless") << R{200, lines, {}, B::Endless, 0} << helper
                                 << qint64(KVUpdateHelperErrorManifestUnavailable) << true;
        QTest::newRow("over the ceiling") << R{200, lines.repeated(65) + "[T]\n", {}, B::Answer, 0} << helper
                                          << qint64(KVUpdateHelperErrorManifestUnavailable) << true;
    }

    void reportsEveryFailure()
    {
        QFETCH(KVTestHttpServer::Response, response);
        QFETCH(QString, domain);
        QFETCH(qint64, code);
        QFETCH(bool, keepsEarlierManifest);

        KVUpdateHelper::setNetworkTimeout(300ms);
        KVTestHttpServer server;
        server.setFile("/manifest.ini", "[Smart_Cards]\nLatestVersion=1\n");
        KVUpdateHelper engine(server.url("/manifest.ini"));
        QVERIFY(fetch(engine).isNull());

        server.setResponse("/manifest.ini", response);
        const KVError error = fetch(engine, true);
        QCOMPARE(error.domain(), domain);
        QCOMPARE(error.code(), code);
        // A failed transfer leaves the earlier manifest; a body that parses to nothing replaces it.
        QCOMPARE(engine.INI()->sections().size(), keepsEarlierManifest ? 1 : 0);
        // An empty document always fetches again, even without force.
        if (!keepsEarlierManifest) {
            (void)fetch(engine);
            QCOMPARE(server.requestCount("/manifest.ini"), 3);
        }
    }

    void missingAddressOrRefusedConnection()
    {
        makeMainBundle(QString());
        KVUpdateHelper engine{QUrl()};
        const KVError error = fetch(engine);
        QCOMPARE(error.domain(), KVUpdateHelperErrorDomain);
        QCOMPARE(error.code(), 2);
        QCOMPARE(error.localizedFailureReason(), QStringLiteral("update URL not found"));

        // Nothing listens on a port that was just closed.
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const quint16 port = closed.serverPort();
        closed.close();
        KVUpdateHelper refused(QUrl(QStringLiteral("http://127.0.0.1:%1/m.ini").arg(port)));
        const KVError refusedError = fetch(refused);
        QCOMPARE(refusedError.domain(), KVURLErrorDomain);
        QCOMPARE(refusedError.code(), -1004);
        QVERIFY(!refused.INI());
    }
};

NESTORA_TEST_MAIN(ManifestFetchTest)
#include "tst_manifestfetch.moc"
