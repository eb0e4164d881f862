// Update runs that fail against a real nginx, one row for each failure the user is told apart, a
// crafted archive of each bad shape, and a termination signal at each step that can hold a run. Each
// leaves the old installation complete, the history as it was, nothing of the run behind, and ends
// the installer's headless mode with a clear error and its own exit status.

#include "App/Model/KVErrorClass.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestHttpServer.h"
#include "KVTestInstallation.h"
#include "KVTestInstaller.h"
#include "KVTestMount.h"
#include "KVTestProcess.h"
#include "KVTestSandbox.h"
#include "KVTestUnwritableFolder.h"
#include "KVTestUpdateServer.h"
#include "Platform/KVPropertyList.h"

#include <QProcess>

#include <csignal>
#include <memory>
#include <unistd.h>

using namespace KVTestInstallation;

namespace {
using Snapshot = QMap<QString, QByteArray>;

enum class Fault {
    DigestMismatch,
    NotFound,
    ReadOnlyApplications,
    ReadOnlyData,
    NoUpdateAddress,
    ServerDown,
    EmptyManifest,
    NothingOffered,
    TooLittleSpace,
    CraftedApplication, // the application archive is the crafted one named in the row
    CraftedIcons,       // the device icons archive is
    PromptDismissed,
    NoAuthenticationAgent,
    InstallScriptMissing,
    InstallScriptFails,
    ProgramNotExecutable,
    // Faults that hold a run at one step until the installer is made to quit there.
    StalledManifest,
    TrickledDownload,
    UnansweredPrompt,
};

// What the sandbox holds before each failing run: an older application, which is running, and
// data files of which the devices XML and the icons are behind, so the run has three deliverables.
const QString kOldApplication = QStringLiteral("2.0.0");
const QByteArray kOldDevices = QByteArrayLiteral("PGRldmljZXMvPg==");
const QByteArray kInstalledSmartCards = QByteArrayLiteral("{\"cards\": []}");

bool needsAdministrator(Fault fault)
{
    return fault == Fault::PromptDismissed || fault == Fault::NoAuthenticationAgent ||
           fault == Fault::InstallScriptMissing || fault == Fault::InstallScriptFails ||
           fault == Fault::UnansweredPrompt;
}

// Only the data files are due: the application is already the release.
bool dataOnly(Fault fault)
{
    return fault == Fault::ReadOnlyData || fault == Fault::CraftedIcons;
}

// A stand-in for pkexec whose prompt is left unanswered; it marks that it is up beside itself.
const QByteArray kUnansweredPrompt = "#!/bin/sh\ntouch \"$0.shown\"\nexec sleep 60\n";

const QString kManifestPath = QStringLiteral("/manifest.ini");

QString applicationFile()
{
    return KVTestUpdateServer::applicationFile(KVTestUpdateServer::releaseApplication);
}

QStringList entriesOf(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

int exitStatus(KVErrorClass errorClass)
{
    return KVErrorExitStatus(errorClass);
}

} // namespace

Q_DECLARE_METATYPE(Fault)

class EndToEndFailuresTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void failedRunKeepsOldInstallation_data();
    void failedRunKeepsOldInstallation();

private:
    // The server with the fault, the old installation with its companion running.
    void prepareFailure(Fault fault, const QString &craftedArchive);
    // Runs the installer until the fault holds it at its step, then sends it the signal.
    KVTestProcess::Outcome interruptedRun(Fault fault, const QStringList &command, int signalNumber);
    QString elevator() const { return KVTestSandbox::current().root() + QStringLiteral("/elevator.sh"); }
    // Where the stand-in elevator records the command it was asked to run.
    QString elevatorRecord() const { return KVTestSandbox::current().root() + QStringLiteral("/elevator-record"); }

    std::unique_ptr<KVTestCompanion> m_companion;
    std::unique_ptr<KVTestUpdateServer> m_server;
    std::unique_ptr<KVTestHttpServer> m_misbehavingServer;
    std::unique_ptr<KVTestMount> m_readOnlyMount;
    std::unique_ptr<KVTestUnwritableFolder> m_unwritableApplications;
    KVTestInstaller m_installer;
    QMap<QString, QByteArray> m_craftedArchives; // by name, without ".zip"
    Snapshot m_oldApplication;
    Snapshot m_oldIcons;
    QVariantMap m_oldHistory;
    QStringList m_temporaryBefore;
    qint64 m_oldInstance = 0;
};

void EndToEndFailuresTest::initTestCase()
{
    m_companion = std::make_unique<KVTestCompanion>();
    const QString folder = KVTestSandbox::current().root() + QStringLiteral("/crafted");
    QVERIFY(KVTestProcess::run({QStringLiteral("python3"),
                                QStringLiteral(NESTORA_TEST_DATA_DIR "/archives/make-crafted-archives.py"), folder})
                .succeeded());
    for (const QFileInfo &archive : QDir(folder).entryInfoList(QDir::Files))
        m_craftedArchives.insert(archive.baseName(), KVTestFiles::readFile(archive.filePath()));
}

void EndToEndFailuresTest::init()
{
    KVTestSandbox::current().reset();
    QVERIFY(m_installer.install());
    m_server = std::make_unique<KVTestUpdateServer>();
    m_misbehavingServer = std::make_unique<KVTestHttpServer>();
}

void EndToEndFailuresTest::cleanup()
{
    m_server.reset(); // first: nginx runs from the sandbox, so it counts as a launch under way
    m_misbehavingServer.reset();
    m_companion->stopAll();
    m_readOnlyMount.reset();
    m_unwritableApplications.reset();
    for (const char *name :
         {"NESTORA_ELEVATOR", "NESTORA_STANDIN_RECORD", "NESTORA_STANDIN_DISMISS", "NESTORA_STANDIN_REFUSE"})
        qunsetenv(name);
}

void EndToEndFailuresTest::failedRunKeepsOldInstallation_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<QString>("archive"); // crafted by tests/data/archives/make-crafted-archives.py
    QTest::addColumn<int>("status");      // 128 + N: quit by signal N at the step where the fault holds the run
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("companionStopped");

    const QString none;
    // The message names the cause: the HTTP status, the errno text, the folder, the missing file.
    const auto fails = [&](const char *row, Fault fault, KVErrorClass errorClass, const QString &message,
                           bool companionStopped = false) {
        QTest::newRow(row) << fault << none << exitStatus(errorClass) << message << companionStopped;
    };
    fails("MD5 mismatch", Fault::DigestMismatch, KVErrorClass::DamagedDownload, "A download arrived damaged");
    fails("404", Fault::NotFound, KVErrorClass::ServerError, "(HTTP status 404).");
    fails("no update address", Fault::NoUpdateAddress, KVErrorClass::UpdateURLNotFound, "update URL not found: ");
    fails("server down", Fault::ServerDown, KVErrorClass::ServerUnreachable, "can’t be reached (Connection refused).");
    fails("empty manifest", Fault::EmptyManifest, KVErrorClass::InvalidManifest, "information that cannot be read.");
    fails("nothing installed, nothing offered", Fault::NothingOffered, KVErrorClass::NothingInstalled,
          "Nestora is not installed, and the update server offers nothing to install.");
    fails("too little space", Fault::TooLittleSpace, KVErrorClass::DiskFull,
          "not enough free space in " + KVTestSandbox::current().root() + "/cache/Nestora/Downloads: ");
    fails("program not executable", Fault::ProgramNotExecutable, KVErrorClass::LaunchFailed,
          "Nestora could not be started. Please download Nestora from https://" NESTORA_VENDOR_SITE "/");

    // Archives of a bad shape, refused by the shape check or by the unzip tool itself.
    const auto crafted = [](const char *row, const QString &archive, const QString &problem, bool icons = false,
                            KVErrorClass refusal = KVErrorClass::InvalidArchive) {
        QTest::newRow(row) << (icons ? Fault::CraftedIcons : Fault::CraftedApplication) << archive
                           << exitStatus(refusal) << problem << true;
    };
    const QString unsafe = QStringLiteral("the archive cannot be unpacked safely: ");
    const QString invalid = QStringLiteral("the archive is not a valid Nestora.app: ");
    crafted("not an archive", "not-an-archive", "A downloaded archive could not be unpacked: ", false,
            KVErrorClass::UnpackFailed);
    crafted("README beside the bundle", "with-readme",
            invalid + "it holds 2 items instead of one bundle: Nestora.app, README.txt");
    crafted("../ entry", "parent-entry", unsafe + "the entry \u201c../nestora-escaped.txt\u201d points outside");
    crafted("absolute entry", "absolute-entry", unsafe + "the entry \u201c/tmp/nestora-absolute.txt\u201d points");
    crafted("bundle is a link", "top-level-link", unsafe + "its top-level item \u201cNestora.app\u201d is a link");
    crafted("link leaving the bundle", "link-leaving-bundle",
            unsafe + "the link \u201cNestora.app/Contents/Resources/data\u201d leads outside \u201cNestora.app\u201d");
    crafted("program without its run bit", "program-not-executable",
            invalid + "Contents/MacOS/Nestora is not an executable file");
    crafted("other identifier, data descriptors", "other-identifier",
            invalid + "its bundle identifier is \u201ccom.example.other\u201d, not \u201ccom.keldran.nestora\u201d");
    crafted("no Info.plist", "no-info-plist", invalid + "Contents/Info.plist is missing or unreadable");
    crafted("non-UTF-8 name", "non-utf8-name", invalid + "it holds \u201cNestor");
    crafted("only __MACOSX", "only-macosx", invalid + "it holds nothing");
    crafted("zip64 file named like the bundle", "file-as-bundle-zip64", invalid + "Nestora.app is not a folder");
    crafted("padded", "padded", "4096 extra bytes at beginning or within zipfile", false, KVErrorClass::UnpackFailed);
    crafted("zip bomb", "expands-too-far", unsafe + "it would unpack to 33554804 bytes, more than 20 times its size");
    // A failed data deployment is not recorded, so the next run tries again.
    crafted("icons with a ../ entry", "parent-entry", unsafe + "the entry \u201c../nestora-escaped.txt\u201d", true);

    // Quit at each step that can hold a run: the signal ends it the way Quit does.
    QTest::newRow("quit checking, the manifest stalls")
        << Fault::StalledManifest << none << 128 + SIGTERM << none << false;
    QTest::newRow("quit downloading, the archive trickles")
        << Fault::TrickledDownload << none << 128 + SIGINT << none << false;
    QTest::newRow("quit waiting for the administrator")
        << Fault::UnansweredPrompt << none << 128 + SIGHUP << none << true;

    // Administrator rights are asked for where the user's own do not reach.
    fails("prompt dismissed", Fault::PromptDismissed, KVErrorClass::PromptDismissed,
          "The administrator password is required", true);
    fails("no authentication agent", Fault::NoAuthenticationAgent, KVErrorClass::ElevatorUnavailable,
          "(Error executing command as another user: No authentication agent found.)", true);
    fails("install script missing", Fault::InstallScriptMissing, KVErrorClass::InstallerDamaged,
          "damaged: " + m_installer.bundlePath() + "/Contents/Resources/Install.sh is missing", true);
    fails("install script fails", Fault::InstallScriptFails, KVErrorClass::Failed,
          "Nestora could not be installed. Please try again later", true);
    if (::geteuid() != 0) {
        qInfo("the read-only rows need root to mount a folder; left out");
        return;
    }
    const QString readOnly = QStringLiteral(" cannot be written, not even with administrator rights");
    fails("read-only applications", Fault::ReadOnlyApplications, KVErrorClass::ReadOnlyFolder,
          KVTestSandbox::current().applicationsDirectory() + "/Nestora.app" + readOnly, true);
    fails("read-only data folder", Fault::ReadOnlyData, KVErrorClass::ReadOnlyFolder,
          QFileInfo(devicesDataPath()).path() + readOnly, true);
}

void EndToEndFailuresTest::prepareFailure(Fault fault, const QString &craftedArchive)
{
    QVERIFY(m_server->addNestoraRelease());
    if (fault == Fault::StalledManifest) {
        m_misbehavingServer->setResponse(kManifestPath, {200, {}, {}, KVTestHttpServer::Behaviour::Stall, 0});
        m_server->nginx().proxy(kManifestPath, m_misbehavingServer->url(kManifestPath));
    }
    if (fault == Fault::TrickledDownload) {
        const QString path = QLatin1Char('/') + applicationFile();
        const QByteArray archive = KVTestFiles::readFile(m_server->servedPath(applicationFile()));
        m_misbehavingServer->setResponse(path, {200, archive, {}, KVTestHttpServer::Behaviour::Answer, 16});
        m_server->nginx().proxy(path, m_misbehavingServer->url(path));
    }
    if (fault == Fault::CraftedApplication || fault == Fault::CraftedIcons) {
        // Published with its digest, so that only the unpacking can tell.
        const QString served = fault == Fault::CraftedIcons ? KVTestUpdateServer::deviceIconsFile : applicationFile();
        QVERIFY(m_craftedArchives.contains(craftedArchive));
        QVERIFY(KVTestFiles::writeFile(m_server->servedPath(served), m_craftedArchives.value(craftedArchive)));
    }
    QString failure;
    QVERIFY2(m_server->start(&failure), qPrintable(failure));

    const QString manifest = m_server->servedPath(QStringLiteral("manifest.ini"));
    const QString testServerFile = KVTestSandbox::current().home() + QStringLiteral("/Downloads/TestServerForVexa.txt");
    if (fault == Fault::NotFound) {
        QVERIFY(QFile::remove(m_server->servedPath(KVTestUpdateServer::deviceXMLFile)));
    } else if (fault == Fault::DigestMismatch) {
        // Same length, other bytes: only the digest can tell.
        QByteArray damaged = KVTestUpdateServer::releaseDevicesXMLText;
        damaged.replace("Reader", "Raider");
        QVERIFY(KVTestFiles::writeFile(m_server->servedPath(KVTestUpdateServer::deviceXMLFile), damaged));
    } else if (fault == Fault::NoUpdateAddress) {
        QVERIFY(QFile::remove(testServerFile));
        const QString infoPlist = m_installer.bundlePath() + QStringLiteral("/Contents/Info.plist");
        QVariantMap info = KVPropertyList::readDictionary(infoPlist).valueOr({});
        info.remove(QStringLiteral("AppUpdateURL"));
        QVERIFY(KVPropertyList::writeDictionary(infoPlist, info));
    } else if (fault == Fault::ServerDown) {
        QVERIFY(KVTestFiles::writeFile(testServerFile, "{\"ApplicationUpdate\": \"http://127.0.0.1:1/manifest.ini\"}"));
    } else if (fault == Fault::EmptyManifest) {
        QVERIFY(KVTestFiles::writeFile(manifest, ""));
    } else if (fault == Fault::NothingOffered || fault == Fault::ProgramNotExecutable) {
        QVERIFY(KVTestFiles::writeFile(manifest, "[Mac_Applicaton]\nDebug=Mac_Application_2.2.0\n"));
    } else if (fault == Fault::TooLittleSpace) {
        QVERIFY(m_server->setManifestValue(QStringLiteral("Mac_Application_2.2.0"), QStringLiteral("Bytes"),
                                           QStringLiteral("999999999999999999")));
    }

    if (fault != Fault::NothingOffered)
        QVERIFY(installApplication(dataOnly(fault) ? KVTestUpdateServer::releaseApplication : kOldApplication));
    QVERIFY(KVTestFiles::writeFile(devicesDataPath(), kOldDevices));
    QVERIFY(KVTestFiles::writeFile(deviceIconsPath() + QStringLiteral("/old.png"), "old icon"));
    QVERIFY(KVTestFiles::writeFile(smartCardsPath(), kInstalledSmartCards));
    // With crafted icons only they are due, so that nothing else is deployed before them.
    m_oldHistory = {{QStringLiteral("Device_XML"),
                     fault == Fault::CraftedIcons ? KVTestUpdateServer::releaseDeviceXML : QStringLiteral("4")},
                    {QStringLiteral("Device_Icon"), QStringLiteral("2")},
                    {QStringLiteral("Smart_Cards"), KVTestUpdateServer::releaseSmartCards}};
    QVERIFY(writeHistory(m_oldHistory));
    m_oldApplication = snapshot(applicationPath());
    m_oldIcons = snapshot(deviceIconsPath());

    if (fault == Fault::ReadOnlyApplications || fault == Fault::ReadOnlyData) {
        m_readOnlyMount =
            KVTestMount::readOnly(fault == Fault::ReadOnlyData ? QFileInfo(devicesDataPath()).path()
                                                               : KVTestSandbox::current().applicationsDirectory());
        QVERIFY(m_readOnlyMount);
    }
    if (needsAdministrator(fault)) {
        m_unwritableApplications =
            std::make_unique<KVTestUnwritableFolder>(KVTestSandbox::current().applicationsDirectory());
        QVERIFY(m_unwritableApplications->isUnwritable());
    }
    if (fault == Fault::InstallScriptMissing)
        QVERIFY(QFile::remove(m_installer.bundlePath() + QStringLiteral("/Contents/Resources/Install.sh")));
    QFile::remove(elevatorRecord()); // outside the folders the sandbox empties
    qputenv("NESTORA_ELEVATOR", NESTORA_TEST_DATA_DIR "/elevator-standin.sh");
    qputenv("NESTORA_STANDIN_RECORD", QFile::encodeName(elevatorRecord()));
    if (fault == Fault::PromptDismissed)
        qputenv("NESTORA_STANDIN_DISMISS", "1");
    if (fault == Fault::NoAuthenticationAgent)
        qputenv("NESTORA_STANDIN_REFUSE", "1");
    if (fault == Fault::UnansweredPrompt) {
        QVERIFY(KVTestFiles::writeFile(elevator(), kUnansweredPrompt));
        QVERIFY(QFile::setPermissions(elevator(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        qputenv("NESTORA_ELEVATOR", QFile::encodeName(elevator()));
    }
    m_temporaryBefore = entriesOf(KVTestSandbox::current().temporaryDirectory());

    m_oldInstance = 0;
    if (fault == Fault::NothingOffered)
        return;
    const QString program = applicationPath() + QStringLiteral("/Contents/MacOS/Nestora");
    QVERIFY(QProcess::startDetached(program, {}));
    QTRY_COMPARE(m_companion->starts().size(), 1);
    m_oldInstance = m_companion->starts().first().processIdentifier;
    if (fault == Fault::ProgramNotExecutable)
        QVERIFY(QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner));
}

KVTestProcess::Outcome EndToEndFailuresTest::interruptedRun(Fault fault, const QStringList &command, int signalNumber)
{
    QProcess installer;
    installer.start(command.first(), command.mid(1));
    auto stop = qScopeGuard([&] {
        installer.kill();
        installer.waitForFinished();
    });
    const auto atStep = [&] {
        switch (fault) {
        case Fault::StalledManifest:
            return m_misbehavingServer->requestCount(kManifestPath) > 0;
        case Fault::TrickledDownload:
            return m_misbehavingServer->requestCount(QLatin1Char('/') + applicationFile()) > 0;
        default:
            return QFileInfo::exists(elevator() + QStringLiteral(".shown"));
        }
    };
    KVTestProcess::Outcome outcome;
    if (!QTest::qWaitFor(atStep, 30000) || ::kill(pid_t(installer.processId()), signalNumber) != 0)
        return outcome;
    // A hang, not a slow machine, is what this catches; the time itself is measured elsewhere.
    outcome.finished = installer.waitForFinished(10000);
    if (outcome.finished && installer.exitStatus() == QProcess::NormalExit)
        outcome.exitStatus = installer.exitCode();
    outcome.errors = QString::fromUtf8(installer.readAllStandardError());
    return outcome;
}

void EndToEndFailuresTest::failedRunKeepsOldInstallation()
{
    QFETCH(Fault, fault);
    QFETCH(QString, archive);
    QFETCH(int, status);
    QFETCH(QString, message);
    QFETCH(bool, companionStopped);
    prepareFailure(fault, archive);
    if (QTest::currentTestFailed())
        return;

    const QStringList command = (needsAdministrator(fault) ? KVTestUnwritableFolder::launcher() : QStringList()) +
                                QStringList{m_installer.executablePath()} + KVTestInstaller::headlessArguments;
    const KVTestProcess::Outcome outcome =
        status > 128 ? interruptedRun(fault, command, status - 128) : KVTestProcess::run(command);
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.exitStatus, status);
    QVERIFY2(outcome.errors.contains(message), qPrintable(outcome.errors));
    QVERIFY(!outcome.output.contains("starting Nestora"));
    // A password is asked for only where it can help: never for a read-only file system or a
    // damaged installer.
    const bool prompted = status == exitStatus(KVErrorClass::PromptDismissed) ||
                          status == exitStatus(KVErrorClass::ElevatorUnavailable) ||
                          status == exitStatus(KVErrorClass::Failed);
    QCOMPARE(QFileInfo::exists(elevatorRecord()), prompted);
    m_unwritableApplications.reset();

    // The old installation complete, nothing new deployed, the history as it was, and nothing of
    // the run left: no download, no unpacked folder, nothing beside the application.
    QCOMPARE(snapshot(applicationPath()), m_oldApplication);
    QCOMPARE(KVTestFiles::readFile(devicesDataPath()), kOldDevices);
    QCOMPARE(snapshot(deviceIconsPath()), m_oldIcons);
    QCOMPARE(KVTestFiles::readFile(smartCardsPath()), kInstalledSmartCards);
    QCOMPARE(history(), m_oldHistory);
    QCOMPARE(entriesOf(KVTestSandbox::current().temporaryDirectory()), m_temporaryBefore);
    QCOMPARE(entriesOf(KVTestSandbox::current().applicationsDirectory()),
             fault == Fault::NothingOffered ? QStringList() : QStringList{"Nestora.app"});

    m_server.reset(); // nginx runs from the sandbox, so it would count as a launch under way
    const std::optional<QList<KVTestCompanion::Start>> starts = m_companion->settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), m_oldInstance ? 1 : 0); // never launched after a failure
    if (m_oldInstance)
        QCOMPARE(KVTestCompanion::isRunning(m_oldInstance), !companionStopped);
}

NESTORA_TEST_MAIN(EndToEndFailuresTest)
#include "tst_endtoend_failures.moc"
