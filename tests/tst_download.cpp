// Downloads with progress into files, MD5 digests of files and the digest comparison.

#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVFileHandle+MD5.h"
#include "KVTestFiles.h"
#include "KVTestHttpServer.h"
#include "KVTestMount.h"
#include "KVTestSandbox.h"
#include "Platform/KVUserDefaults.h"

#include <QCryptographicHash>
#include <QRegularExpression>
#include <QSemaphore>
#include <zlib.h>

using namespace std::chrono_literals;

namespace {

// The outcome of one download as its callbacks reported it.
struct DownloadResult
{
    std::atomic<bool> finished = false;
    QString path;
    KVError error;
    QList<KVTransferProgress> progress;
    bool everyCallbackOnMainThread = true;
};

// Downloads as the update run does: started on the engine's queue, which waits until the
// completion has run on the main thread.
std::shared_ptr<DownloadResult> download(const QUrl &url, const QString &destination,
                                         std::optional<qint64> expectedSize = std::nullopt)
{
    auto result = std::make_shared<DownloadResult>();
    KVSerialQueue queue(QStringLiteral("test queue"));
    queue.async([=] {
        QSemaphore done;
        KVUpdateHelper::downloadURL(
            url.toString(), destination,
            [result](const KVTransferProgress &progress) {
                result->everyCallbackOnMainThread &= KVDispatch::isMainThread();
                result->progress << progress;
            },
            [result, &done](const QString &path, const KVError &error) {
                result->everyCallbackOnMainThread &= KVDispatch::isMainThread();
                result->path = path;
                result->error = error;
                done.release();
            },
            expectedSize);
        done.acquire();
        result->finished = true;
    });
    [&] { QTRY_VERIFY_WITH_TIMEOUT(result->finished, 20000); }();
    return result;
}

QByteArray patternedBody(qsizetype size)
{
    QByteArray body(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        body[i] = char((i * 7 + i / 251) & 0xff);
    return body;
}

// The data as a gzip stream, as a server sends a body with "Content-Encoding: gzip".
QByteArray gzipped(const QByteArray &data)
{
    z_stream stream{};
    constexpr int kGzipWindowBits = 15 + 16;
    if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, kGzipWindowBits, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        return {};
    QByteArray output(qsizetype(deflateBound(&stream, uLong(data.size()))), Qt::Uninitialized);
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data.constData()));
    stream.avail_in = uInt(data.size());
    stream.next_out = reinterpret_cast<Bytef *>(output.data());
    stream.avail_out = uInt(output.size());
    const bool finished = deflate(&stream, Z_FINISH) == Z_STREAM_END;
    output.truncate(qsizetype(stream.total_out));
    deflateEnd(&stream);
    return finished ? output : QByteArray();
}
const QList<std::pair<QByteArray, QByteArray>> kGzipHeader{{"Content-Encoding", "gzip"}};

QString temporaryFolder()
{
    return KVTestSandbox::current().temporaryDirectory();
}
QStringList filesIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot);
}
QString md5Of(const QByteArray &data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex();
}

// A handle whose every read fails, as reading a file on a failing disk does.
class UnreadableDevice : public QIODevice
{
protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64) override { return -1; }
};

const QUrl kManifestURL(QStringLiteral("http://127.0.0.1:9/manifest.ini"));

} // namespace

class DownloadTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { KVTestSandbox::current().reset(); }
    void cleanup() { KVUpdateHelper::setNetworkTimeout(60s); }

    void downloadsIntoTheDestination_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<qsizetype>("chunkSize");
        QTest::addColumn<bool>("redirected");
        QTest::addColumn<bool>("encoded"); // sent gzip-encoded, and expected at the body's size

        QTest::newRow("file in pieces") << patternedBody(3 * 1024 * 1024 + 17) << qsizetype(64 * 1024) << false
                                        << false;
        QTest::newRow("zero bytes, no destination: a new file in the temporary folder")
            << QByteArray() << qsizetype(0) << false << false;
        QTest::newRow("behind a redirect") << patternedBody(70000) << qsizetype(0) << true << false;
        QTest::newRow("gzip-encoded, expected size")
            << patternedBody(3 * 1024 * 1024 + 17) << qsizetype(1024) << false << true;
    }

    void downloadsIntoTheDestination()
    {
        QFETCH(QByteArray, body);
        QFETCH(qsizetype, chunkSize);
        QFETCH(bool, redirected);
        QFETCH(bool, encoded);

        KVTestHttpServer server;
        server.setResponse("/file.zip", {200, encoded ? gzipped(body) : body,
                                         encoded ? kGzipHeader : QList<std::pair<QByteArray, QByteArray>>(),
                                         KVTestHttpServer::Behaviour::Answer, chunkSize});
        server.setRedirect("/moved.zip", server.url("/file.zip"));
        const bool named = !body.isEmpty();
        const QString destination = named ? temporaryFolder() + QStringLiteral("/download.zip") : QString();

        const QUrl url = server.url(redirected ? QStringLiteral("/moved.zip") : QStringLiteral("/file.zip"));
        const auto result = download(url, destination, encoded ? std::optional(qint64(body.size())) : std::nullopt);

        QVERIFY2(!result->error, qPrintable(result->error.description()));
        const QString name = QFileInfo(result->path).fileName();
        QCOMPARE(result->path, temporaryFolder() + QLatin1Char('/') + name);
        static const QRegularExpression upperCaseUUID("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$");
        QVERIFY2(named ? name == "download.zip" : upperCaseUUID.match(name).hasMatch(), qPrintable(name));
        QVERIFY(KVTestFiles::readFile(result->path) == body);
        QCOMPARE(filesIn(temporaryFolder()), QStringList{name});
        QVERIFY(result->everyCallbackOnMainThread);

        // Reports grow to the whole body and agree on its total.
        qint64 previous = 0;
        for (const KVTransferProgress &progress : std::as_const(result->progress)) {
            QVERIFY(progress.completedUnitCount >= previous);
            QCOMPARE(progress.totalUnitCount, qint64(body.size()));
            previous = progress.completedUnitCount;
        }
        if (!body.isEmpty())
            QCOMPARE(result->progress.value(result->progress.size() - 1).completedUnitCount, qint64(body.size()));
        // Progress is reported at least every tenth of a second; the pieces take longer than that.
        if (chunkSize > 0)
            QVERIFY2(result->progress.size() >= 2, qPrintable(QString::number(result->progress.size())));
    }

    void failedDownloadLeavesNoFile_data()
    {
        QTest::addColumn<KVTestHttpServer::Response>("response");
        QTest::addColumn<qint64>("expectedSize"); // 0: none
        QTest::addColumn<bool>("fullDisk");
        QTest::addColumn<QString>("domain");
        QTest::addColumn<qint64>("code");

        using R = KVTestHttpServer::Response;
        using B = KVTestHttpServer::Behaviour;
        const QByteArray body = patternedBody(200000);
        const QString url = KVURLErrorDomain;
        QTest::newRow("404") << R{404, "no such file", {}, {}, 0} << qint64(0) << false << url << qint64(-1011);
        QTest::newRow("dropped halfway") << R{200, body, {}, B::DropHalfway, 0} << qint64(0) << false << url
                                         << qint64(-1005);
        QTest::newRow("stalled") << R{200, body, {}, B::Stall, 0} << qint64(0) << false << url << qint64(-1001);
        QTest::newRow("full disk") << R{200, patternedBody(2 << 20), {}, B::Answer, 128 << 10} << qint64(0) << true
                                   << KVCocoaErrorDomain << qint64(KVFileWriteOutOfSpaceError);
        // The stream is cut, but the length sent agrees with the cut stream.
        QTest::newRow("gzip cut short") << R{200, gzipped(body).left(1000), kGzipHeader, B::Answer, 0} << qint64(0)
                                        << false << url << qint64(-1005);
        QTest::newRow("gzip cut short, expected size") << R{200, gzipped(body).left(1000), kGzipHeader, B::Answer, 0}
                                                       << qint64(body.size()) << false << url << qint64(-1005);
        QTest::newRow("shorter than expected")
            << R{200, body, {}, B::Answer, 0} << qint64(body.size() + 1) << false << url << qint64(-1005);
        QTest::newRow("longer than expected") << R{200, patternedBody(8 << 20), {}, B::Answer, 64 << 10}
                                              << qint64(body.size()) << false << url << qint64(-1103);
        QTest::newRow("gzip longer than expected") << R{200, gzipped(patternedBody(8 << 20)), kGzipHeader, B::Answer, 0}
                                                   << qint64(body.size()) << false << url << qint64(-1103);
        QTest::newRow("unknown encoding")
            << R{200, body, {{"Content-Encoding", "br"}}, B::Answer, 0} << qint64(0) << false << url << qint64(-1016);
    }

    void failedDownloadLeavesNoFile()
    {
        QFETCH(KVTestHttpServer::Response, response);
        QFETCH(qint64, expectedSize);
        QFETCH(bool, fullDisk);
        QFETCH(QString, domain);
        QFETCH(qint64, code);

        std::unique_ptr<KVTestMount> disk;
        if (fullDisk && !(disk = KVTestMount::tmpfs(temporaryFolder(), 512 * 1024)))
            QSKIP("mounting a small file system needs root");
        KVUpdateHelper::setNetworkTimeout(300ms);
        KVTestHttpServer server;
        server.setResponse("/file.zip", response);

        const auto result = download(server.url("/file.zip"), temporaryFolder() + QStringLiteral("/file.zip"),
                                     expectedSize > 0 ? std::optional(expectedSize) : std::nullopt);

        QVERIFY2(result->error.domain() == domain && result->error.code() == code,
                 qPrintable(result->error.description()));
        QVERIFY(result->path.isEmpty());
        QCOMPARE(filesIn(temporaryFolder()), QStringList()); // neither the file nor a temporary part of it
        QVERIFY(result->everyCallbackOnMainThread);
    }

    void md5OfHandle_data()
    {
        QTest::addColumn<QByteArray>("contents"); // null: a handle that cannot be read
        QTest::addColumn<qint64>("position");

        const QByteArray large = patternedBody(12 * 1024 * 1024 + 5); // more than two 5 MiB chunks
        QTest::newRow("empty") << QByteArray("") << qint64(0);
        QTest::newRow("from an offset") << QByteArray("skip this:abc") << qint64(10);
        QTest::newRow("several chunks") << large << qint64(0);
        QTest::newRow("several chunks from an offset") << large << qint64(4242);
        QTest::newRow("unreadable: none") << QByteArray() << qint64(0);
    }

    void md5OfHandle()
    {
        QFETCH(QByteArray, contents);
        QFETCH(qint64, position);

        if (contents.isNull()) {
            UnreadableDevice unreadable;
            QVERIFY(unreadable.open(QIODevice::ReadOnly));
            QVERIFY(KVFileHandle::md5Value(&unreadable).isNull());
            QVERIFY(KVFileHandle::md5Value(nullptr).isNull());
            return;
        }
        QFile file(temporaryFolder() + QStringLiteral("/digest.bin"));
        QVERIFY(KVTestFiles::writeFile(file.fileName(), contents));
        QVERIFY(file.open(QIODevice::ReadOnly) && file.seek(position));

        QCOMPARE(KVFileHandle::md5Value(&file), md5Of(contents.mid(position)));
        QVERIFY(file.isOpen()); // not closed
        QCOMPARE(file.pos(), contents.size());
    }

    void digestComparison_data()
    {
        QTest::addColumn<QByteArray>("contents"); // null: no file
        QTest::addColumn<QString>("manifestLine");
        QTest::addColumn<bool>("matches");

        QTest::newRow("same digest") << QByteArray("") << "MD5=d41d8cd98f00b204e9800998ecf8427e" << true;
        QTest::newRow("upper case digest") << QByteArray("") << "MD5=D41D8CD98F00B204E9800998ECF8427E" << false;
        QTest::newRow("other digest") << QByteArray("x") << "MD5=d41d8cd98f00b204e9800998ecf8427e" << false;
        QTest::newRow("no digest") << QByteArray("") << "Bytes=0" << false;
        QTest::newRow("file missing") << QByteArray() << "MD5=d41d8cd98f00b204e9800998ecf8427e" << false;
    }

    void digestComparison()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QString, manifestLine);
        QFETCH(bool, matches);

        const QString path = temporaryFolder() + QStringLiteral("/keldran-vexa-app.zip");
        if (!contents.isNull())
            QVERIFY(KVTestFiles::writeFile(path, contents));
        const KVINI manifest(QStringLiteral("[Mac_Application_2.0]\n") + manifestLine + QLatin1Char('\n'));
        QCOMPARE(manifest.sections().size(), 1);
        const KVUpdateHelper engine(kManifestURL);
        QCOMPARE(engine.fileMatchesDigestOfSection(path, *manifest.sections().first()), matches);
        // The switch that turns the comparison off is read afresh on every call.
        KVUserDefaults::standardUserDefaults().setObject(QStringLiteral("LiveUpdateMD5VerificationDisabled"), !matches);
        QCOMPARE(engine.shouldVerifyMD5(), matches);
    }
};

NESTORA_TEST_MAIN(DownloadTest)
#include "tst_download.moc"
