// Unpacking archives and deploying their items: plain, across file systems, on a full disk, with
// administrator rights through a stand-in elevator, and the installer's own swap.

#include "App/Model/KVLeftovers.h"
#include "App/Model/KVPrivilegeHelper.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVShellQuoting.h"
#include "KVTestFiles.h"
#include "KVTestMount.h"
#include "KVTestSandbox.h"
#include "KVTestUnwritableFolder.h"
#include "Platform/KVBundle.h"
#include "Platform/KVFileOperations.h"
#include "Platform/KVPropertyList.h"

#include <QRandomGenerator>
#include <QRegularExpression>

#include <atomic>
#include <thread>
#include <unistd.h>

using namespace KVTestFiles;

namespace {

KVTestSandbox &sandbox()
{
    return KVTestSandbox::current();
}
QString applications()
{
    return sandbox().applicationsDirectory();
}
QString installedApp()
{
    return applications() + QStringLiteral("/Nestora.app");
}
QString settingsPath()
{
    return sandbox().dataHome() + QStringLiteral("/Nestora/InstallerSettings.plist");
}

// A minimal application bundle whose version file tells old from new.
[[nodiscard]] bool makeApp(const QString &path, const QByteArray &version, const QByteArray &filler = {})
{
    return writeFile(path + QStringLiteral("/Contents/version.txt"), version) &&
           writeFile(path + QStringLiteral("/Contents/Resources/filler.bin"), filler);
}

QByteArray versionOf(const QString &app)
{
    return readFile(app + QStringLiteral("/Contents/version.txt"));
}

QByteArray randomBytes(qsizetype size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32 *>(bytes.data()), size / 4);
    return bytes;
}

// Hidden staging items that a replace or a move might have left beside its destination.
QStringList hiddenIn(const QString &folder)
{
    return QDir(folder)
        .entryList(QDir::Hidden | QDir::AllEntries | QDir::NoDotAndDotDot)
        .filter(QRegularExpression("^\\."));
}
} // namespace

class DeployTest : public QObject
{
    Q_OBJECT

    QString m_resources;

private slots:
    void initTestCase()
    {
        // The engine finds "Install.sh" in the main bundle's resources.
        const QString bundle = sandbox().root() + QStringLiteral("/NestoraInstaller.app");
        m_resources = bundle + QStringLiteral("/Contents/Resources");
        KVBundle::setMainBundlePath(bundle);
        KVPrivilegeHelper::setElevator(QStringLiteral(NESTORA_TEST_DATA_DIR "/elevator-standin.sh"));
        QDir().mkpath(m_resources);
        QVERIFY(QFile::copy(QStringLiteral(NESTORA_SOURCE_DIR "/Resources/Install.sh"),
                            m_resources + QStringLiteral("/Install.sh")));
    }

    void init() { sandbox().reset(); }

    void cleanup()
    {
        qunsetenv("NESTORA_STANDIN_DISMISS");
        qunsetenv("NESTORA_STANDIN_BEFORE");
        qunsetenv("NESTORA_STANDIN_RECORD");
    }

    void unzipFailureYieldsNothing_data()
    {
        QTest::addColumn<QString>("archive");
        QTest::addColumn<QString>("domain");
        QTest::addColumn<qint64>("code");

        const QString cocoa = KVCocoaErrorDomain;
        QTest::newRow("corrupt") << "corrupt" << cocoa << qint64(KVFileReadCorruptFileError);
        QTest::newRow("truncated") << "truncated" << cocoa << qint64(KVFileReadCorruptFileError);
        QTest::newRow("missing") << "missing" << cocoa << qint64(KVFileNoSuchFileError);
        // Refused from the archive's listing, before anything is written.
        QTest::newRow("more than the free space")
            << "full disk" << KVUpdateHelperErrorDomain << qint64(KVUpdateHelperErrorInvalidArchive);
        QTest::newRow("entry named twice")
            << NESTORA_TEST_DATA_DIR "/archives/duplicate-entry.zip" << cocoa << qint64(KVFileReadCorruptFileError);
        QTest::newRow("writes through a link")
            << NESTORA_TEST_DATA_DIR "/archives/symlink-escape.zip" << cocoa << qint64(KVFileReadCorruptFileError);
    }

    void unzipFailureYieldsNothing()
    {
        QFETCH(QString, archive);
        QFETCH(QString, domain);
        QFETCH(qint64, code);

        const QString made = sandbox().root() + QStringLiteral("/made.zip");
        std::unique_ptr<KVTestMount> smallDisk;
        if (archive == QLatin1String("corrupt")) {
            QVERIFY(writeFile(made, "PK\x03\x04" + randomBytes(4096)));
        } else if (archive == QLatin1String("truncated")) {
            QVERIFY(makeZip(made, {{"Nestora.app/Contents/a.bin", randomBytes(100000)},
                                   {"Nestora.app/Contents/b.bin", randomBytes(100000)}}));
            const QByteArray whole = readFile(made);
            QVERIFY(writeFile(made, whole.left(whole.size() / 2)));
        } else if (archive == QLatin1String("full disk")) {
            QVERIFY(makeZip(made, {{"Nestora.app/Contents/big.bin", randomBytes(2 * 1024 * 1024)}}));
            if (!(smallDisk = KVTestMount::tmpfs(sandbox().temporaryDirectory(), 512 * 1024)))
                QSKIP("mounting a small file system needs root");
        }
        if (!archive.startsWith(QLatin1Char('/')))
            archive = archive == QLatin1String("missing") ? sandbox().root() + QStringLiteral("/missing.zip") : made;
        QVERIFY(QDir().mkpath(sandbox().root() + QStringLiteral("/outside")));

        KVError error;
        QVERIFY(!KVUpdateHelper::unzip(archive, &error));

        QCOMPARE(error.domain(), domain);
        QCOMPARE(error.code(), code);
        QCOMPARE(treeOf(sandbox().temporaryDirectory()), QStringList()); // the half-filled folder is gone
        QCOMPARE(treeOf(sandbox().root() + QStringLiteral("/outside")), QStringList());
    }

    void deployReplacesDestination_data()
    {
        QTest::addColumn<bool>("installed");
        QTest::addColumn<QByteArrayList>("newVersions");
        QTest::addColumn<QString>("folder"); // the applications folder: "" as it is, "own disk", "full", "unwritable"
        QTest::addColumn<qint64>("code");    // 0: deployed

        const QByteArrayList one{"2.0"};
        QTest::newRow("over an installed item") << true << one << "" << qint64(0);
        QTest::newRow("destination missing") << false << one << "" << qint64(0);
        QTest::newRow("two items leave the last") << true << QByteArrayList{"2.0", "3.0"} << "" << qint64(0);
        QTest::newRow("across file systems") << true << one << "own disk" << qint64(0);
        QTest::newRow("folder unwritable") << true << one << "unwritable" << qint64(KVFileWriteNoPermissionError);
        QTest::newRow("disk full while copying across file systems")
            << true << one << "full" << qint64(KVFileWriteOutOfSpaceError);
    }

    void deployReplacesDestination()
    {
        QFETCH(bool, installed);
        QFETCH(QByteArrayList, newVersions);
        QFETCH(QString, folder);
        QFETCH(qint64, code);

        std::unique_ptr<KVTestMount> disk;
        if (folder == "own disk" || folder == "full") {
            if (!(disk = KVTestMount::tmpfs(applications(), 1024 * 1024)))
                QSKIP("mounting a second file system needs root");
        }
        const QByteArray installedFiller = randomBytes(300 * 1024);
        if (installed)
            QVERIFY(makeApp(installedApp(), "1.0", installedFiller) &&
                    writeFile(installedApp() + QStringLiteral("/Contents/old-only.txt"), "old"));
        QStringList items;
        for (const QByteArray &version : newVersions) {
            items << sandbox().temporaryDirectory() + QStringLiteral("/unpacked/Item-") + QString::fromLatin1(version);
            QVERIFY(makeApp(items.last(), version, folder == "full" ? randomBytes(2 * 1024 * 1024) : QByteArray()));
        }
        std::optional<KVTestUnwritableFolder> unwritable;
        if (folder == "unwritable" && !unwritable.emplace(applications()).isUnwritable())
            QSKIP("cannot make a folder unwritable here");

        KVError error;
        QVERIFY(KVUpdateHelper::deploy(items, installedApp(), &error));

        // Nothing but the installed item in the folder: no staging copy left behind.
        QCOMPARE(treeOf(applications()).filter(QRegularExpression("^[^/]*$")), QStringList{"Nestora.app"});
        QCOMPARE(hiddenIn(applications()), QStringList());
        if (code) {
            QCOMPARE(error.domain(), KVCocoaErrorDomain);
            QCOMPARE(error.code(), code);
            QCOMPARE(versionOf(installedApp()), QByteArray("1.0"));
            QVERIFY(readFile(installedApp() + QStringLiteral("/Contents/Resources/filler.bin")) == installedFiller);
            QCOMPARE(versionOf(items.last()), QByteArray("2.0")); // not consumed
            return;
        }
        QVERIFY2(!error, qPrintable(error.description()));
        QCOMPARE(versionOf(installedApp()), newVersions.last());
        QCOMPARE(treeOf(installedApp()), (QStringList{"Contents", "Contents/Resources", "Contents/Resources/filler.bin",
                                                      "Contents/version.txt"}));
        QCOMPARE(treeOf(sandbox().temporaryDirectory() + QStringLiteral("/unpacked")), QStringList()); // moved
    }

    void replaceNeverLeavesDestinationMissing()
    {
        const QString destination = sandbox().home() + QStringLiteral("/Item");
        QVERIFY(writeFile(destination + QStringLiteral("/marker"), "0"));

        std::atomic<bool> replacing = true;
        std::atomic<int> misses = 0;
        std::thread reader([&] {
            const QByteArray marker = QFile::encodeName(destination + QStringLiteral("/marker"));
            while (replacing)
                if (::access(marker.constData(), F_OK) != 0)
                    ++misses;
        });
        for (int round = 1; round <= 300; ++round) {
            const QString item = sandbox().home() + QStringLiteral("/New");
            QVERIFY(writeFile(item + QStringLiteral("/marker"), QByteArray::number(round)));
            QCOMPARE(KVFileOperations::replaceItem(destination, item).error(), KVError());
        }
        replacing = false;
        reader.join();

        QCOMPARE(misses.load(), 0);
        QCOMPARE(readFile(destination + QStringLiteral("/marker")), QByteArray("300"));
        QCOMPARE(treeOf(sandbox().home()).filter(QStringLiteral("New")), QStringList());
    }

    void deployApp_data()
    {
        QTest::addColumn<QString>("destination");
        QTest::addColumn<bool>("privileged"); // the destination's folder is unwritable: the install script deploys
        QTest::addColumn<bool>("itemIsLink");
        QTest::addColumn<bool>("dismiss");
        QTest::addColumn<QVariantMap>("settings");
        QTest::addColumn<QString>("description");

        const QString hostile =
            applications() + QStringLiteral("/a'b;touch ") + sandbox().root() + QStringLiteral("/pwned");
        const QVariantMap none;
        QTest::newRow("no settings yet") << installedApp() << false << false << false << none << QString();
        QTest::newRow("vendor already recorded")
            << installedApp() << false << false << false << QVariantMap{{"installer_vendor", "Keldran"}} << QString();
        QTest::newRow("another vendor") << installedApp() << false << false << false
                                        << QVariantMap{{"installer_vendor", "Other"}, {"kept", 7}} << QString();
        QTest::newRow("installed through the install script")
            << installedApp() << true << false << false << none << QString();
        QTest::newRow("path that breaks naive quoting") << hostile << true << false << false << none << QString();
        QTest::newRow("password prompt dismissed")
            << installedApp() << true << false << true << none << "The administrator password is required to do this.";
        QTest::newRow("install script fails") << installedApp() << true << true << false << none
                                              << "Install.sh: the new application is missing or a link: ";
    }

    void deployApp()
    {
        QFETCH(QString, destination);
        QFETCH(bool, privileged);
        QFETCH(bool, itemIsLink);
        QFETCH(bool, dismiss);
        QFETCH(QVariantMap, settings);
        QFETCH(QString, description);

        const QDateTime longAgo(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
        const bool rewritten = settings.value(QStringLiteral("installer_vendor")) != QStringLiteral("Keldran");
        if (!settings.isEmpty()) {
            QVERIFY(QDir().mkpath(QFileInfo(settingsPath()).absolutePath()));
            QVERIFY(KVPropertyList::writeDictionary(settingsPath(), settings));
            QFile file(settingsPath());
            QVERIFY(file.open(QIODevice::ReadWrite) && file.setFileTime(longAgo, QFileDevice::FileModificationTime));
        }
        QVERIFY(makeApp(destination, "1.0"));
        const QString app = sandbox().temporaryDirectory() + QStringLiteral("/unpacked/New $(x) 'app'\n;.app");
        QVERIFY(makeApp(app, "2.0"));
        const QString item = itemIsLink ? app + QStringLiteral(" link") : app;
        if (itemIsLink)
            QVERIFY(QFile::link(app, item));
        const QString parent = QFileInfo(destination).absolutePath();
        std::optional<KVTestUnwritableFolder> unwritable;
        const QString record = sandbox().root() + QStringLiteral("/elevator-record");
        if (privileged) {
            if (!unwritable.emplace(parent).isUnwritable())
                QSKIP("cannot make a folder unwritable here");
            qputenv("NESTORA_STANDIN_RECORD", record.toUtf8());
            qputenv("NESTORA_STANDIN_BEFORE", unwritable->liftCommand().toUtf8());
            if (dismiss)
                qputenv("NESTORA_STANDIN_DISMISS", "1");
        }
        KVError error;
        KVUpdateHelper::deployApp({item}, destination, &error);

        if (privileged) {
            // The install script got exactly the three paths, whatever they contain.
            QStringList command{m_resources + QStringLiteral("/Install.sh"), destination, item, parent};
            for (QString &word : command)
                word = KVShellQuoting::singleQuoted(word);
            QCOMPARE(QString::fromUtf8(readFile(record).split('\0').value(2)), command.join(QLatin1Char(' ')));
            QVERIFY(!QFileInfo::exists(sandbox().root() + QStringLiteral("/pwned")));
        }
        if (description.isNull()) {
            QVERIFY2(!error, qPrintable(error.description()));
            QCOMPARE(versionOf(destination), QByteArray("2.0"));
            QCOMPARE(hiddenIn(parent), QStringList());
            settings.insert(QStringLiteral("installer_vendor"), QStringLiteral("Keldran"));
            QCOMPARE(KVPropertyList::readDictionary(settingsPath()).valueOr({}), settings);
            QCOMPARE(QFileInfo(settingsPath()).lastModified().toUTC() != longAgo, rewritten);
            return;
        }
        QCOMPARE(error.domain(), QString());
        QCOMPARE(error.code(), qint64(-1));
        QCOMPARE(error.userInfo().value(QStringLiteral("output")), QVariant(QString()));
        QVERIFY2(error.localizedDescription().startsWith(description), qPrintable(error.localizedDescription()));
        QCOMPARE(versionOf(destination), QByteArray("1.0"));
        QVERIFY(!QFileInfo::exists(settingsPath()));
    }

    void removesOnlyWhatEarlierRunsLeft()
    {
        const QString uuid = QStringLiteral("0F8FAD5B-D9CB-469F-A165-70867728950E");
        const QString temporary = sandbox().temporaryDirectory();
        const QString data = sandbox().dataHome() + QStringLiteral("/Nestora");
        // The user's own entries, some of them named much like the installer's.
        for (const QString &path : {temporary + "/" + uuid, temporary + "/nestora-unpack-mine/a",
                                    applications() + "/.install-Ab12Cd/notes", applications() + "/.hidden",
                                    applications() + "/Nestora.app/a", data + "/Devices/." + uuid.toLower() + "_a",
                                    data + "/UpdateHistory.plist", data + "/UpdateHistory.plist.bak"})
            QVERIFY(writeFile(path, "mine"));
        const QStringList usersOwn = treeOf(sandbox().root());
        // What killed runs left: extraction folders, downloads, partial copies, staging folders.
        for (const QString &path :
             {temporary + "/nestora-unpack-" + uuid + "/Nestora.app/a", temporary + "/keldran-vexa-app.zip",
              temporary + "/keldran-vexa-app.zip.Xy12Zw", applications() + "/." + uuid + "_Nestora.app/a",
              applications() + "/.install-Xy12Zw/.nestora-install-staging", data + "/Devices/." + uuid + "_Icons/a",
              data + "/UpdateHistory.plist.Xy12Zw"})
            QVERIFY(writeFile(path, "left"));

        KVLeftovers::removeLeftoversOfEarlierRuns({applications(), data, data + QStringLiteral("/Devices")});
        QCOMPARE(treeOf(sandbox().root()), usersOwn);
    }

    void deployInstaller_data()
    {
        QTest::addColumn<bool>("newBundleExists");
        QTest::addColumn<bool>("parentWritable");
        QTest::addColumn<bool>("ownDisk"); // the applications folder is on a file system of its own

        QTest::newRow("swapped in") << true << true << false;
        QTest::newRow("moved across file systems, links kept") << true << true << true;
        QTest::newRow("new bundle missing") << false << true << false;
        QTest::newRow("parent folder unwritable") << true << false << false;
    }

    void deployInstaller()
    {
        QFETCH(bool, newBundleExists);
        QFETCH(bool, parentWritable);
        QFETCH(bool, ownDisk);

        std::unique_ptr<KVTestMount> disk;
        if (ownDisk && !(disk = KVTestMount::tmpfs(applications(), 1024 * 1024)))
            QSKIP("mounting a second file system needs root");
        const QString running = applications() + QStringLiteral("/NestoraInstaller.app");
        QVERIFY(makeApp(running, "1.0"));
        const QString newBundle = sandbox().temporaryDirectory() + QStringLiteral("/unpacked/NestoraInstaller.app");
        if (newBundleExists)
            QVERIFY(makeApp(newBundle, "2.0") && QFile::link("version.txt", newBundle + "/Contents/current"));
        std::optional<KVTestUnwritableFolder> unwritable;
        if (!parentWritable && !unwritable.emplace(applications()).isUnwritable())
            QSKIP("cannot make a folder unwritable here");

        KVError error;
        QVERIFY(KVUpdateHelper::deployInstaller(newBundle, running, &error));
        if (newBundleExists && parentWritable) {
            QVERIFY2(!error, qPrintable(error.description()));
            QCOMPARE(versionOf(running), QByteArray("2.0"));
            QCOMPARE(QFile::symLinkTarget(running + "/Contents/current"), running + "/Contents/version.txt");
            // The old installer waits beside the new one until the relaunched one confirms.
            QCOMPARE(hiddenIn(applications()), QStringList{".NestoraInstaller.app.previous"});
            QCOMPARE(versionOf(applications() + QStringLiteral("/.NestoraInstaller.app.previous")), QByteArray("1.0"));
            QVERIFY(!QFileInfo::exists(newBundle));
            return;
        }
        QCOMPARE(error.domain(), KVCocoaErrorDomain);
        QCOMPARE(error.code(), qint64(newBundleExists ? KVFileWriteNoPermissionError : KVFileNoSuchFileError));
        QCOMPARE(versionOf(running), QByteArray("1.0"));
        QCOMPARE(hiddenIn(applications()), QStringList());
    }
};

NESTORA_TEST_MAIN(DeployTest)
#include "tst_deploy.moc"
