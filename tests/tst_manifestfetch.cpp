#include "App/Model/KVErrorClass.h"
#include "App/Model/KVManifestTrust.h"
#include "App/Model/KVMinisign.h"
#include "App/Model/KVUpdateHelper.h"
#include "KVTestFiles.h"
#include "KVTestHttpServer.h"
#include "KVTestSandbox.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"
#include "Platform/KVUserDefaults.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>

#include <sodium.h>

using namespace std::chrono_literals;

namespace {

// A fake installer bundle in the sandbox whose Info.plist carries the given AppUpdateURL and keys.
void makeMainBundle(const QString &appUpdateURL, const QString &trustedKeys = {})
{
    const QString bundle = KVTestSandbox::current().root() + QStringLiteral("/NestoraInstaller.app");
    QDir().mkpath(bundle + QStringLiteral("/Contents"));
    QVariantMap info{{"CFBundleVersion", "1.0.0"}, {"TrustedKeys", trustedKeys}};
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

// A key pair made for this run, as a release engineer makes one.
struct TestKey
{
    KVMinisign::PublicKey publicKey;
    KVMinisign::SecretKey secretKey;

    static TestKey generate()
    {
        QByteArray keyId(KVMinisign::kKeyIdSize, Qt::Uninitialized);
        QByteArray publicKey(crypto_sign_PUBLICKEYBYTES, Qt::Uninitialized);
        QByteArray secretKey(crypto_sign_SECRETKEYBYTES, Qt::Uninitialized);
        randombytes_buf(keyId.data(), size_t(keyId.size()));
        crypto_sign_keypair(reinterpret_cast<unsigned char *>(publicKey.data()),
                            reinterpret_cast<unsigned char *>(secretKey.data()));
        return {{keyId, publicKey}, {keyId, secretKey}};
    }
};

QByteArray hexDigest(const QByteArray &data, QCryptographicHash::Algorithm algorithm)
{
    return QCryptographicHash::hash(data, algorithm).toHex();
}

} // namespace

// Where the engine finds its manifest, how it fetches and reuses it, and the error of every way
// the fetch can fail.
class ManifestFetchTest : public QObject
{
    Q_OBJECT
public:
    // What a row does to an otherwise good signed manifest, or to the way it is served.
    enum class Tamper {
        None,
        ByteChanged,
        LowerSerial,
        Expired,
        NoSHA256,
        WrongSHA256,
        PolicyWritableByAll,
        HTTPSToHTTP,
    };
    Q_ENUM(Tamper)

private:
    QHash<QString, TestKey> m_keys; // "A" and "B" may be trusted, "C" never is

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(sodium_init() >= 0);
        for (const char *name : {"A", "B", "C"})
            m_keys.insert(QString::fromLatin1(name), TestKey::generate());
    }

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

    void trustsOnlyVerifiedManifests_data()
    {
        QTest::addColumn<QStringList>("bundleKeys");
        QTest::addColumn<QByteArray>("policy"); // "{B}" stands for key B's line, "{idA}" for key A's id
        QTest::addColumn<QString>("signer");    // empty: the manifest has no signature
        QTest::addColumn<Tamper>("tamper");
        QTest::addColumn<int>("exitStatus"); // of the fetch, or of the download after it; 0: both succeed

        const int unverified = KVErrorExitStatus(KVErrorClass::UnverifiedManifest);
        const QStringList a{"A"};
        QTest::newRow("good signature") << a << QByteArray() << "A" << Tamper::None << 0;
        QTest::newRow("one byte changed") << a << QByteArray() << "A" << Tamper::ByteChanged << unverified;
        QTest::newRow("another key") << a << QByteArray() << "C" << Tamper::None << unverified;
        QTest::newRow("revoked key") << QStringList{"A", "B"} << QByteArray("[Trust]\nRevokedKeyIds = C0FFEE, {idA}\n")
                                     << "A" << Tamper::None << unverified;
        QTest::newRow("second of two trusted keys")
            << a << QByteArray("# rotation\n[Trust]\nTrustedKeys = {B}\n") << "B" << Tamper::None << 0;
        QTest::newRow("lower serial") << a << QByteArray() << "A" << Tamper::LowerSerial << unverified;
        QTest::newRow("expired") << a << QByteArray() << "A" << Tamper::Expired << unverified;
        QTest::newRow("no signature, a key") << a << QByteArray() << "" << Tamper::None << unverified;
        QTest::newRow("no signature, no key") << QStringList() << QByteArray() << "" << Tamper::None << 0;
        QTest::newRow("no signature, required by policy")
            << QStringList() << QByteArray("[Trust]\nRequireSignature=true\n") << "" << Tamper::None << unverified;
        QTest::newRow("policy that everyone may change")
            << a << QByteArray("[Trust]\nRevokedKeyIds={idA}\n") << "A" << Tamper::PolicyWritableByAll << 0;
        QTest::newRow("file without SHA-256") << a << QByteArray() << "A" << Tamper::NoSHA256 << unverified;
        QTest::newRow("wrong SHA-256, right MD5")
            << a << QByteArray() << "A" << Tamper::WrongSHA256 << KVErrorExitStatus(KVErrorClass::DamagedDownload);
        QTest::newRow("HTTPS to HTTP redirect")
            << a << QByteArray() << "A" << Tamper::HTTPSToHTTP << KVErrorExitStatus(KVErrorClass::InsecureRedirect);
    }

    void trustsOnlyVerifiedManifests()
    {
        QFETCH(QStringList, bundleKeys);
        QFETCH(QByteArray, policy);
        QFETCH(QString, signer);
        QFETCH(Tamper, tamper);
        QFETCH(int, exitStatus);

        QStringList keyLines;
        for (const QString &name : bundleKeys)
            keyLines << QString::fromLatin1(m_keys[name].publicKey.toBase64());
        makeMainBundle(QStringLiteral("http://127.0.0.1:9/bundle.ini"), keyLines.join(QLatin1Char(',')));
        policy.replace("{B}", m_keys["B"].publicKey.toBase64())
            .replace("{idA}", KVMinisign::keyIdText(m_keys["A"].publicKey.keyId).toLatin1());
        const QString policyPath = KVTestSandbox::current().policyFile();
        QVERIFY(KVTestFiles::writeFile(policyPath, policy));
        const QFile::Permissions readable = QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup | QFile::ReadOther;
        QVERIFY(QFile::setPermissions(policyPath, tamper == Tamper::PolicyWritableByAll
                                                      ? readable | QFile::WriteGroup | QFile::WriteOther
                                                      : readable));
        KVUserDefaults::standardUserDefaults().setObject(KVManifestTrust::kAcceptedSerialDefaultsKey, 100);

        KVTestHttpServer server;
        const QByteArray cards = "{\"cards\": []}";
        server.setFile("/cards.json", cards);
        const QDateTime expires = QDateTime::currentDateTimeUtc().addSecs(tamper == Tamper::Expired ? -60 : 3600);
        QByteArray manifest = "[Manifest]\nSerial=" + QByteArray(tamper == Tamper::LowerSerial ? "99" : "100") +
                              "\nExpires=" + expires.toString(Qt::ISODate).toLatin1() +
                              "\n[Smart_Cards]\nLatestVersion=1\nURL=" + server.url("/cards.json").toEncoded() +
                              "\nMD5=" + hexDigest(cards, QCryptographicHash::Md5) + "\n";
        if (tamper != Tamper::NoSHA256)
            manifest +=
                "SHA256=" + hexDigest(tamper == Tamper::WrongSHA256 ? cards + ' ' : cards, QCryptographicHash::Sha256) +
                "\n";
        if (!signer.isEmpty()) {
            const auto signature = KVMinisign::Signature::sign(manifest, m_keys[signer].secretKey, "timestamp:1");
            QVERIFY(signature);
            server.setFile("/manifest.ini.minisig", signature->toText());
        }
        if (tamper == Tamper::ByteChanged)
            manifest.replace("LatestVersion=1", "LatestVersion=2");
        server.setResponse("/manifest.ini",
                           {200, manifest, {{"ETag", "\"1\""}}, KVTestHttpServer::Behaviour::Answer, 0});

        QUrl manifestURL = server.url("/manifest.ini");
        std::optional<KVTestHttpServer> secure;
        if (tamper == Tamper::HTTPSToHTTP) {
            secure.emplace(KVTestHttpServer::trustedTls());
            secure->setRedirect("/manifest.ini", manifestURL);
            manifestURL = secure->url("/manifest.ini");
        }
        KVUpdateHelper engine(manifestURL);
        KVError error = fetch(engine);
        const bool accepted = !error;

        // What the manifest offers is downloaded only from a manifest that was accepted.
        const QString destination = KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/cards.json");
        if (!error) {
            bool finished = false;
            KVUpdateHelper::downloadURL(
                server.url("/cards.json").toString(), destination, {},
                [&](const QString &, const KVError &downloadError) {
                    error = downloadError;
                    finished = true;
                },
                KVUpdateHelper::expectedDownloadOfSection(*engine.INI()->sectionWithName("Smart_Cards")));
            QTRY_VERIFY(finished);
        }
        QCOMPARE(error ? KVErrorExitStatus(KVErrorClassOf(error)) : 0, exitStatus);
        // A refused redirect is not followed, and the user is told where it led.
        if (tamper == Tamper::HTTPSToHTTP)
            QVERIFY(server.requestCount("/manifest.ini") == 0 &&
                    KVErrorText(error).contains(server.url("/manifest.ini").toString()));
        QCOMPARE(QFileInfo::exists(destination), exitStatus == 0);
        QCOMPARE(server.requestCount("/cards.json"), exitStatus == 0 || tamper == Tamper::WrongSHA256 ? 1 : 0);

        // The next check of an accepted, unchanged manifest costs a 304, and the kept copy passes
        // the same trust again.
        if (accepted) {
            const qint64 sent = server.bodyBytesSent("/manifest.ini");
            KVUpdateHelper nextCheck(manifestURL);
            QVERIFY(fetch(nextCheck).isNull());
            QCOMPARE(server.bodyBytesSent("/manifest.ini"), sent);
            QCOMPARE(nextCheck.INI()->sections().size(), engine.INI()->sections().size());
            // A key revoked since makes the kept copy as unacceptable as a fresh one.
            if (policy.isEmpty() && !signer.isEmpty()) {
                const QString keyId = KVMinisign::keyIdText(m_keys[signer].publicKey.keyId);
                QVERIFY(KVTestFiles::writeFile(policyPath, "[Trust]\nRevokedKeyIds=" + keyId.toLatin1() + "\n"));
                KVUpdateHelper afterRevocation(manifestURL);
                QCOMPARE(KVErrorClassOf(fetch(afterRevocation)), KVErrorClass::UnverifiedManifest);
                QCOMPARE(server.bodyBytesSent("/manifest.ini"), sent);
            }
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
        QTest::newRow("not UTF-8") << R{200, "[S]\na=\xff\xfe\xc3", {}, B::Answer, 0} << helper
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
};

NESTORA_TEST_MAIN(ManifestFetchTest)
#include "tst_manifestfetch.moc"
