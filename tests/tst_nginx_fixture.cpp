#include "App/Model/KVUpdateHelper.h"
#include "KVNginxServer.h"
#include "KVTestHttpServer.h"
#include "KVTestSandbox.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTcpSocket>

namespace {

QString documentRoot()
{
    return KVTestSandbox::current().root() + QStringLiteral("/www");
}

void writeFile(const QString &name, const QByteArray &content)
{
    QFile file(documentRoot() + QLatin1Char('/') + name);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), content.size());
}

const QByteArray publishedDescription = R"({
    "application": {"releases": [{"version": "2.2.0", "file": "Nestora-2.2.0.zip"}]},
    "deviceXML": {"version": "4", "file": "devices.xml"}})";

KVError fetchManifest(KVUpdateHelper &engine)
{
    KVError error;
    engine.queue().sync([&] { engine.downloadUpdateINI(false, &error); });
    return error;
}

} // namespace

// The real web server the end-to-end tests stand on: nginx serves a manifest made by the publishing
// tool to the engine's own fetch, answers 404 where told, passes a cut transfer on, and stops with its owner.
class NginxFixtureTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        KVTestSandbox::current().reset();
        QDir(documentRoot()).removeRecursively();
        QVERIFY(QDir().mkpath(documentRoot()));
    }

    void servesPublishedManifestToTheEngine()
    {
        writeFile(QStringLiteral("devices.xml"), "<devices><device id=\"1\"/></devices>");
        writeFile(QStringLiteral("Nestora-2.2.0.zip"), QByteArray(300000, 'z'));
        writeFile(QStringLiteral("description.json"), publishedDescription);
        KVNginxServer nginx(documentRoot());
        QString failure;
        QVERIFY2(nginx.start(&failure), qPrintable(failure));
        QProcess publish;
        publish.start(QStringLiteral(NESTORA_PUBLISH_TOOL),
                      {"--base-url", nginx.url("/").toString(), documentRoot(), documentRoot() + "/description.json"});
        QVERIFY(publish.waitForFinished(60000));
        QVERIFY2(publish.exitCode() == 0, publish.readAllStandardError().constData());

        KVUpdateHelper engine(nginx.url(QStringLiteral("/manifest.ini")));
        const KVError error = fetchManifest(engine);
        QVERIFY2(error.isNull(), qPrintable(error.description()));
        QStringList names;
        for (const KVINISectionPtr &section : engine.INI()->sections())
            names << section->name();
        QCOMPARE(names, QStringList({"Mac_Application", "Mac_Application_2.2.0", "Device_XML"}));
        QCOMPARE(engine.INI()->sectionWithName("Device_XML")->valueForKey("URL"), nginx.url("/devices.xml").toString());
        // The addresses in the manifest lead back to nginx, and what it serves matches the digests.
        for (const char *name : {"Mac_Application_2.2.0", "Device_XML"}) {
            const KVINISectionPtr section = engine.INI()->sectionWithName(name);
            KVError downloadError;
            const QByteArray body = KVUpdateHelper::downloadURL(QUrl(section->valueForKey("URL")), &downloadError);
            QVERIFY2(downloadError.isNull(), qPrintable(downloadError.description()));
            QCOMPARE(QString::number(body.size()), section->valueForKey("Bytes"));
            QCOMPARE(QCryptographicHash::hash(body, QCryptographicHash::Md5).toHex(),
                     section->valueForKey("MD5").toLatin1());
        }
    }

    void answersNotFound_data()
    {
        QTest::addColumn<bool>("ruled"); // the file exists, but nginx is told to answer 404
        QTest::newRow("a file that is not there") << false;
        QTest::newRow("a file told to answer 404") << true;
    }
    void answersNotFound()
    {
        QFETCH(bool, ruled);
        if (ruled)
            writeFile(QStringLiteral("manifest.ini"), "[Smart_Cards]\nLatestVersion=1\n");
        writeFile(QStringLiteral("other.ini"), "[Device_XML]\nLatestVersion=1\n");
        KVNginxServer nginx(documentRoot());
        if (ruled)
            nginx.answerNotFound(QStringLiteral("/manifest.ini"));
        QString failure;
        QVERIFY2(nginx.start(&failure), qPrintable(failure));

        KVUpdateHelper engine(nginx.url(QStringLiteral("/manifest.ini")));
        QCOMPARE(fetchManifest(engine), KVError(KVURLErrorDomain, 2, {{KVHTTPStatusKey, 404}}));
        QVERIFY(!engine.INI());
        // The rule is for that path alone.
        KVUpdateHelper otherEngine(nginx.url(QStringLiteral("/other.ini")));
        QVERIFY(fetchManifest(otherEngine).isNull());
        QVERIFY(otherEngine.INI()->sectionWithName("Device_XML"));
    }

    void cutsTransferHalfway()
    {
        writeFile(QStringLiteral("Nestora.zip"), QByteArray(200000, 'a'));
        KVTestHttpServer misbehaving;
        KVNginxServer nginx(documentRoot());
        nginx.cutHalfway(QStringLiteral("/Nestora.zip"), misbehaving);
        QString failure;
        QVERIFY2(nginx.start(&failure), qPrintable(failure));

        KVError error;
        QVERIFY(KVUpdateHelper::downloadURL(nginx.url(QStringLiteral("/Nestora.zip")), &error).isNull());
        // The connection closes under the announced length: the network connection was lost.
        QCOMPARE(error.domain(), KVURLErrorDomain);
        QCOMPARE(error.code(), -1005);
        QCOMPARE(misbehaving.requestCount(QStringLiteral("/Nestora.zip")), 1);
    }

    void stopsWhenDestroyed()
    {
        quint16 port = 0;
        {
            KVNginxServer nginx(documentRoot());
            QString failure;
            QVERIFY2(nginx.start(&failure), qPrintable(failure));
            port = nginx.port();
            // Everything nginx writes stays in the sandbox.
            const QString pidFile = nginx.stateDirectory() + QStringLiteral("/nginx.pid");
            QVERIFY(QFile::exists(pidFile));
            QVERIFY(pidFile.startsWith(KVTestSandbox::current().root()));
        }
        QTcpSocket probe;
        probe.connectToHost(QHostAddress::LocalHost, port);
        QVERIFY(!probe.waitForConnected(1000));
    }
};

NESTORA_TEST_MAIN(NginxFixtureTest)
#include "tst_nginx_fixture.moc"
