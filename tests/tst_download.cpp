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
                                         const KVExpectedDownload &expected = {})
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
            expected);
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
        QTest::addColumn<QByteArray>("encoding"); // the Content-Encoding sent; encoded, the body's size is expected

        const QByteArray large = patternedBody(3 * 1024 * 1024 + 17);
        QTest::newRow("file in pieces") << large << qsizetype(64 * 1024) << false << QByteArray();
        QTest::newRow("zero bytes, no destination: a new file in the temporary folder")
            << QByteArray() << qsizetype(0) << false << QByteArray();
        QTest::newRow("behind a redirect") << patternedBody(70000) << qsizetype(0) << true << QByteArray();
        QTest::newRow("gzip-encoded") << large << qsizetype(1024) << false << QByteArray("gzip");
        QTest::newRow("deflate-encoded") << large << qsizetype(0) << false << QByteArray("deflate");
    }

    void downloadsIntoTheDestination()
    {
        QFETCH(QByteArray, body);
        QFETCH(qsizetype, chunkSize);
        QFETCH(bool, redirected);
        QFETCH(QByteArray, encoding);

        // qCompress() writes the length, then a zlib stream: what "deflate" names.
        const QByteArray sent = encoding == "gzip" ? gzipped(body) : encoding.isEmpty() ? body : qCompress(body).mid(4);
        QList<std::pair<QByteArray, QByteArray>> headers;
        if (!encoding.isEmpty())
            headers.append({"Content-Encoding", encoding});
        KVTestHttpServer server;
        server.setResponse("/file.zip", {200, sent, headers, KVTestHttpServer::Behaviour::Answer, chunkSize});
        server.setRedirect("/moved.zip", server.url("/file.zip"));
        const bool named = !body.isEmpty();
        const QString destination = named ? temporaryFolder() + QStringLiteral("/download.zip") : QString();

        const QUrl url = server.url(redirected ? QStringLiteral("/moved.zip") : QStringLiteral("/file.zip"));
        const auto result =
            download(url, destination, encoding.isEmpty() ? std::nullopt : std::optional(qint64(body.size())));

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
        QTest::addColumn<QString>("place");       // of the file: "" the temporary folder, "full disk", "no folder"
        QTest::addColumn<QString>("domain");
        QTest::addColumn<qint64>("code");
        using R = KVTestHttpServer::Response;
        using B = KVTestHttpServer::Behaviour;
        // File errors have positive codes, URL errors negative ones.
        const auto row = [](const char *name, const R &response, qint64 expectedSize, const char *place, qint64 code) {
            QTest::newRow(name) << response << expectedSize << QString::fromLatin1(place)
                                << (code > 0 ? KVCocoaErrorDomain : KVURLErrorDomain) << code;
        };

        const QByteArray body = patternedBody(200000);
        const QByteArray large = patternedBody(8 << 20);
        row("404", R{404, "no such file", {}, {}, 0}, 0, "", KVURLErrorBadServerResponse);
        row("dropped halfway", R{200, body, {}, B::DropHalfway, 0}, 0, "", KVURLErrorNetworkConnectionLost);
        row("stalled", R{200, body, {}, B::Stall, 0}, 0, "", KVURLErrorTimedOut);
        row("full disk", R{200, patternedBody(2 << 20), {}, B::Answer, 128 << 10}, 0, "full disk",
            KVFileWriteOutOfSpaceError);
        row("folder missing", R{200, body, {}, B::Answer, 0}, 0, "no folder", KVFileWriteUnknownError);
        // The stream is cut, but the length sent agrees with the cut stream.
        row("gzip cut short", R{200, gzipped(body).left(1000), kGzipHeader, B::Answer, 0}, 0, "",
            KVURLErrorNetworkConnectionLost);
        row("gzip garbage", R{200, body, kGzipHeader, B::Answer, 0}, 0, "", KVURLErrorCannotDecodeContentData);
        row("bytes after the gzip stream", R{200, gzipped(body) + "tail", kGzipHeader, B::Answer, 0}, 0, "",
            KVURLErrorCannotDecodeContentData);
        row("shorter than expected", R{200, body, {}, B::Answer, 0}, body.size() + 1, "",
            KVURLErrorNetworkConnectionLost);
        row("longer than expected", R{200, large, {}, B::Answer, 64 << 10}, body.size(), "",
            KVURLErrorDataLengthExceedsMaximum);
        row("unknown encoding", R{200, body, {{"Content-Encoding", "br"}}, B::Answer, 0}, 0, "",
            KVURLErrorCannotDecodeContentData);
    }

    void failedDownloadLeavesNoFile()
    {
        QFETCH(KVTestHttpServer::Response, response);
        QFETCH(qint64, expectedSize);
        QFETCH(QString, place);
        QFETCH(QString, domain);
        QFETCH(qint64, code);

        std::unique_ptr<KVTestMount> disk;
        if (place == "full disk" && !(disk = KVTestMount::tmpfs(temporaryFolder(), 512 * 1024)))
            QSKIP("mounting a small file system needs root");
        KVUpdateHelper::setNetworkTimeout(300ms);
        KVTestHttpServer server;
        server.setResponse("/file.zip", response);

        const QString folder = temporaryFolder() + (place == "no folder" ? QStringLiteral("/missing") : QString());
        const auto result = download(server.url("/file.zip"), folder + QStringLiteral("/file.zip"),
                                     expectedSize > 0 ? std::optional(expectedSize) : std::nullopt);

        QVERIFY2(result->error.domain() == domain && result->error.code() == code,
                 qPrintable(result->error.description()));
        QVERIFY(result->path.isEmpty());
        QCOMPARE(filesIn(temporaryFolder()), QStringList()); // neither the file nor a temporary part of it
        QVERIFY(result->everyCallbackOnMainThread);
    }

    // Each row breaks the first tries off; the file arrives whole all the same, and the server
    // sends again only what it must.
    void triesBrokenDownloadsAgain_data()
    {
        QTest::addColumn<QList<KVTestHttpServer::Response>>("responses");
        QTest::addColumn<qint64>("bytesSent");
        using R = KVTestHttpServer::Response;
        using B = KVTestHttpServer::Behaviour;
        const QByteArray body = patternedBody(100000);
        const QList<std::pair<QByteArray, QByteArray>> tag{{"ETag", "\"a\""}};
        const R cut{200, body, tag, B::DropHalfway, 0};
        const qint64 size = body.size();
        QTest::newRow("cut: the rest") << QList{cut, R{200, body, tag, B::Answer, 0}} << size;
        QTest::newRow("cut, then the file changed: again from zero")
            << QList{cut, R{200, body, {{"ETag", "\"b\""}}, B::Answer, 0}} << size + size / 2;
        QTest::newRow("cut, then no ranges: again from zero")
            << QList{cut, R{200, body, tag, B::WholeBody, 0}} << size + size / 2;
        QTest::newRow("503 twice") << QList{R{503, {}, {}, B::Answer, 0}, R{503, {}, {}, B::Answer, 0},
                                            R{200, body, {}, B::Answer, 0}}
                                   << size;
        QTest::newRow("429 with Retry-After")
            << QList{R{429, {}, {{"Retry-After", "2"}}, B::Answer, 0}, R{200, body, {}, B::Answer, 0}} << size;
    }

    void triesBrokenDownloadsAgain()
    {
        QFETCH(QList<KVTestHttpServer::Response>, responses);
        QFETCH(qint64, bytesSent);
        const QByteArray body = responses.last().body;
        KVTestHttpServer server;
        server.setResponses("/file.zip", responses);

        const QString destination = temporaryFolder() + QStringLiteral("/file.zip");
        const QByteArray sha256 = QCryptographicHash::hash(body, QCryptographicHash::Sha256).toHex();
        const auto result = download(server.url("/file.zip"), destination, {body.size(), sha256});

        QVERIFY2(!result->error, qPrintable(result->error.description()));
        QCOMPARE(QCryptographicHash::hash(KVTestFiles::readFile(destination), QCryptographicHash::Sha256).toHex(),
                 sha256);
        QCOMPARE(server.bodyBytesSent("/file.zip"), bytesSent);
        QCOMPARE(filesIn(temporaryFolder()), QStringList{"file.zip"}); // no part, no record of it
        QVERIFY(std::any_of(result->progress.cbegin(), result->progress.cend(),
                            [](const KVTransferProgress &progress) { return progress.retrying; }));
    }

    void md5OfHandle_data()
    {
        QTest::addColumn<QByteArray>("contents"); // null: a handle that cannot be read
        QTest::addColumn<qint64>("position");

        const QByteArray large = patternedBody(12 * 1024 * 1024 + 5); // more than two 5 MiB chunks
        QTest::newRow("empty") << QByteArray("") << qint64(0);
        QTest::newRow("from an offset") << QByteArray("skip this:abc") << qint64(10);
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
