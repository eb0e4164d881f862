// Update runs that fail against a real nginx, one for each class of failure the user is told
// apart: a damaged download, a missing file, a connection cut halfway, no server, a manifest that
// is empty or offers nothing, too little disk space, a corrupt archive, an applications folder on
// a read-only file system or one that needs administrator rights the user does not give, a damaged
// installer, and an application that cannot be started. Each leaves the old installation complete,
// the history as it was, and a clear error with its own exit status from the installer's headless
// mode. Also the weighted progress of a successful two-file run.

#include "App/Model/KVErrorClass.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVLocalizedString.h"
#include "Installer/KVHeadlessDriver.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestHost.h"
#include "KVTestHttpServer.h"
#include "KVTestInstallation.h"
#include "KVTestInstaller.h"
#include "KVTestMount.h"
#include "KVTestProcess.h"
#include "KVTestSandbox.h"
#include "KVTestUnwritableFolder.h"
#include "KVTestUpdateServer.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"

#include <QProcess>

#include <atomic>
#include <csignal>
#include <memory>
#include <unistd.h>

using namespace KVTestInstallation;

namespace {
using Snapshot = QMap<QString, QByteArray>;

enum class Fault {
    DigestMismatch,
    NotFound,
    CutHalfway,
    InsecureRedirect,
    ReadOnlyApplications,
    ReadOnlyData,
    NoUpdateAddress,
    ServerDown,
    EmptyManifest,
    NothingOffered,
    TooLittleSpace,
    CorruptArchive,
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
const QVariantMap kOldHistory{{QStringLiteral("Device_XML"), QStringLiteral("4")},
                              {QStringLiteral("Device_Icon"), QStringLiteral("2")},
                              {QStringLiteral("Smart_Cards"), KVTestUpdateServer::releaseSmartCards}};

bool needsAdministrator(Fault fault)
{
    return fault == Fault::PromptDismissed || fault == Fault::NoAuthenticationAgent ||
           fault == Fault::InstallScriptMissing || fault == Fault::InstallScriptFails ||
           fault == Fault::UnansweredPrompt;
}

// A stand-in for pkexec whose prompt is left unanswered; it marks that it is up beside itself.
const QByteArray kUnansweredPrompt = "#!/bin/sh\ntouch \"$0.shown\"\nexec sleep 60\n";

const QString kManifestPath = QStringLiteral("/manifest.ini");

// The served path of the application release.
QString applicationFile()
{
    return QLatin1Char('/') + KVTestUpdateServer::applicationFile(KVTestUpdateServer::releaseApplication);
}

QStringList leftDownloads()
{
    return QDir(KVTestSandbox::current().temporaryDirectory())
        .entryList({QStringLiteral("keldran-vexa-*"), QStringLiteral("nestora-unpack-*")}, QDir::AllEntries,
                   QDir::Name);
}

} // namespace

Q_DECLARE_METATYPE(Fault)
Q_DECLARE_METATYPE(KVErrorClass)

class EndToEndFailuresTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void insecureRedirectIsNotFollowed();
    void failedHeadlessRunKeepsOldInstallation_data();
    void failedHeadlessRunKeepsOldInstallation();
    void craftedArchiveKeepsInstallation_data();
    void craftedArchiveKeepsInstallation();
    void weightedProgressOfTwoFiles();
    void quitAtEachStep_data();
    void quitAtEachStep();

private:
    struct Run
    {
        QList<std::pair<float, std::optional<QVariantMap>>> reports;
        QVariantMap result;
        KVError error;
        bool completed = false;
    };

    // The server with the fault, the old installation with its companion running.
    void prepareFailure(Fault fault);
    // The old installation complete, nothing new deployed, the history as it was, the companion
    // stopped or not, and nothing of the run left in the temporary folder.
    void verifyOldInstallationKept(bool companionStopped);
    QString elevator() const { return KVTestSandbox::current().root() + QStringLiteral("/elevator.sh"); }
    // The due sections, checked and then updated by an engine of this process.
    void runInProcess(KVUpdateHelper &engine, Run &run);
    // Where the stand-in elevator records the command it was asked to run.
    static QString elevatorRecord();

    std::unique_ptr<KVTestCompanion> m_companion;
    std::unique_ptr<KVTestUpdateServer> m_server;
    std::unique_ptr<KVTestHttpServer> m_misbehavingServer;
    std::unique_ptr<KVTestHttpServer> m_tlsServer;
    std::unique_ptr<KVTestMount> m_readOnlyMount;
    std::unique_ptr<KVTestUnwritableFolder> m_unwritableApplications;
    KVTestInstaller m_installer;
    Snapshot m_oldApplication;
    QMap<QString, QByteArray> m_craftedArchives; // by name, without ".zip"
    Snapshot m_oldIcons;
    qint64 m_oldInstance = 0;
    int m_terminations = 0;
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
    // The engine of this process takes its version and its install script from the same copy.
    KVBundle::setMainBundlePath(m_installer.bundlePath());
    m_server = std::make_unique<KVTestUpdateServer>();
    m_misbehavingServer = std::make_unique<KVTestHttpServer>();
    m_terminations = 0;
}

void EndToEndFailuresTest::cleanup()
{
    m_server.reset(); // first: nginx runs from the sandbox, so it counts as a launch under way
    m_misbehavingServer.reset();
    m_tlsServer.reset();
    m_companion->stopAll();
    m_readOnlyMount.reset();
    m_unwritableApplications.reset();
    for (const char *name :
         {"NESTORA_ELEVATOR", "NESTORA_STANDIN_RECORD", "NESTORA_STANDIN_DISMISS", "NESTORA_STANDIN_REFUSE"})
        qunsetenv(name);
}

void EndToEndFailuresTest::failedHeadlessRunKeepsOldInstallation_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<KVErrorClass>("errorClass");
    QTest::addColumn<QString>("message");
    QTest::addColumn<bool>("companionStopped");

    const QString applications = KVTestSandbox::current().applicationsDirectory();
    const QString damaged = QStringLiteral("A download arrived damaged: it was cut short or does not match");
    QTest::newRow("MD5 mismatch") << Fault::DigestMismatch << KVErrorClass::DamagedDownload << damaged << false;
    QTest::newRow("404") << Fault::NotFound << KVErrorClass::ServerError
                         << "The update server answered with an error (HTTP status 404)." << false;
    QTest::newRow("cut halfway") << Fault::CutHalfway << KVErrorClass::DamagedDownload << damaged << false;
    QTest::newRow("no update address") << Fault::NoUpdateAddress << KVErrorClass::UpdateURLNotFound
                                       << "update URL not found: " << false;
    QTest::newRow("server down") << Fault::ServerDown << KVErrorClass::ServerUnreachable
                                 << "The update server can’t be reached (Connection refused)." << false;
    QTest::newRow("empty manifest") << Fault::EmptyManifest << KVErrorClass::InvalidManifest
                                    << "The update server sent update information that cannot be read." << false;
    QTest::newRow("nothing installed, nothing offered")
        << Fault::NothingOffered << KVErrorClass::NothingInstalled
        << "Nestora is not installed, and the update server offers nothing to install." << false;
    QTest::newRow("too little space") << Fault::TooLittleSpace << KVErrorClass::DiskFull
                                      << "There is not enough free space in " +
                                             KVTestSandbox::current().temporaryDirectory() + ": "
                                      << false;
    QTest::newRow("corrupt archive") << Fault::CorruptArchive << KVErrorClass::UnpackFailed
                                     << "A downloaded archive could not be unpacked: " << true;
    QTest::newRow("program not executable")
        << Fault::ProgramNotExecutable << KVErrorClass::LaunchFailed
        << "Nestora could not be started. Please download Nestora from https://" NESTORA_VENDOR_SITE "/" << false;
    // The rows below ask for administrator rights where the user's own do not reach.
    QTest::newRow("prompt dismissed") << Fault::PromptDismissed << KVErrorClass::PromptDismissed
                                      << "The administrator password is required to do this." << true;
    QTest::newRow("no authentication agent")
        << Fault::NoAuthenticationAgent << KVErrorClass::ElevatorUnavailable
        << "Administrator rights could not be obtained (Error executing command as another user: No "
           "authentication agent found.)"
        << true;
    QTest::newRow("install script missing")
        << Fault::InstallScriptMissing << KVErrorClass::InstallerDamaged
        << "This installer is damaged: " + m_installer.bundlePath() + "/Contents/Resources/Install.sh is missing"
        << true;
    QTest::newRow("install script fails")
        << Fault::InstallScriptFails << KVErrorClass::Failed
        << "Nestora could not be installed. Please try again later, or download it from https://" NESTORA_VENDOR_SITE
           "/"
        << true;
    if (::geteuid() != 0) {
        qInfo("the read-only applications row needs root to mount the folder; left out");
        return;
    }
    QTest::newRow("read-only applications")
        << Fault::ReadOnlyApplications << KVErrorClass::ReadOnlyFolder
        << applications + "/Nestora.app cannot be written, not even with administrator rights" << true;
    // Only data files are due; one that cannot be deployed is not recorded, so the next run tries again.
    QTest::newRow("read-only data folder")
        << Fault::ReadOnlyData << KVErrorClass::ReadOnlyFolder
        << QFileInfo(devicesDataPath()).path() + " cannot be written, not even with administrator rights" << true;
}

void EndToEndFailuresTest::prepareFailure(Fault fault)
{
    QVERIFY(m_server->addNestoraRelease());
    if (fault == Fault::StalledManifest) {
        m_misbehavingServer->setResponse(kManifestPath, {200, {}, {}, KVTestHttpServer::Behaviour::Stall, 0});
        m_server->nginx().proxy(kManifestPath, m_misbehavingServer->url(kManifestPath));
    }
    if (fault == Fault::TrickledDownload) {
        const QByteArray archive = KVTestFiles::readFile(m_server->servedPath(applicationFile().mid(1)));
        m_misbehavingServer->setResponse(applicationFile(),
                                         {200, archive, {}, KVTestHttpServer::Behaviour::Answer, 16});
        m_server->nginx().proxy(applicationFile(), m_misbehavingServer->url(applicationFile()));
    }
    if (fault == Fault::NotFound)
        m_server->nginx().answerNotFound(QLatin1Char('/') + KVTestUpdateServer::deviceXMLFile);
    if (fault == Fault::CutHalfway)
        m_server->nginx().cutHalfway(applicationFile(), *m_misbehavingServer);
    if (fault == Fault::CorruptArchive) // published with its digest, so only the unpacking can tell
        QVERIFY(KVTestFiles::writeFile(m_server->servedPath(applicationFile().mid(1)), "PK\3\4 not an archive"));
    QString failure;
    QVERIFY2(m_server->start(&failure), qPrintable(failure));
    QVERIFY(m_server->writeTestServerFile());

    const QString manifest = m_server->servedPath(QStringLiteral("manifest.ini"));
    if (fault == Fault::InsecureRedirect) {
        const std::optional<QSslConfiguration> tls = KVTestHttpServer::trustedTls();
        QVERIFY(tls);
        m_tlsServer = std::make_unique<KVTestHttpServer>(tls);
        const QString devices = QLatin1Char('/') + KVTestUpdateServer::deviceXMLFile;
        m_tlsServer->setRedirect(devices, m_server->nginx().url(devices));
        QVERIFY(m_server->setManifestValue(QStringLiteral("Device_XML"), QStringLiteral("URL"),
                                           m_tlsServer->url(devices).toString()));
    } else if (fault == Fault::DigestMismatch) {
        // Same length, other bytes: only the digest can tell.
        QByteArray damaged = KVTestUpdateServer::releaseDevicesXMLText;
        damaged.replace("Reader", "Raider");
        QVERIFY(KVTestFiles::writeFile(m_server->servedPath(KVTestUpdateServer::deviceXMLFile), damaged));
    } else if (fault == Fault::NoUpdateAddress) {
        QVERIFY(QFile::remove(KVTestSandbox::current().home() + QStringLiteral("/Downloads/TestServerForVexa.txt")));
        const QString infoPlist = m_installer.bundlePath() + QStringLiteral("/Contents/Info.plist");
        QVariantMap info = KVPropertyList::readDictionary(infoPlist);
        info.remove(QStringLiteral("AppUpdateURL"));
        QVERIFY(KVPropertyList::writeDictionary(infoPlist, info));
    } else if (fault == Fault::ServerDown) {
        const QByteArray closedPort = "{\"ApplicationUpdate\": \"http://127.0.0.1:1/manifest.ini\"}";
        QVERIFY(KVTestFiles::writeFile(
            KVTestSandbox::current().home() + QStringLiteral("/Downloads/TestServerForVexa.txt"), closedPort));
    } else if (fault == Fault::EmptyManifest) {
        QVERIFY(KVTestFiles::writeFile(manifest, ""));
    } else if (fault == Fault::NothingOffered || fault == Fault::ProgramNotExecutable) {
        QVERIFY(KVTestFiles::writeFile(manifest, "[Mac_Applicaton]\nDebug=Mac_Application_2.2.0\n"));
    } else if (fault == Fault::TooLittleSpace) {
        QVERIFY(m_server->setManifestValue(QStringLiteral("Mac_Application_2.2.0"), QStringLiteral("Bytes"),
                                           QStringLiteral("999999999999999999")));
    }

    if (fault != Fault::NothingOffered)
        QVERIFY(installApplication(fault == Fault::ReadOnlyData ? KVTestUpdateServer::releaseApplication
                                                                : kOldApplication));
    QVERIFY(KVTestFiles::writeFile(devicesDataPath(), kOldDevices));
    QVERIFY(KVTestFiles::writeFile(deviceIconsPath() + QStringLiteral("/old.png"), "old icon"));
    QVERIFY(KVTestFiles::writeFile(smartCardsPath(), kInstalledSmartCards));
    QVERIFY(writeHistory(kOldHistory));
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
    QFile::remove(elevatorRecord());
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

QString EndToEndFailuresTest::elevatorRecord()
{
    return KVTestSandbox::current().root() + QStringLiteral("/elevator-record");
}

void EndToEndFailuresTest::verifyOldInstallationKept(bool companionStopped)
{
    QCOMPARE(snapshot(applicationPath()), m_oldApplication);
    QCOMPARE(KVTestFiles::readFile(devicesDataPath()), kOldDevices);
    QCOMPARE(snapshot(deviceIconsPath()), m_oldIcons);
    QCOMPARE(KVTestFiles::readFile(smartCardsPath()), kInstalledSmartCards);
    QVERIFY(!QFileInfo::exists(pluginFolder()));
    QCOMPARE(history(), kOldHistory);
    QCOMPARE(leftDownloads(), QStringList()); // nor extraction folders: a failed run leaves nothing

    m_server.reset(); // nginx runs from the sandbox, so it would count as a launch under way
    const std::optional<QList<KVTestCompanion::Start>> starts = m_companion->settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), m_oldInstance ? 1 : 0); // never launched after a failure
    if (m_oldInstance)
        QCOMPARE(KVTestCompanion::isRunning(m_oldInstance), !companionStopped);
}

void EndToEndFailuresTest::runInProcess(KVUpdateHelper &engine, Run &run)
{
    engine.setHost(KVTestHost([this] { ++m_terminations; }));
    std::optional<QList<KVINISectionPtr>> due;
    engine.checkUpdateWithcompletionHandler([&](const QList<KVINISectionPtr> &sections, const KVError &error) {
        QVERIFY2(error.isNull(), qPrintable(error.description()));
        due = sections;
    });
    QTRY_VERIFY_WITH_TIMEOUT(due.has_value(), 30000);
    engine.updateWithSections(
        *due,
        [&](float fraction, const std::optional<QVariantMap> &info) {
            run.reports.append({fraction, info});
        },
        [&](const QVariantMap &result, const KVError &error) {
            run.result = result;
            run.error = error;
            run.completed = true;
        });
    QTRY_VERIFY_WITH_TIMEOUT(run.completed, 60000);
    // The engine's last steps (the hand-over) follow the completion on its queue and need the
    // main thread, so this one keeps turning its event loop until the queue is idle.
    std::atomic<bool> idle = false;
    engine.queue().async([&] { idle = true; });
    QTRY_VERIFY_WITH_TIMEOUT(idle.load(), 30000);
}

// An HTTPS address that sends the client on to a plain HTTP one is not followed. Only this process
// trusts the test certificate, so the run goes through the engine here rather than the installer.
void EndToEndFailuresTest::insecureRedirectIsNotFollowed()
{
    prepareFailure(Fault::InsecureRedirect);
    if (QTest::currentTestFailed())
        return;

    auto engine = std::make_unique<KVUpdateHelper>(m_server->manifestURL());
    Run run;
    runInProcess(*engine, run);
    engine.reset(); // with the downloads it kept for a retry
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(run.error.domain(), KVURLErrorDomain);
    QCOMPARE(run.result.value(QStringLiteral("error")).value<KVError>(), run.error);
    QCOMPARE(run.reports.last().second.value_or(QVariantMap()),
             QVariantMap({{QStringLiteral("error"), QVariant::fromValue(run.error)}}));
    QCOMPARE(m_terminations, 0);
    const QString devices = QLatin1Char('/') + KVTestUpdateServer::deviceXMLFile;
    QCOMPARE(m_tlsServer->requestCount(devices), 1);
    QVERIFY(!m_server->requestedPaths().contains(devices));
    verifyOldInstallationKept(false);
}

void EndToEndFailuresTest::failedHeadlessRunKeepsOldInstallation()
{
    QFETCH(Fault, fault);
    QFETCH(KVErrorClass, errorClass);
    QFETCH(QString, message);
    QFETCH(bool, companionStopped);
    prepareFailure(fault);
    if (QTest::currentTestFailed())
        return;

    const QStringList launcher = needsAdministrator(fault) ? KVTestUnwritableFolder::launcher() : QStringList();
    const KVTestInstaller::Outcome outcome = m_installer.run(KVTestInstaller::headlessArguments, 120000, launcher);
    QVERIFY(outcome.finished);
    QVERIFY2(outcome.errors.contains("NestoraInstaller: " + message), qPrintable(outcome.errors));
    QCOMPARE(outcome.exitStatus, KVErrorExitStatus(errorClass));
    QVERIFY(!outcome.output.contains("starting Nestora"));
    // A password is asked for only where it can help: never for a read-only file system or a
    // damaged installer.
    const bool prompted = errorClass == KVErrorClass::PromptDismissed ||
                          errorClass == KVErrorClass::ElevatorUnavailable || errorClass == KVErrorClass::Failed;
    QCOMPARE(QFileInfo::exists(elevatorRecord()), prompted);
    m_unwritableApplications.reset();
    verifyOldInstallationKept(companionStopped);
}

void EndToEndFailuresTest::craftedArchiveKeepsInstallation_data()
{
    QTest::addColumn<QString>("archive"); // made by tests/data/archives/make-crafted-archives.py
    QTest::addColumn<bool>("asIcons");    // served as the device icons, else as the application
    QTest::addColumn<QString>("problem");

    const QString unsafe = QStringLiteral("the archive cannot be unpacked safely: ");
    const QString invalid = QStringLiteral("the archive is not a valid Nestora.app: ");
    QTest::newRow("README beside the bundle")
        << "with-readme" << false << invalid + "it holds 2 items instead of one bundle: Nestora.app, README.txt";
    QTest::newRow("../ entry") << "parent-entry" << false
                               << unsafe + "the entry \u201c../nestora-escaped.txt\u201d points outside its folder";
    QTest::newRow("absolute entry") << "absolute-entry" << false
                                    << unsafe + "the entry \u201c/tmp/nestora-absolute.txt\u201d points outside";
    QTest::newRow("bundle is a link") << "top-level-link" << false
                                      << unsafe + "its top-level item \u201cNestora.app\u201d is a link";
    QTest::newRow("link leaving the bundle")
        << "link-leaving-bundle" << false
        << unsafe + "the link \u201cNestora.app/Contents/Resources/data\u201d leads outside \u201cNestora.app\u201d";
    QTest::newRow("program without its run bit")
        << "program-not-executable" << false << invalid + "Contents/MacOS/Nestora is not an executable file";
    QTest::newRow("other identifier, data descriptors")
        << "other-identifier" << false
        << invalid + "its bundle identifier is \u201ccom.example.other\u201d, not \u201ccom.keldran.nestora\u201d";
    QTest::newRow("no Info.plist") << "no-info-plist" << false
                                   << invalid + "Contents/Info.plist is missing or unreadable";
    QTest::newRow("other name") << "other-name" << false << invalid + "it holds \u201cNestora 2.app\u201d";
    QTest::newRow("only __MACOSX") << "only-macosx" << false << invalid + "it holds nothing";
    QTest::newRow("zip64 file named like the bundle")
        << "file-as-bundle-zip64" << false << invalid + "Nestora.app is not a folder";
    QTest::newRow("non-UTF-8 name") << "non-utf8-name" << false << invalid + "it holds \u201cNestor";
    QTest::newRow("padded") << "padded" << false << "4096 extra bytes at beginning or within zipfile";
    QTest::newRow("zip bomb") << "expands-too-far" << false
                              << unsafe + "it would unpack to 33554804 bytes, more than 20 times its size";
    // A failed data deployment is not recorded, so the next run tries again.
    QTest::newRow("icons with a ../ entry")
        << "parent-entry" << true << unsafe + "the entry \u201c../nestora-escaped.txt\u201d points outside";
}

void EndToEndFailuresTest::craftedArchiveKeepsInstallation()
{
    QFETCH(QString, archive);
    QFETCH(bool, asIcons);
    QFETCH(QString, problem);

    const QByteArray craftedBytes = m_craftedArchives.value(archive);
    QVERIFY(!craftedBytes.isEmpty());

    const QString oldApplication = asIcons ? KVTestUpdateServer::releaseApplication : kOldApplication;
    QVERIFY(m_server->addApplication(KVTestUpdateServer::releaseApplication));
    QVERIFY(m_server->addDeviceIcons(KVTestUpdateServer::releaseDeviceIcons, KVTestUpdateServer::releaseIcons));
    const QString served = asIcons ? KVTestUpdateServer::deviceIconsFile
                                   : KVTestUpdateServer::applicationFile(KVTestUpdateServer::releaseApplication);
    QVERIFY(KVTestFiles::writeFile(m_server->servedPath(served), craftedBytes));
    QString failure;
    QVERIFY2(m_server->start(&failure), qPrintable(failure));
    QVERIFY(m_server->writeTestServerFile());
    QVERIFY(installApplication(oldApplication));
    QVERIFY(KVTestFiles::writeFile(deviceIconsPath() + QStringLiteral("/old.png"), "old icon"));
    const QVariantMap oldHistory{
        {QStringLiteral("Device_Icon"), asIcons ? QStringLiteral("2") : KVTestUpdateServer::releaseDeviceIcons}};
    QVERIFY(writeHistory(oldHistory));
    const auto installation = [] { return std::pair(snapshot(applicationPath()), snapshot(deviceIconsPath())); };
    const auto installed = installation();

    const KVTestInstaller::Outcome outcome = m_installer.run();
    QVERIFY(outcome.finished);
    // Refused by the shape check, or by the unzip tool itself.
    const QList<int> refused{KVErrorExitStatus(KVErrorClass::InvalidArchive),
                             KVErrorExitStatus(KVErrorClass::UnpackFailed)};
    QVERIFY2(refused.contains(outcome.exitStatus), qPrintable(QString::number(outcome.exitStatus)));
    QVERIFY2(outcome.errors.contains(problem), qPrintable(outcome.errors));
    QVERIFY(installation() == installed);
    QCOMPARE(history(), oldHistory);
    // Nothing of the run is left: no download, no unpacked folder, nothing beside the application.
    const QDir::Filters everything = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    QCOMPARE(QDir(KVTestSandbox::current().temporaryDirectory()).entryList(everything), QStringList());
    QCOMPARE(QDir(KVTestSandbox::current().applicationsDirectory()).entryList(everything), QStringList{"Nestora.app"});
}

void EndToEndFailuresTest::weightedProgressOfTwoFiles()
{
    // Two files of 100 and 300 bytes are due; the application and the icons are current.
    QVERIFY(m_server->addApplication(KVTestUpdateServer::releaseApplication));
    QVERIFY(m_server->addDeviceXML(QStringLiteral("5"), "<devices/>" + QByteArray(90, ' ')));
    QVERIFY(m_server->addDeviceIcons(QStringLiteral("3"), KVTestUpdateServer::releaseIcons));
    QVERIFY(m_server->addSmartCards(QStringLiteral("7"), QByteArray(300, 'c')));
    QString failure;
    QVERIFY2(m_server->start(&failure), qPrintable(failure));
    QVERIFY(installApplication(KVTestUpdateServer::releaseApplication));
    QVERIFY(writeHistory({{QStringLiteral("Device_Icon"), QStringLiteral("3")}}));

    KVUpdateHelper engine(m_server->manifestURL());
    Run run;
    runInProcess(engine, run);
    if (QTest::currentTestFailed())
        return;
    QVERIFY2(run.error.isNull(), qPrintable(run.error.description()));

    QList<float> fractions;
    for (const auto &[fraction, info] : run.reports)
        fractions << fraction;
    QVERIFY2(std::is_sorted(fractions.cbegin(), fractions.cend()), qPrintable(QString::number(fractions.size())));
    QVERIFY(fractions.contains(0.25f)); // the first file done
    QCOMPARE(run.reports.last().first, 1.0f);
    QCOMPARE(run.reports.last().second.value_or(QVariantMap()),
             QVariantMap({{QStringLiteral("message"), KVLocalizedString(QStringLiteral("IDS_INSTALLER_COMPLETE"))}}));
    // No smart-cards file was installed before, so every section counts as a first installation.
    QVERIFY(run.result.value(QStringLiteral("sections")).value<QList<KVINISectionPtr>>().isEmpty());
    QCOMPARE(history().value(QStringLiteral("Smart_Cards")), QVariant(QStringLiteral("7")));
    QCOMPARE(m_terminations, 1); // handed over
    m_server.reset();            // nginx runs from the sandbox, so it would count as a launch under way
    const std::optional<QList<KVTestCompanion::Start>> starts = m_companion->settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), 1);
}

void EndToEndFailuresTest::quitAtEachStep_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<int>("signalNumber");
    QTest::addColumn<bool>("companionStopped");
    QTest::newRow("checking, the manifest stalls") << Fault::StalledManifest << SIGTERM << false;
    QTest::newRow("downloading, the archive trickles") << Fault::TrickledDownload << SIGINT << false;
    QTest::newRow("waiting for the administrator") << Fault::UnansweredPrompt << SIGHUP << true;
}

// A termination signal ends the installer the way Quit does, at whatever step it comes: the main
// loop returns, the engine winds down instead of being cut off, and only the old installation is
// left, with nothing new in the temporary folder.
void EndToEndFailuresTest::quitAtEachStep()
{
    QFETCH(Fault, fault);
    QFETCH(int, signalNumber);
    QFETCH(bool, companionStopped);
    prepareFailure(fault);
    if (QTest::currentTestFailed())
        return;
    const QDir temporary(KVTestSandbox::current().temporaryDirectory());
    const QStringList temporaryBefore = temporary.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);

    const QStringList command = (needsAdministrator(fault) ? KVTestUnwritableFolder::launcher() : QStringList()) +
                                QStringList{m_installer.executablePath()} + KVTestInstaller::headlessArguments;
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
            return m_misbehavingServer->requestCount(applicationFile()) > 0;
        default:
            return QFileInfo::exists(elevator() + QStringLiteral(".shown"));
        }
    };
    QTRY_VERIFY_WITH_TIMEOUT(atStep(), 30000);
    QVERIFY(::kill(pid_t(installer.processId()), signalNumber) == 0);
    // A hang, not a slow machine, is what this catches; the time itself is measured elsewhere.
    QVERIFY(installer.waitForFinished(10000));
    QCOMPARE(installer.exitStatus(), QProcess::NormalExit);
    QCOMPARE(installer.exitCode(), 128 + signalNumber);
    QCOMPARE(temporary.entryList(QDir::AllEntries | QDir::NoDotAndDotDot), temporaryBefore);
    verifyOldInstallationKept(companionStopped);
}

NESTORA_TEST_MAIN(EndToEndFailuresTest)
#include "tst_endtoend_failures.moc"
