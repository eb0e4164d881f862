#include "App/Model/KVUpdateHelper.h"
#include "KVLogCapture.h"
#include "KVTestHttpServer.h"
#include "KVTestSandbox.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"

#include <QDir>
#include <QFile>
#include <QTcpServer>

using namespace std::chrono_literals;

// Where the engine finds its manifest, how it fetches and reuses it, and the error of every way
// the fetch can fail.
class ManifestFetchTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup() { KVUpdateHelper::setNetworkTimeout(60s); }

    void choosesManifestAddress_data();
    void choosesManifestAddress();
    void fetchesOnceAndReuses();
    void reportsEveryFailure_data();
    void reportsEveryFailure();
    void missingAddressIsCodeTwoWithReason();
    void loadsHistory();

private:
    // A fake installer bundle in the sandbox whose Info.plist carries the given AppUpdateURL.
    void makeMainBundle(const QString &appUpdateURL);
    static KVError fetch(KVUpdateHelper &engine, bool force = false);
};

void ManifestFetchTest::init()
{
    KVTestSandbox::current().reset();
    makeMainBundle(QStringLiteral("http://127.0.0.1:9/bundle.ini"));
}

void ManifestFetchTest::makeMainBundle(const QString &appUpdateURL)
{
    const QString bundle = KVTestSandbox::current().root() + QStringLiteral("/NestoraInstaller.app");
    QDir().mkpath(bundle + QStringLiteral("/Contents"));
    QVariantMap info{{QStringLiteral("CFBundleVersion"), QStringLiteral("1.0.0")}};
    if (!appUpdateURL.isNull())
        info.insert(QStringLiteral("AppUpdateURL"), appUpdateURL);
    QVERIFY(KVPropertyList::writeDictionary(bundle + QStringLiteral("/Contents/Info.plist"), info));
    KVBundle::setMainBundlePath(bundle);
}

KVError ManifestFetchTest::fetch(KVUpdateHelper &engine, bool force)
{
    KVError error;
    engine.queue().sync([&] { engine.downloadUpdateINI(force, &error); });
    return error;
}

static void writeTestServerFile(const QByteArray &content)
{
    QFile file(KVTestSandbox::current().home() + QStringLiteral("/Downloads/TestServerForVexa.txt"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(content);
}

void ManifestFetchTest::choosesManifestAddress_data()
{
    QTest::addColumn<QByteArray>("testServerFile"); // empty: none; "<dir>": a folder of that name
    QTest::addColumn<QString>("expectedURL");
    QTest::addColumn<QString>("expectedLog");

    const QString bundleURL = QStringLiteral("http://127.0.0.1:9/bundle.ini");
    QTest::newRow("no file: bundle") << QByteArray() << bundleURL << QString();
    QTest::newRow("test server file wins") << QByteArray(R"({"ApplicationUpdate": "http://127.0.0.1:1/t.ini"})")
                                           << "http://127.0.0.1:1/t.ini" << QString();
    QTest::newRow("a folder is ignored silently") << QByteArray("<dir>") << bundleURL << QString();
    QTest::newRow("invalid JSON") << QByteArray("{not json") << bundleURL << "KVUpdateHelper invalid test configs file at %1";
    QTest::newRow("key missing") << QByteArray(R"({"Other": 1})") << bundleURL
                                 << "KVUpdateHelper invalid app update url in JSON file at %1";
}

void ManifestFetchTest::choosesManifestAddress()
{
    QFETCH(QByteArray, testServerFile);
    QFETCH(QString, expectedURL);
    QFETCH(QString, expectedLog);

    const QString path = KVTestSandbox::current().home() + QStringLiteral("/Downloads/TestServerForVexa.txt");
    if (testServerFile == "<dir>")
        QDir().mkpath(path);
    else if (!testServerFile.isEmpty())
        writeTestServerFile(testServerFile);

    KVLogCapture log;
    KVUpdateHelper engine(KVUpdateHelper::testServerUpdateURL());
    QCOMPARE(engine.updateURL().toString(), expectedURL);
    if (!expectedLog.isEmpty())
        QVERIFY2(log.contains(expectedLog.arg(path)), qPrintable(log.messages().join('\n')));
    else
        QVERIFY(log.messages().isEmpty());
}

void ManifestFetchTest::fetchesOnceAndReuses()
{
    KVTestHttpServer server;
    server.setFile(QStringLiteral("/manifest.ini"), "[Mac_Installer]\n1.0.0=Mac_Installer_1.1\n[Device_XML]\nLatestVersion=3\n");
    KVUpdateHelper engine(server.url(QStringLiteral("/manifest.ini")));

    QVERIFY(fetch(engine).isNull());
    QCOMPARE(engine.INI()->sections().size(), 2);
    QVERIFY(fetch(engine).isNull());
    QCOMPARE(server.requestCount(QStringLiteral("/manifest.ini")), 1);

    // Forcing fetches again and replaces the document.
    server.setFile(QStringLiteral("/manifest.ini"), "[Smart_Cards]\nLatestVersion=1\n");
    QVERIFY(fetch(engine, true).isNull());
    QCOMPARE(server.requestCount(QStringLiteral("/manifest.ini")), 2);
    QCOMPARE(engine.INI()->sections().first()->name(), QStringLiteral("Smart_Cards"));
}

void ManifestFetchTest::reportsEveryFailure_data()
{
    QTest::addColumn<KVTestHttpServer::Response>("response");
    QTest::addColumn<QString>("domain");
    QTest::addColumn<qint64>("code");
    QTest::addColumn<bool>("keepsEarlierManifest");

    using B = KVTestHttpServer::Behaviour;
    QTest::newRow("404") << KVTestHttpServer::Response{404, "missing", {}, B::Answer, 0} << KVURLErrorDomain << qint64(2) << true;
    QTest::newRow("500") << KVTestHttpServer::Response{500, "", {}, B::Answer, 0} << KVURLErrorDomain << qint64(2) << true;
    QTest::newRow("empty 200") << KVTestHttpServer::Response{200, "", {}, B::Answer, 0} << KVUpdateHelperErrorDomain << qint64(2) << false;
    QTest::newRow("no sections") << KVTestHttpServer::Response{200, "a=b\ngarbage", {}, B::Answer, 0}
                                 << KVUpdateHelperErrorDomain << qint64(2) << false;
    QTest::newRow("not UTF-8") << KVTestHttpServer::Response{200, "[S]\na=\xff\xfe\xc3", {}, B::Answer, 0}
                               << KVUpdateHelperErrorDomain << qint64(2) << false;
    QTest::newRow("binary") << KVTestHttpServer::Response{200, QByteArray("\x89PNG\r\n\x1a\n\0\0[x]", 14), {}, B::Answer, 0}
                            << KVUpdateHelperErrorDomain << qint64(2) << false;
    QTest::newRow("stalls") << KVTestHttpServer::Response{200, {}, {}, B::Stall, 0} << KVURLErrorDomain << qint64(-1001) << true;
    QTest::newRow("closed without answer") << KVTestHttpServer::Response{200, {}, {}, B::CloseAtOnce, 0}
                                           << KVURLErrorDomain << qint64(-1005) << true;
}

void ManifestFetchTest::reportsEveryFailure()
{
    QFETCH(KVTestHttpServer::Response, response);
    QFETCH(QString, domain);
    QFETCH(qint64, code);
    QFETCH(bool, keepsEarlierManifest);

    KVUpdateHelper::setNetworkTimeout(300ms);
    KVTestHttpServer server;
    server.setFile(QStringLiteral("/manifest.ini"), "[Smart_Cards]\nLatestVersion=1\n");
    KVUpdateHelper engine(server.url(QStringLiteral("/manifest.ini")));
    QVERIFY(fetch(engine).isNull());

    server.setResponse(QStringLiteral("/manifest.ini"), response);
    const KVError error = fetch(engine, true);
    QCOMPARE(error.domain(), domain);
    QCOMPARE(error.code(), code);
    // A failed transfer leaves the earlier manifest; a body that parses to nothing replaces it.
    QCOMPARE(engine.INI()->sections().size(), keepsEarlierManifest ? 1 : 0);
    // An empty document always fetches again, even without force.
    if (!keepsEarlierManifest) {
        (void)fetch(engine);
        QCOMPARE(server.requestCount(QStringLiteral("/manifest.ini")), 3);
    }
}

void ManifestFetchTest::missingAddressIsCodeTwoWithReason()
{
    makeMainBundle(QString());
    KVLogCapture log;
    KVUpdateHelper engine{QUrl()};
    QVERIFY(log.contains(QStringLiteral("KVUpdateHelper: invalid update url (null) in user defaults")));
    const KVError error = fetch(engine);
    QCOMPARE(error.domain(), KVUpdateHelperErrorDomain);
    QCOMPARE(error.code(), 2);
    QCOMPARE(error.localizedFailureReason(), QStringLiteral("update URL not found"));

    // Connection refused: nothing listens on a port that was just closed.
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

void ManifestFetchTest::loadsHistory()
{
    {
        KVUpdateHelper engine{QUrl()};
        QVERIFY(engine.history().isEmpty());
        QVERIFY(!QFile::exists(engine.archive())); // nothing written until a data item is deployed
    }
    const QString archive = KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora/UpdateHistory.plist");
    QDir().mkpath(QFileInfo(archive).absolutePath());
    QVERIFY(KVPropertyList::writeDictionary(archive, {{QStringLiteral("Device_XML"), QStringLiteral("4.2")}}));
    KVUpdateHelper engine{QUrl()};
    QCOMPARE(engine.archive(), archive);
    QCOMPARE(engine.history().value(QStringLiteral("Device_XML")).toString(), QStringLiteral("4.2"));

    // A damaged history reads as empty.
    QFile damaged(archive);
    QVERIFY(damaged.open(QIODevice::WriteOnly));
    damaged.write("<plist><dict><key>x");
    damaged.close();
    QVERIFY(KVUpdateHelper{QUrl()}.history().isEmpty());
}

NESTORA_TEST_MAIN(ManifestFetchTest)
#include "tst_manifestfetch.moc"
