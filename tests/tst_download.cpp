// Downloads with progress into files, MD5 digests of files and the digest comparison.

#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVFileHandle+MD5.h"
#include "KVLogCapture.h"
#include "KVTestHttpServer.h"
#include "KVTestMount.h"
#include "KVTestSandbox.h"
#include "Platform/KVUserDefaults.h"

#include <QCryptographicHash>
#include <QRegularExpression>
#include <QSemaphore>

using namespace std::chrono_literals;

namespace {

// The outcome of one download as its callbacks reported it.
struct DownloadResult
{
    bool finished = false;
    QString path;
    KVError error;
    QList<KVTransferProgress> progress;
    bool everyCallbackOnMainThread = true;
};

std::shared_ptr<DownloadResult> startDownload(const QUrl &url, const QString &destination)
{
    auto result = std::make_shared<DownloadResult>();
    KVUpdateHelper::downloadURL(
        url.toString(), destination,
        [result](const KVTransferProgress &progress) {
            result->everyCallbackOnMainThread &= KVDispatch::isMainThread();
            result->progress << progress;
        },
        [result](const QString &path, const KVError &error) {
            result->everyCallbackOnMainThread &= KVDispatch::isMainThread();
            result->finished = true;
            result->path = path;
            result->error = error;
        });
    return result;
}

QByteArray patternedBody(qsizetype size)
{
    QByteArray body(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        body[i] = char((i * 7 + i / 251) & 0xff);
    return body;
}

QStringList filesIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
}

// A handle whose every read fails, as reading a file on a failing disk does.
class UnreadableDevice : public QIODevice
{
protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64) override { return -1; }
};

QString md5Of(const QByteArray &data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

} // namespace

class DownloadTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { KVTestSandbox::current().reset(); }
    void cleanup() { KVUpdateHelper::setNetworkTimeout(60s); }

    void downloadsIntoTheDestination_data();
    void downloadsIntoTheDestination();
    void failedDownloadLeavesNoFile_data();
    void failedDownloadLeavesNoFile();
    void downloadWithoutDestinationGoesToTheTemporaryFolder();
    void engineQueueWaitsWhileCallbacksRunOnTheMainThread();
    void fullDiskFailsWithoutPartialFile();

    void md5OfHandle_data();
    void md5OfHandle();
    void md5OfMissingHandleIsNull();
    void digestComparison_data();
    void digestComparison();
    void verificationSwitchIsReadOnEveryCall();
};

void DownloadTest::downloadsIntoTheDestination_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<qsizetype>("chunkSize");
    QTest::addColumn<bool>("redirected");

    QTest::newRow("file in pieces") << patternedBody(3 * 1024 * 1024 + 17) << qsizetype(64 * 1024) << false;
    QTest::newRow("zero bytes") << QByteArray() << qsizetype(0) << false;
    QTest::newRow("behind a redirect") << patternedBody(70000) << qsizetype(0) << true;
}

void DownloadTest::downloadsIntoTheDestination()
{
    QFETCH(QByteArray, body);
    QFETCH(qsizetype, chunkSize);
    QFETCH(bool, redirected);

    KVTestHttpServer server;
    server.setResponse(QStringLiteral("/file.zip"), {200, body, {}, KVTestHttpServer::Behaviour::Answer, chunkSize});
    server.setRedirect(QStringLiteral("/moved.zip"), server.url(QStringLiteral("/file.zip")));
    const QString destination = KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/download.zip");

    KVLogCapture log;
    const QUrl url = server.url(redirected ? QStringLiteral("/moved.zip") : QStringLiteral("/file.zip"));
    const auto result = startDownload(url, destination);
    QTRY_VERIFY_WITH_TIMEOUT(result->finished, 20000);

    QVERIFY2(!result->error, qPrintable(result->error.description()));
    QCOMPARE(result->path, destination);
    QFile file(destination);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.readAll() == body);
    QCOMPARE(filesIn(KVTestSandbox::current().temporaryDirectory()), QStringList{QStringLiteral("download.zip")});
    QVERIFY(result->everyCallbackOnMainThread);

    // Reports grow to the whole body and agree on its total.
    qint64 previous = 0;
    for (const KVTransferProgress &progress : std::as_const(result->progress)) {
        QVERIFY(progress.completedUnitCount >= previous);
        QCOMPARE(progress.totalUnitCount, qint64(body.size()));
        previous = progress.completedUnitCount;
    }
    if (!body.isEmpty()) {
        QVERIFY(!result->progress.isEmpty());
        QCOMPARE(result->progress.last().completedUnitCount, qint64(body.size()));
    }
    // Progress is reported at least every tenth of a second; the pieces take longer than that.
    if (chunkSize > 0)
        QVERIFY2(result->progress.size() >= 2, qPrintable(QString::number(result->progress.size())));

    QVERIFY(log.contains(QStringLiteral("KVUpdateHelper will download url %1").arg(url.toString())));
    QVERIFY(log.contains(QStringLiteral("KVUpdateHelper did download url %1, error (null)").arg(url.toString())));
}

void DownloadTest::failedDownloadLeavesNoFile_data()
{
    QTest::addColumn<KVTestHttpServer::Response>("response");
    QTest::addColumn<qint64>("code");

    const QByteArray body = patternedBody(200000);
    QTest::newRow("404") << KVTestHttpServer::Response{404, "no such file", {}, {}, 0} << qint64(-1011);
    QTest::newRow("500") << KVTestHttpServer::Response{500, "server broke", {}, {}, 0} << qint64(-1011);
    QTest::newRow("dropped halfway")
        << KVTestHttpServer::Response{200, body, {}, KVTestHttpServer::Behaviour::DropHalfway, 0} << qint64(-1005);
    QTest::newRow("stalled") << KVTestHttpServer::Response{200, body, {}, KVTestHttpServer::Behaviour::Stall, 0}
                             << qint64(-1001);
}

void DownloadTest::failedDownloadLeavesNoFile()
{
    QFETCH(KVTestHttpServer::Response, response);
    QFETCH(qint64, code);

    KVUpdateHelper::setNetworkTimeout(300ms);
    KVTestHttpServer server;
    server.setResponse(QStringLiteral("/file.zip"), response);
    const QString folder = KVTestSandbox::current().temporaryDirectory();

    KVLogCapture log;
    const auto result = startDownload(server.url(QStringLiteral("/file.zip")), folder + QStringLiteral("/file.zip"));
    QTRY_VERIFY_WITH_TIMEOUT(result->finished, 20000);

    QVERIFY2(result->error.domain() == KVURLErrorDomain && result->error.code() == code,
             qPrintable(result->error.description()));
    QVERIFY(result->path.isEmpty());
    QCOMPARE(filesIn(folder), QStringList()); // neither the file nor a temporary part of it
    QVERIFY(result->everyCallbackOnMainThread);
    QVERIFY(log.contains(QStringLiteral("KVUpdateHelper did download url %1, error %2")
                             .arg(server.url(QStringLiteral("/file.zip")).toString(), result->error.description())));
}

void DownloadTest::downloadWithoutDestinationGoesToTheTemporaryFolder()
{
    KVTestHttpServer server;
    server.setFile(QStringLiteral("/data.json"), "{}");

    const auto result = startDownload(server.url(QStringLiteral("/data.json")), QString());
    QTRY_VERIFY(result->finished);

    QVERIFY(!result->error);
    const QFileInfo file(result->path);
    QCOMPARE(file.absolutePath(), KVTestSandbox::current().temporaryDirectory());
    static const QRegularExpression upperCaseUUID(
        QStringLiteral("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$"));
    QVERIFY2(upperCaseUUID.match(file.fileName()).hasMatch(), qPrintable(file.fileName()));
    QCOMPARE(file.size(), 2);
}

void DownloadTest::engineQueueWaitsWhileCallbacksRunOnTheMainThread()
{
    KVTestHttpServer server;
    const QByteArray body = patternedBody(500000);
    server.setResponse(QStringLiteral("/app.zip"), {200, body, {}, KVTestHttpServer::Behaviour::Answer, 64 * 1024});
    const QString destination = KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/app.zip");

    // The way the update run uses the primitive: start it on the queue and block the queue on a
    // semaphore that the completion releases on the main thread.
    KVSerialQueue queue(QStringLiteral("test queue"));
    std::atomic<bool> queueDone = false;
    std::atomic<int> reports = 0;
    QString reportedPath;
    queue.async([&] {
        QSemaphore done;
        KVUpdateHelper::downloadURL(
            server.url(QStringLiteral("/app.zip")).toString(), destination,
            [&](const KVTransferProgress &) { reports += KVDispatch::isMainThread() ? 1 : -1000; },
            [&](const QString &path, const KVError &) {
                reportedPath = KVDispatch::isMainThread() ? path : QString();
                done.release();
            });
        done.acquire();
        queueDone = true;
    });
    QTRY_VERIFY_WITH_TIMEOUT(queueDone, 20000);
    QCOMPARE(reportedPath, destination);
    QVERIFY(reports > 0);
    QCOMPARE(QFileInfo(destination).size(), body.size());
}

void DownloadTest::fullDiskFailsWithoutPartialFile()
{
    const QString folder = KVTestSandbox::current().root() + QStringLiteral("/small-disk");
    QVERIFY(QDir().mkpath(folder));
    const auto disk = KVTestMount::tmpfs(folder, 512 * 1024);
    if (!disk)
        QSKIP("mounting a small file system needs root");

    KVTestHttpServer server;
    server.setResponse(QStringLiteral("/big.zip"),
                       {200, patternedBody(2 * 1024 * 1024), {}, KVTestHttpServer::Behaviour::Answer, 128 * 1024});
    const auto result = startDownload(server.url(QStringLiteral("/big.zip")), folder + QStringLiteral("/big.zip"));
    QTRY_VERIFY_WITH_TIMEOUT(result->finished, 20000);

    QCOMPARE(result->error.domain(), KVCocoaErrorDomain);
    QVERIFY2(result->error.code() == KVFileWriteOutOfSpaceError, qPrintable(result->error.description()));
    QCOMPARE(filesIn(folder), QStringList());
}

void DownloadTest::md5OfHandle_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<qint64>("position");
    QTest::addColumn<QString>("digest");

    const QByteArray large = patternedBody(12 * 1024 * 1024 + 5); // more than two 5 MiB chunks
    QTest::newRow("empty") << QByteArray() << qint64(0) << QStringLiteral("d41d8cd98f00b204e9800998ecf8427e");
    QTest::newRow("abc") << QByteArray("abc") << qint64(0) << QStringLiteral("900150983cd24fb0d6963f7d28e17f72");
    QTest::newRow("from an offset") << QByteArray("skip this:abc") << qint64(10)
                                    << QStringLiteral("900150983cd24fb0d6963f7d28e17f72");
    QTest::newRow("at the end") << QByteArray("abc") << qint64(3) << QStringLiteral("d41d8cd98f00b204e9800998ecf8427e");
    QTest::newRow("several chunks") << large << qint64(0) << md5Of(large);
    QTest::newRow("several chunks from an offset") << large << qint64(4242) << md5Of(large.mid(4242));
}

void DownloadTest::md5OfHandle()
{
    QFETCH(QByteArray, contents);
    QFETCH(qint64, position);
    QFETCH(QString, digest);

    QFile file(KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/digest.bin"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(contents);
    file.close();
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.seek(position));

    QCOMPARE(KVFileHandle::md5Value(&file), digest);
    QVERIFY(file.isOpen()); // neither closed
    QCOMPARE(file.pos(), contents.size());
}

void DownloadTest::md5OfMissingHandleIsNull()
{
    QVERIFY(KVFileHandle::md5Value(nullptr).isNull());
    UnreadableDevice unreadable;
    QVERIFY(unreadable.open(QIODevice::ReadOnly));
    QVERIFY(KVFileHandle::md5Value(&unreadable).isNull());
}

void DownloadTest::digestComparison_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<QString>("manifestLine");
    QTest::addColumn<bool>("readable");
    QTest::addColumn<bool>("matches");

    QTest::newRow("same digest") << QByteArray() << QStringLiteral("MD5=d41d8cd98f00b204e9800998ecf8427e") << true
                                 << true;
    QTest::newRow("upper case digest") << QByteArray() << QStringLiteral("MD5=D41D8CD98F00B204E9800998ECF8427E") << true
                                       << false;
    QTest::newRow("other digest") << QByteArray("x") << QStringLiteral("MD5=d41d8cd98f00b204e9800998ecf8427e") << true
                                  << false;
    QTest::newRow("no digest") << QByteArray() << QStringLiteral("Bytes=0") << true << false;
    QTest::newRow("file missing") << QByteArray() << QStringLiteral("MD5=d41d8cd98f00b204e9800998ecf8427e") << false
                                  << false;
}

void DownloadTest::digestComparison()
{
    QFETCH(QByteArray, contents);
    QFETCH(QString, manifestLine);
    QFETCH(bool, readable);
    QFETCH(bool, matches);

    const QString path = KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/keldran-vexa-app.zip");
    if (readable) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(contents);
    }
    const KVINI manifest(QStringLiteral("[Mac_Application_2.0]\n") + manifestLine + QLatin1Char('\n'));
    QCOMPARE(manifest.sections().size(), 1);

    const KVUpdateHelper engine(QUrl(QStringLiteral("http://127.0.0.1:9/manifest.ini")));
    QCOMPARE(engine.fileMatchesDigestOfSection(path, *manifest.sections().first()), matches);
}

void DownloadTest::verificationSwitchIsReadOnEveryCall()
{
    const KVUpdateHelper engine(QUrl(QStringLiteral("http://127.0.0.1:9/manifest.ini")));
    const QString key = QStringLiteral("LiveUpdateMD5VerificationDisabled");
    KVUserDefaults &defaults = KVUserDefaults::standardUserDefaults();

    QVERIFY(engine.shouldVerifyMD5());
    defaults.setObject(key, true);
    QVERIFY(!engine.shouldVerifyMD5());
    defaults.setObject(key, false);
    QVERIFY(engine.shouldVerifyMD5());
    defaults.removeObjectForKey(key);
    QVERIFY(engine.shouldVerifyMD5());
}

NESTORA_TEST_MAIN(DownloadTest)
#include "tst_download.moc"
