// The installer updates itself end to end: a copy of the built installer finds a newer build of
// itself on a real nginx, swaps it in over its own bundle, and the relaunched new build, headless
// again, goes on to install the companion application. A bad build never costs the working
// installer: it is refused before the swap, or put back when the relaunched build does not run.

#include "App/Model/KVErrorClass.h"
#include "Installer/KVHeadlessDriver.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestHttpServer.h"
#include "KVTestInstallation.h"
#include "KVTestInstaller.h"
#include "KVTestProcess.h"
#include "KVTestSandbox.h"
#include "KVTestUpdateServer.h"

#include <QTemporaryDir>

#include <memory>

using namespace KVTestInstallation;

namespace {
const QString kNewVersion = QStringLiteral("1.1.0");

// What is wrong with the published installer build.
enum class BadBuild { Damaged, Crashes, WrongVersion, FailsAfterVersion };

// The served installer archive, unpacked, changed by the callback and packed again.
bool rebuildInstallerArchive(const QString &archive, const std::function<bool(const QString &bundle)> &change)
{
    QTemporaryDir folder;
    const QString bundle = folder.filePath(QStringLiteral("NestoraInstaller.app"));
    return KVTestProcess::run(
               {QStringLiteral("unzip"), QStringLiteral("-q"), archive, QStringLiteral("-d"), folder.path()})
               .succeeded() &&
           change(bundle) && KVTestUpdateServer::zipFolder(archive, bundle);
}

bool writeProgram(const QString &bundle, const QByteArray &script)
{
    const QString program = bundle + QStringLiteral("/Contents/MacOS/NestoraInstaller");
    return KVTestFiles::writeFile(program, script) &&
           QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}
} // namespace

Q_DECLARE_METATYPE(BadBuild)
Q_DECLARE_METATYPE(KVErrorClass)

class EndToEndSelfUpdateTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void relaunchesAtNewVersion_data();
    void relaunchesAtNewVersion();
    void badBuildKeepsWorkingInstaller_data();
    void badBuildKeepsWorkingInstaller();

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

void EndToEndSelfUpdateTest::relaunchesAtNewVersion_data()
{
    QTest::addColumn<bool>("lengthAnnounced");
    QTest::newRow("length announced") << true;
    // Passed through nginx from a server that sends no length: nginx sends it in chunks.
    QTest::newRow("length unknown") << false;
}

void EndToEndSelfUpdateTest::relaunchesAtNewVersion()
{
    QFETCH(bool, lengthAnnounced);
    KVTestHttpServer lengthHidingServer;
    if (!lengthAnnounced) {
        const QString file = KVTestUpdateServer::installerFile(kNewVersion);
        lengthHidingServer.setResponse(
            QLatin1Char('/') + file,
            {200, KVTestFiles::readFile(m_server->servedPath(file)), {}, KVTestHttpServer::Behaviour::Unannounced, 0});
        m_server->nginx().proxy(QLatin1Char('/') + file, lengthHidingServer.url(QLatin1Char('/') + file));
    }
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
    QCOMPARE(snapshot(applicationPath()).value(KVTestUpdateServer::releaseMarker),
             KVTestUpdateServer::releaseApplication.toUtf8());
    QCOMPARE(history().value(QStringLiteral("Smart_Cards")), QVariant(KVTestUpdateServer::releaseSmartCards));
}

void EndToEndSelfUpdateTest::badBuildKeepsWorkingInstaller_data()
{
    QTest::addColumn<BadBuild>("build");
    QTest::addColumn<QString>("problem"); // empty: the build passes its checks and is swapped in
    QTest::addColumn<KVErrorClass>("errorClass");

    const QString invalid =
        QStringLiteral("A downloaded archive cannot be used: the archive is not a valid NestoraInstaller.app: ");
    const KVErrorClass refused = KVErrorClass::InvalidArchive;
    QTest::newRow("damaged download") << BadBuild::Damaged << "A download arrived damaged"
                                      << KVErrorClass::DamagedDownload;
    QTest::newRow("crashes at start") << BadBuild::Crashes << invalid + "its program crashes when it starts" << refused;
    QTest::newRow("wrong version inside")
        << BadBuild::WrongVersion << invalid + "it is version \u201c1.0.9\u201d, not \u201c1.1.0\u201d as published"
        << refused;
    QTest::newRow("fails after telling its version") << BadBuild::FailsAfterVersion << QString() << refused;
}

void EndToEndSelfUpdateTest::badBuildKeepsWorkingInstaller()
{
    QFETCH(BadBuild, build);
    QFETCH(QString, problem);
    QFETCH(KVErrorClass, errorClass);

    const QString archive = m_server->servedPath(KVTestUpdateServer::installerFile(kNewVersion));
    switch (build) {
    case BadBuild::Damaged:
        break; // after publishing
    case BadBuild::Crashes:
        QVERIFY(rebuildInstallerArchive(
            archive, [](const QString &bundle) { return writeProgram(bundle, "#!/bin/sh\nkill -SEGV $$\n"); }));
        break;
    case BadBuild::WrongVersion:
        QVERIFY(rebuildInstallerArchive(archive, [](const QString &bundle) {
            return KVTestUpdateServer::copyBundle(KVTestInstaller::builtBundlePath(), bundle, QStringLiteral("1.0.9"));
        }));
        break;
    case BadBuild::FailsAfterVersion:
        QVERIFY(rebuildInstallerArchive(archive, [](const QString &bundle) {
            return writeProgram(bundle, "#!/bin/sh\n[ \"$1\" = --version ] && echo 1.1.0 || exit 1\n");
        }));
        break;
    }
    startServer();
    if (build == BadBuild::Damaged) {
        QByteArray damaged = KVTestFiles::readFile(archive);
        damaged[damaged.size() / 2] = char(damaged.at(damaged.size() / 2) ^ 0xff);
        QVERIFY(KVTestFiles::writeFile(archive, damaged));
    }
    const QMap<QString, QByteArray> bundle = snapshot(m_installer.bundlePath());
    const auto manifestFetches = [this] { return m_server->requestedPaths().count(QStringLiteral("/manifest.ini")); };

    const KVTestInstaller::Outcome outcome = m_installer.run();
    QVERIFY(outcome.finished);
    if (problem.isEmpty()) {
        // Swapped in and relaunched, it does not run: the old installer is put back, started, and
        // goes on without the build it already tried.
        QVERIFY2(outcome.exitStatus == KVHeadlessDriver::Succeeded, qPrintable(outcome.errors));
        QTRY_VERIFY_WITH_TIMEOUT(!m_companion->starts().isEmpty(), 120000);
    } else {
        QCOMPARE(outcome.exitStatus, KVErrorExitStatus(errorClass));
        QVERIFY2(outcome.errors.contains("NestoraInstaller: " + problem), qPrintable(outcome.errors));
        QVERIFY(snapshot(m_installer.bundlePath()) == bundle);
        QVERIFY(!QFileInfo::exists(applicationPath()));
        // The old installer runs again. A build found bad once it was downloaded whole is never
        // tried again, so the run goes on to the application; a damaged download is fetched anew.
        const KVTestInstaller::Outcome again = m_installer.run();
        QVERIFY(again.finished);
        QCOMPARE(again.exitStatus,
                 build == BadBuild::Damaged ? KVErrorExitStatus(errorClass) : int(KVHeadlessDriver::Succeeded));
    }
    QCOMPARE(manifestFetches(), 2);
    QVERIFY(snapshot(m_installer.bundlePath()) == bundle);
    QCOMPARE(QDir(m_installer.bundlePath() + QStringLiteral("/.."))
                 .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{"NestoraInstaller.app"});
    if (build != BadBuild::Damaged)
        QCOMPARE(snapshot(applicationPath()).value(KVTestUpdateServer::releaseMarker),
                 KVTestUpdateServer::releaseApplication.toUtf8());
}

NESTORA_TEST_MAIN(EndToEndSelfUpdateTest)
#include "tst_endtoend_selfupdate.moc"
