// The installer updates itself end to end: a copy of the built installer finds a newer build of
// itself on a real nginx, swaps it in over its own bundle, and the relaunched new build, headless
// again, goes on to install the companion application.

#include "Installer/KVHeadlessDriver.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestInstallation.h"
#include "KVTestInstaller.h"
#include "KVTestSandbox.h"
#include "KVTestUpdateServer.h"

#include <QDirIterator>

#include <memory>

using namespace KVTestInstallation;

namespace {
const QString kNewVersion = QStringLiteral("1.1.0");

// Everything the installers of the sandbox logged, in every log file.
QString installerLog()
{
    QString log;
    QDirIterator files(KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora/InstallerLog"), QDir::Files);
    while (files.hasNext())
        log += QString::fromUtf8(KVTestFiles::readFile(files.next()));
    return log;
}
} // namespace

class EndToEndSelfUpdateTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void relaunchesAtNewVersion();
    void damagedInstallerLeavesBundle();

private:
    void startServer();

    std::unique_ptr<KVTestCompanion> m_companion;
    std::unique_ptr<KVTestUpdateServer> m_server;
    KVTestInstaller m_installer;
    QString m_installedVersion;
};

void EndToEndSelfUpdateTest::initTestCase()
{
    m_companion = std::make_unique<KVTestCompanion>();
}

void EndToEndSelfUpdateTest::init()
{
    KVTestSandbox::current().reset();
    QVERIFY(m_installer.install());
    m_installedVersion = m_installer.version();
    QVERIFY(!m_installedVersion.isEmpty());
    QVERIFY(m_installedVersion != kNewVersion);
    m_server = std::make_unique<KVTestUpdateServer>();
    QVERIFY(m_server->addInstaller(m_installer.bundlePath(), m_installedVersion, kNewVersion));
    QVERIFY(m_server->addNestoraRelease());
}

void EndToEndSelfUpdateTest::cleanup()
{
    m_server.reset(); // first: nginx runs from the sandbox, so it counts as a launch under way
    m_companion->stopAll();
}

void EndToEndSelfUpdateTest::startServer()
{
    QString failure;
    QVERIFY2(m_server->start(&failure), qPrintable(failure));
    QVERIFY(m_server->writeTestServerFile());
}

void EndToEndSelfUpdateTest::relaunchesAtNewVersion()
{
    startServer();
    const KVTestInstaller::Outcome outcome = m_installer.run();
    QVERIFY(outcome.finished);
    QVERIFY2(outcome.exitStatus == KVHeadlessDriver::Succeeded, qPrintable(outcome.errors));
    QVERIFY2(outcome.output.contains("Updating the installer to 1.1.0\n"), qPrintable(outcome.output));
    QVERIFY(outcome.output.endsWith("The installer is up to date; relaunching it\n"));
    // The first installer never got to the companion application; the relaunched one does.
    QVERIFY(!outcome.output.contains("installing"));

    // The relaunched installer ends by starting the companion application. nginx runs from the
    // sandbox and would count as a launch under way, so it stops before the starts can settle.
    QTRY_VERIFY_WITH_TIMEOUT(!m_companion->starts().isEmpty(), 90000);
    m_server.reset();
    const std::optional<QList<KVTestCompanion::Start>> starts = m_companion->settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), 1);

    QCOMPARE(m_installer.version(), kNewVersion);
    QCOMPARE(KVTestFiles::readFile(m_installer.bundlePath() + QLatin1Char('/') + KVTestUpdateServer::releaseMarker),
             kNewVersion.toUtf8());
    // The swap leaves nothing of its own beside the bundle.
    QCOMPARE(QDir(m_installer.bundlePath() + QStringLiteral("/.."))
                 .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{"NestoraInstaller.app"});
    const QString log = installerLog();
    QVERIFY(log.contains("Keldran Nestora installer will finish launching with version:" + m_installedVersion));
    QVERIFY2(log.contains("Keldran Nestora installer will finish launching with version:1.1.0"), qPrintable(log));
    QCOMPARE(snapshot(applicationPath()).value(KVTestUpdateServer::releaseMarker),
             KVTestUpdateServer::releaseApplication.toUtf8());
    QCOMPARE(history().value(QStringLiteral("Smart_Cards")), QVariant(KVTestUpdateServer::releaseSmartCards));
}

void EndToEndSelfUpdateTest::damagedInstallerLeavesBundle()
{
    startServer();
    const QString archive = m_server->servedPath(KVTestUpdateServer::installerFile(kNewVersion));
    QByteArray damaged = KVTestFiles::readFile(archive);
    damaged[damaged.size() / 2] = char(damaged.at(damaged.size() / 2) ^ 0xff);
    QVERIFY(KVTestFiles::writeFile(archive, damaged));
    const QMap<QString, QByteArray> bundle = snapshot(m_installer.bundlePath());

    const KVTestInstaller::Outcome outcome = m_installer.run();
    QVERIFY(outcome.finished);
    QCOMPARE(outcome.exitStatus, int(KVHeadlessDriver::Failed));
    QVERIFY2(outcome.errors.contains("NestoraInstaller: update failed: a downloaded file is damaged"),
             qPrintable(outcome.errors));
    QVERIFY(snapshot(m_installer.bundlePath()) == bundle);
    // Nothing past the installer was fetched, installed or launched.
    QCOMPARE(m_server->requestedPaths(), QStringList({"/manifest.ini", "/NestoraInstaller-1.1.0.zip"}));
    QVERIFY(!QFileInfo::exists(applicationPath()));
    m_server.reset();
    QCOMPARE(m_companion->settledStarts().value_or(QList<KVTestCompanion::Start>{{}}).size(), 0);
}

NESTORA_TEST_MAIN(EndToEndSelfUpdateTest)
#include "tst_endtoend_selfupdate.moc"
