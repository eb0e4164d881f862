// The installer's headless mode end to end: a copy of the built installer updates the sandbox from
// a real nginx serving a published manifest and real archives, then hands over to the sample
// companion application. Also the terminal progress bar that this mode draws.

#include "Installer/KVHeadlessDriver.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestInstallation.h"
#include "KVTestInstaller.h"
#include "KVTestMount.h"
#include "KVTestSandbox.h"
#include "KVTestUpdateServer.h"

#include <QBuffer>
#include <QDirIterator>
#include <QProcess>
#include <QRandomGenerator>
#include <QScopeGuard>

#include <cmath>
#include <csignal>
#include <memory>
#include <unistd.h>

using namespace KVTestInstallation;

namespace {
using Snapshot = QMap<QString, QByteArray>;

Snapshot releaseSnapshot(const QString &version)
{
    QTemporaryDir staging;
    const QString bundle = staging.filePath(QStringLiteral("Nestora.app"));
    return KVTestUpdateServer::makeApplication(bundle, version) ? snapshot(bundle) : Snapshot();
}

Snapshot iconsSnapshot()
{
    Snapshot icons{{QStringLiteral("."), "<folder>"}};
    for (auto icon = KVTestUpdateServer::releaseIcons.cbegin(); icon != KVTestUpdateServer::releaseIcons.cend(); ++icon)
        icons.insert(icon.key(), icon.value());
    return icons;
}

// The history of an installation that is current with the served release.
QVariantMap currentHistory()
{
    return {{QStringLiteral("Device_XML"), KVTestUpdateServer::releaseDeviceXML},
            {QStringLiteral("Device_Icon"), KVTestUpdateServer::releaseDeviceIcons},
            {QStringLiteral("Smart_Cards"), KVTestUpdateServer::releaseSmartCards}};
}

// What runs left behind: anything in the temporary folder, and hidden entries (partial copies,
// staging folders) anywhere in the applications and data folders.
QStringList leftovers()
{
    const KVTestSandbox &sandbox = KVTestSandbox::current();
    QStringList found =
        QDir(sandbox.temporaryDirectory()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    for (const QString &folder : {sandbox.applicationsDirectory(), sandbox.dataHome()}) {
        QDirIterator entries(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                             QDirIterator::Subdirectories);
        while (entries.hasNext())
            if (entries.nextFileInfo().fileName().startsWith(QLatin1Char('.')))
                found << entries.fileInfo().filePath();
    }
    return found;
}

// Downloads that a run left in the temporary folder.
QStringList leftDownloads()
{
    return QDir(KVTestSandbox::current().temporaryDirectory())
        .entryList({QStringLiteral("keldran-vexa-*")}, QDir::Files);
}
} // namespace

class EndToEndInstallTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void firstInstallation();
    void updateOverOlderVersion();
    void nothingDueLaunchesCompanion();
    void commandLineAnsweredWithoutWindow_data();
    void commandLineAnsweredWithoutWindow();
    void progressBar_data();
    void progressBar();
    void killedRunLeavesOldOrNewAndNothingBehind_data();
    void killedRunLeavesOldOrNewAndNothingBehind();

private:
    [[nodiscard]] bool startServer();
    // The companion's starts once every launch has settled. nginx runs from the sandbox and would
    // count as a launch under way, so the server stops first.
    std::optional<QList<KVTestCompanion::Start>> settledStarts();
    // The companion's start by the installer: the window origin (none headless), the launch date
    // and, after an update run, the update date.
    static void verifyHandOver(const KVTestCompanion::Start &start, bool afterUpdateRun);

    std::unique_ptr<KVTestCompanion> m_companion;
    std::unique_ptr<KVTestUpdateServer> m_server;
    KVTestInstaller m_installer;
};

void EndToEndInstallTest::initTestCase()
{
    m_companion = std::make_unique<KVTestCompanion>();
}

void EndToEndInstallTest::init()
{
    KVTestSandbox::current().reset();
    QVERIFY(m_installer.install());
    m_server = std::make_unique<KVTestUpdateServer>();
}

void EndToEndInstallTest::cleanup()
{
    m_server.reset(); // first: nginx runs from the sandbox, so it counts as a launch under way
    m_companion->stopAll();
}

bool EndToEndInstallTest::startServer()
{
    QString failure;
    if (!m_server->start(&failure) || !m_server->writeTestServerFile()) {
        qWarning("%s", qPrintable(failure));
        return false;
    }
    return true;
}

std::optional<QList<KVTestCompanion::Start>> EndToEndInstallTest::settledStarts()
{
    m_server.reset();
    return m_companion->settledStarts();
}

void EndToEndInstallTest::verifyHandOver(const KVTestCompanion::Start &start, bool afterUpdateRun)
{
    const QStringList &arguments = start.arguments;
    QCOMPARE(arguments.mid(0, 4), QStringList({"-KVWindowOrigin", "0", "0", "-InstallerLaunchDate"}));
    QVERIFY2(arguments.value(4).toDouble() > 1.6e9, qPrintable(arguments.join(' ')));
    if (afterUpdateRun) {
        QCOMPARE(arguments.size(), 7);
        QCOMPARE(arguments.at(5), QStringLiteral("-InstallerUpdatedDate"));
        QVERIFY(arguments.at(6).toDouble() >= arguments.at(4).toDouble());
    } else {
        QCOMPARE(arguments.size(), 5);
    }
}

void EndToEndInstallTest::firstInstallation()
{
    QVERIFY(m_server->addNestoraRelease());
    QVERIFY(startServer());

    const KVTestInstaller::Outcome outcome = m_installer.run();
    QVERIFY(outcome.finished);
    QVERIFY2(outcome.exitStatus == KVHeadlessDriver::Succeeded, qPrintable(outcome.errors));
    // The plug-in is published but never a candidate of a run.
    QVERIFY2(outcome.output.contains("installing Mac_Application_2.2.0, Device_XML, Device_Icon, Smart_Cards\n"),
             qPrintable(outcome.output));
    QVERIFY(outcome.output.contains(" 100%  "));
    QVERIFY(outcome.output.endsWith("Update complete; starting Nestora\n"));

    QCOMPARE(snapshot(applicationPath()), releaseSnapshot(KVTestUpdateServer::releaseApplication));
    // Well-formed XML is kept as its Base64 text.
    QCOMPARE(KVTestFiles::readFile(devicesDataPath()), KVTestUpdateServer::releaseDevicesXMLText.toBase64());
    QCOMPARE(snapshot(deviceIconsPath()), iconsSnapshot());
    QCOMPARE(KVTestFiles::readFile(smartCardsPath()), KVTestUpdateServer::releaseSmartCardsText);
    QVERIFY(!QFileInfo::exists(pluginFolder()));
    QCOMPARE(history(), currentHistory());
    QVERIFY(leftDownloads().isEmpty());

    const std::optional<QList<KVTestCompanion::Start>> starts = settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), 1);
    verifyHandOver(starts->first(), true);
}

void EndToEndInstallTest::updateOverOlderVersion()
{
    QVERIFY(m_server->addNestoraRelease());
    QVERIFY(startServer());
    QVERIFY(installApplication(QStringLiteral("2.0.0")));
    // Only the devices XML is behind among the data files; the others must stay as they are.
    const QByteArray oldDevices = QByteArrayLiteral("PGRldmljZXMvPg==");
    const QByteArray installedSmartCards = QByteArrayLiteral("{\"cards\": []}");
    QVERIFY(installFile(devicesDataPath(), oldDevices));
    QVERIFY(installFile(deviceIconsPath() + QStringLiteral("/old.png"), "old icon"));
    QVERIFY(installFile(smartCardsPath(), installedSmartCards));
    QVariantMap oldHistory = currentHistory();
    oldHistory.insert(QStringLiteral("Device_XML"), QStringLiteral("4"));
    QVERIFY(writeHistory(oldHistory));
    const Snapshot oldIcons = snapshot(deviceIconsPath());

    QProcess::startDetached(applicationPath() + QStringLiteral("/Contents/MacOS/Nestora"), {"--old-instance"});
    QTRY_COMPARE(m_companion->starts().size(), 1);
    const qint64 oldInstance = m_companion->starts().first().processIdentifier;

    const KVTestInstaller::Outcome outcome = m_installer.run();
    QVERIFY(outcome.finished);
    QVERIFY2(outcome.exitStatus == KVHeadlessDriver::Succeeded, qPrintable(outcome.errors));
    QVERIFY2(outcome.output.contains("installing Mac_Application_2.2.0, Device_XML\n"), qPrintable(outcome.output));

    QCOMPARE(snapshot(applicationPath()), releaseSnapshot(KVTestUpdateServer::releaseApplication));
    QCOMPARE(KVTestFiles::readFile(devicesDataPath()), KVTestUpdateServer::releaseDevicesXMLText.toBase64());
    QCOMPARE(snapshot(deviceIconsPath()), oldIcons);
    QCOMPARE(KVTestFiles::readFile(smartCardsPath()), installedSmartCards);
    QCOMPARE(history(), currentHistory());

    const std::optional<QList<KVTestCompanion::Start>> starts = settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), 2);
    QVERIFY(!KVTestCompanion::isRunning(oldInstance));
    QVERIFY(KVTestCompanion::isRunning(starts->last().processIdentifier));
    verifyHandOver(starts->last(), true);
}

void EndToEndInstallTest::nothingDueLaunchesCompanion()
{
    QVERIFY(m_server->addNestoraRelease());
    QVERIFY(startServer());
    QVERIFY(installApplication(KVTestUpdateServer::releaseApplication));
    QVERIFY(installFile(devicesDataPath(), KVTestUpdateServer::releaseDevicesXMLText.toBase64()));
    QVERIFY(installFile(smartCardsPath(), KVTestUpdateServer::releaseSmartCardsText));
    QVERIFY(writeHistory(currentHistory()));
    const Snapshot installedApplication = snapshot(applicationPath());

    const KVTestInstaller::Outcome outcome = m_installer.run();
    QVERIFY(outcome.finished);
    QVERIFY2(outcome.exitStatus == KVHeadlessDriver::Succeeded, qPrintable(outcome.errors));
    QVERIFY(outcome.output.endsWith("Everything is up to date; starting Nestora\n"));
    QCOMPARE(m_server->requestedPaths(), QStringList({"/manifest.ini"}));

    const std::optional<QList<KVTestCompanion::Start>> starts = settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), 1);
    verifyHandOver(starts->first(), false);
    QCOMPARE(snapshot(applicationPath()), installedApplication);
    QCOMPARE(KVTestFiles::readFile(smartCardsPath()), KVTestUpdateServer::releaseSmartCardsText);
    QCOMPARE(history(), currentHistory());
}

void EndToEndInstallTest::commandLineAnsweredWithoutWindow_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("errors");
    const QString usage = QStringLiteral("Usage: NestoraInstaller [--headless --accept-license]");
    QTest::newRow("help") << QStringList{"--help"} << 0 << usage << "";
    QTest::newRow("help, headless") << QStringList{"--headless", "--help"} << 0 << usage << "";
    QTest::newRow("version") << QStringList{"--version"} << 0 << "7.6.5\n"
                             << "";
    QTest::newRow("version, headless") << QStringList{"--headless", "--version"} << 0 << "7.6.5\n"
                                       << "";
    QTest::newRow("unknown option") << QStringList{"--force"} << int(KVHeadlessDriver::UsageError) << ""
                                    << "unknown argument \"--force\"";
    QTest::newRow("unknown option, headless")
        << QStringList{"--headless", "--accept-license", "--force"} << int(KVHeadlessDriver::UsageError) << ""
        << "unknown argument \"--force\"";
    QTest::newRow("licence not accepted") << QStringList{"--headless"} << int(KVHeadlessDriver::UsageError) << ""
                                          << "the end-user licence agreement must be accepted";
}

void EndToEndInstallTest::commandLineAnsweredWithoutWindow()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, output);
    QFETCH(QString, errors);
    QVERIFY(m_installer.install(QStringLiteral("7.6.5")));
    QVERIFY(m_server->addNestoraRelease());
    QVERIFY(startServer());
    const auto homeBefore = snapshot(KVTestSandbox::current().home());
    // No display at all: a window, or a QApplication, would make the start fail.
    const QStringList displayVariables{"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"};
    QHash<QString, QByteArray> savedDisplay;
    for (const QString &variable : displayVariables) {
        savedDisplay.insert(variable, qgetenv(qPrintable(variable)));
        qunsetenv(qPrintable(variable));
    }
    const KVTestInstaller::Outcome outcome = m_installer.run(arguments);
    for (auto saved = savedDisplay.cbegin(); saved != savedDisplay.cend(); ++saved)
        if (!saved.value().isEmpty())
            qputenv(qPrintable(saved.key()), saved.value());

    QVERIFY(outcome.finished);
    QCOMPARE(outcome.exitStatus, status);
    QVERIFY2(output.isEmpty() ? outcome.output.isEmpty() : outcome.output.startsWith(output),
             qPrintable(outcome.output));
    QVERIFY2(outcome.errors.contains(errors), qPrintable(outcome.errors));
    if (status != 0)
        QVERIFY(outcome.errors.contains(QStringLiteral("Usage: NestoraInstaller")));
    QCOMPARE(snapshot(KVTestSandbox::current().home()), homeBefore);
    QVERIFY(m_server->requestedPaths().isEmpty());
    QVERIFY(!QFileInfo::exists(applicationPath()));
}

void EndToEndInstallTest::progressBar_data()
{
    QTest::addColumn<bool>("interactive");
    QTest::addColumn<QByteArray>("expected");
    const QByteArray empty = "[------------------------------]";
    const QByteArray half = "[###############---------------]";
    const QByteArray full = "[##############################]";
    // On a terminal the line is redrawn only when its text changes; elsewhere a line is written per
    // new message and per tenth of the way.
    QTest::newRow("terminal") << true
                              << "\r" + empty + "   0%  Downloading\x1b[K" + "\r" + half + "  50%  Downloading\x1b[K" +
                                     "\r" + half + "  50%  Installing\x1b[K" + "\r" + full + " 100%  Installing\x1b[K" +
                                     "\n";
    QTest::newRow("log") << false
                         << empty + "   0%  Downloading\n" + half + "  50%  Downloading\n" + half +
                                "  50%  Installing\n" + full + " 100%  Installing\n";
}

void EndToEndInstallTest::progressBar()
{
    QFETCH(bool, interactive);
    QFETCH(QByteArray, expected);
    QBuffer output;
    QVERIFY(output.open(QIODevice::WriteOnly));
    KVTerminalProgressBar bar(&output, interactive);
    bar.setProgress(std::nanf(""), QStringLiteral("Downloading")); // all sizes unknown
    bar.setProgress(0.004f, QStringLiteral("Downloading"));
    bar.setProgress(0.5f, QString()); // a report without a message keeps the last one
    bar.setProgress(0.509f, QStringLiteral("Downloading"));
    bar.setProgress(0.509f, QStringLiteral("Installing"));
    bar.setProgress(1.3f, QString()); // a server that sent more than announced
    bar.finish();
    QCOMPARE(output.data(), expected);
}

void EndToEndInstallTest::killedRunLeavesOldOrNewAndNothingBehind_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 1; seed <= 10; ++seed)
        QTest::addRow("seed %u", seed) << seed;
}

// The installer is killed at a random moment of an update (with the programs it runs), then
// started again: the application is the old one or the new one at every moment, and the second
// run completes the update and removes whatever the first one left.
void EndToEndInstallTest::killedRunLeavesOldOrNewAndNothingBehind()
{
    QFETCH(quint32, seed);
    // The applications folder on a file system of its own: the application is copied across, and
    // a kill can fall into the copy.
    const std::unique_ptr<KVTestMount> applications =
        KVTestMount::tmpfs(KVTestSandbox::current().applicationsDirectory(), 256 << 20);
    if (!applications)
        QSKIP("mounting a file system needs root");
    // Before the mount goes; nginx first, as it runs from the sandbox like a launch under way.
    const auto stopCompanionFirst = qScopeGuard([this] {
        m_server.reset();
        m_companion->stopAll();
    });
    QVERIFY(m_server->addNestoraRelease());
    QVERIFY(startServer());
    QVERIFY(installApplication(QStringLiteral("2.0.0")));
    const Snapshot oldApplication = snapshot(applicationPath());
    const Snapshot newApplication = releaseSnapshot(KVTestUpdateServer::releaseApplication);

    QProcess killed;
    killed.setChildProcessModifier([] { ::setpgid(0, 0); }); // a group of its own, with unzip and the scripts
    killed.start(m_installer.executablePath(), KVTestInstaller::headlessArguments);
    QVERIFY(killed.waitForStarted());
    const pid_t group = pid_t(killed.processId());
    QVERIFY(group > 0);
    QTest::qWait(int(QRandomGenerator(seed).bounded(2500)));
    if (killed.state() != QProcess::NotRunning)
        QCOMPARE(::kill(-group, SIGKILL), 0);
    QVERIFY(killed.state() == QProcess::NotRunning || killed.waitForFinished());
    const Snapshot afterKill = snapshot(applicationPath());
    QVERIFY(afterKill == oldApplication || afterKill == newApplication);

    const KVTestInstaller::Outcome outcome = m_installer.run();
    QVERIFY2(outcome.exitStatus == KVHeadlessDriver::Succeeded, qPrintable(outcome.errors));
    QCOMPARE(snapshot(applicationPath()), newApplication);
    QCOMPARE(history(), currentHistory());
    QCOMPARE(leftovers(), QStringList());
}

NESTORA_TEST_MAIN(EndToEndInstallTest)
#include "tst_endtoend_install.moc"
