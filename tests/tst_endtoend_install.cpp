// The installer's headless mode end to end: a copy of the built installer updates the sandbox from
// a real nginx serving a published manifest and real archives, then hands over to the sample
// companion application.

#include "App/Model/KVErrorClass.h"
#include "Installer/KVHeadlessDriver.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestInstallation.h"
#include "KVTestInstaller.h"
#include "KVTestMount.h"
#include "KVTestSandbox.h"
#include "KVTestUpdateServer.h"
#include "KVTinyproxy.h"

#include <QDirIterator>
#include <QProcess>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QScopeGuard>

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

// What is installed in the sandbox of each deliverable a run may deploy, by its section.
QMap<QString, Snapshot> deliverables()
{
    return {{QStringLiteral("Mac_Application_2.2.0"), snapshot(applicationPath())},
            {QStringLiteral("Device_XML"), snapshot(devicesDataPath())},
            {QStringLiteral("Device_Icon"), snapshot(deviceIconsPath())},
            {QStringLiteral("Smart_Cards"), snapshot(smartCardsPath())}};
}

// The same once the served release is deployed: well-formed XML is kept as its Base64 text.
QMap<QString, Snapshot> releasedDeliverables()
{
    Snapshot icons{{QStringLiteral("."), "<folder>"}};
    icons.insert(KVTestUpdateServer::releaseIcons);
    return {
        {QStringLiteral("Mac_Application_2.2.0"), releaseSnapshot(KVTestUpdateServer::releaseApplication)},
        {QStringLiteral("Device_XML"), {{QStringLiteral("."), KVTestUpdateServer::releaseDevicesXMLText.toBase64()}}},
        {QStringLiteral("Device_Icon"), icons},
        {QStringLiteral("Smart_Cards"), {{QStringLiteral("."), KVTestUpdateServer::releaseSmartCardsText}}}};
}

// The history of an installation that is current with the served release.
const QVariantMap kCurrentHistory{{QStringLiteral("Device_XML"), KVTestUpdateServer::releaseDeviceXML},
                                  {QStringLiteral("Device_Icon"), KVTestUpdateServer::releaseDeviceIcons},
                                  {QStringLiteral("Smart_Cards"), KVTestUpdateServer::releaseSmartCards}};

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

// What the sandbox holds before a run.
enum class Installed { Nothing, Older, Current };
} // namespace

Q_DECLARE_METATYPE(Installed)

class EndToEndInstallTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void runDeploysWhatIsDue_data();
    void runDeploysWhatIsDue();
    void runThroughProxy_data();
    void runThroughProxy();
    void commandLineAnsweredWithoutWindow_data();
    void commandLineAnsweredWithoutWindow();
    void killedRunLeavesOldOrNewAndNothingBehind_data();
    void killedRunLeavesOldOrNewAndNothingBehind();

private:
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

void EndToEndInstallTest::runDeploysWhatIsDue_data()
{
    QTest::addColumn<Installed>("installed");
    QTest::addColumn<QString>("section"); // with the key below, taken out of the published manifest
    QTest::addColumn<QString>("key");
    QTest::addColumn<QStringList>("runList");  // empty: nothing is due
    QTest::addColumn<QStringList>("deployed"); // the others stay as they were

    const QStringList everything{"Mac_Application_2.2.0", "Device_XML", "Device_Icon", "Smart_Cards"};
    const QStringList none;
    QTest::newRow("first installation") << Installed::Nothing << ""
                                        << "" << everything << everything;
    // Only the devices XML is behind among the data files; the others must stay as they are.
    const QStringList behind{"Mac_Application_2.2.0", "Device_XML"};
    QTest::newRow("update over an older release") << Installed::Older << ""
                                                  << "" << behind << behind;
    QTest::newRow("nothing due") << Installed::Current << ""
                                 << "" << none << none;
    // Without a size the file weighs nothing in the progress, and is installed all the same.
    QTest::newRow("icons of unknown size") << Installed::Nothing << "Device_Icon"
                                           << "Bytes" << everything << everything;
    // Without an address the file is skipped, and the run goes on with the others.
    QTest::newRow("devices XML without address")
        << Installed::Nothing << "Device_XML"
        << "URL" << everything << QStringList{"Mac_Application_2.2.0", "Device_Icon", "Smart_Cards"};
}

void EndToEndInstallTest::runDeploysWhatIsDue()
{
    QFETCH(Installed, installed);
    QFETCH(QString, section);
    QFETCH(QString, key);
    QFETCH(QStringList, runList);
    QFETCH(QStringList, deployed);

    QVERIFY(m_server->addNestoraRelease());
    QString failure;
    QVERIFY2(m_server->start(&failure), qPrintable(failure));
    if (!section.isEmpty())
        QVERIFY(m_server->setManifestValue(section, key, QString()));
    QVariantMap oldHistory;
    if (installed != Installed::Nothing) {
        oldHistory = kCurrentHistory;
        QVERIFY(installApplication(installed == Installed::Older ? QStringLiteral("2.0.0")
                                                                 : KVTestUpdateServer::releaseApplication));
        QVERIFY(KVTestFiles::writeFile(deviceIconsPath() + QStringLiteral("/old.png"), "old icon"));
        QVERIFY(KVTestFiles::writeFile(smartCardsPath(), "{\"cards\": []}"));
        QVERIFY(KVTestFiles::writeFile(devicesDataPath(), KVTestUpdateServer::releaseDevicesXMLText.toBase64()));
    }
    if (installed == Installed::Older) {
        QVERIFY(KVTestFiles::writeFile(devicesDataPath(), "PGRldmljZXMvPg=="));
        oldHistory.insert(QStringLiteral("Device_XML"), QStringLiteral("4"));
        QVERIFY(QProcess::startDetached(applicationPath() + QStringLiteral("/Contents/MacOS/Nestora"), {}));
        QTRY_COMPARE(m_companion->starts().size(), 1);
    }
    QVERIFY(writeHistory(oldHistory));
    const QMap<QString, Snapshot> before = deliverables();

    const KVTestInstaller::Outcome outcome = m_installer.run();
    QVERIFY(outcome.finished);
    QVERIFY2(outcome.exitStatus == KVHeadlessDriver::Succeeded, qPrintable(outcome.errors));
    if (runList.isEmpty()) {
        QVERIFY(outcome.output.endsWith("Everything is up to date; starting Nestora\n"));
        QCOMPARE(m_server->requestedPaths(), QStringList({"/manifest.ini"}));
    } else {
        QVERIFY2(outcome.output.contains("installing " + runList.join(", ") + "\n"), qPrintable(outcome.output));
        QVERIFY(outcome.output.endsWith("Update complete; starting Nestora\n"));
        // Into a pipe, progress is a plain line per tenth, only ever growing, up to 100 %.
        static const QRegularExpression progress(QStringLiteral("\\] +([0-9]+)%"));
        QList<int> percents;
        for (QRegularExpressionMatchIterator line = progress.globalMatch(outcome.output); line.hasNext();)
            percents << line.next().captured(1).toInt();
        QVERIFY2(std::is_sorted(percents.cbegin(), percents.cend()) && percents.value(percents.size() - 1) == 100,
                 qPrintable(outcome.output));
    }

    // Each deliverable is the release where it was due and deployed, else as it was; the history
    // records exactly the data files deployed.
    const QMap<QString, Snapshot> after = deliverables();
    const QMap<QString, Snapshot> released = releasedDeliverables();
    QVariantMap expectedHistory = oldHistory;
    for (auto item = after.cbegin(); item != after.cend(); ++item) {
        QCOMPARE(item.value(), deployed.contains(item.key()) ? released.value(item.key()) : before.value(item.key()));
        if (deployed.contains(item.key()) && kCurrentHistory.contains(item.key()))
            expectedHistory.insert(item.key(), kCurrentHistory.value(item.key()));
    }
    QCOMPARE(history(), expectedHistory);
    QCOMPARE(leftovers(), QStringList());

    m_server.reset(); // nginx runs from the sandbox, so it would count as a launch under way
    const std::optional<QList<KVTestCompanion::Start>> starts = m_companion->settledStarts();
    QVERIFY(starts);
    QCOMPARE(starts->size(), installed == Installed::Older ? 2 : 1);
    if (installed == Installed::Older)
        QVERIFY(!KVTestCompanion::isRunning(starts->first().processIdentifier));
    QVERIFY(KVTestCompanion::isRunning(starts->last().processIdentifier));
    // Handed over without a window origin, with the launch date and, after an update, its date.
    const QStringList arguments = starts->last().arguments;
    QCOMPARE(arguments.mid(0, 4), QStringList({"-KVWindowOrigin", "0", "0", "-InstallerLaunchDate"}));
    QCOMPARE(arguments.mid(5, 1), runList.isEmpty() ? QStringList() : QStringList{"-InstallerUpdatedDate"});
    QVERIFY2(arguments.value(4).toDouble() > 1.6e9 &&
                 arguments.value(6, arguments.value(4)).toDouble() >= arguments.value(4).toDouble(),
             qPrintable(arguments.join(' ')));
}

void EndToEndInstallTest::runThroughProxy_data()
{
    QTest::addColumn<QString>("setting");     // where the proxy is named: a variable, or "policy"
    QTest::addColumn<QString>("credentials"); // in the proxy's address, "user:password"
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("passwordVariable"); // NESTORA_PROXY_PASSWORD, unset when null
    QTest::addColumn<QByteArray>("noProxy");
    QTest::addColumn<int>("status");

    const int refused = KVErrorExitStatus(KVErrorClass::ProxyRefused);
    const QStringList none;
    const QStringList proxyUser{"--proxy-user", "alice"};
    QTest::newRow("no credentials") << "http_proxy"
                                    << "" << none << QByteArray() << QByteArray() << refused;
    QTest::newRow("credentials in the address") << "HTTP_PROXY"
                                                << "alice:s3cret" << none << QByteArray() << QByteArray() << 0;
    QTest::newRow("wrong credentials in the address")
        << "all_proxy"
        << "alice:wrong" << none << QByteArray() << QByteArray() << refused;
    QTest::newRow("no_proxy bypass") << "http_proxy"
                                     << "" << none << QByteArray() << QByteArray("localhost, 127.0.0.1") << 0;
    QTest::newRow("--proxy-user") << "http_proxy"
                                  << "" << proxyUser << QByteArray("s3cret") << QByteArray() << 0;
    QTest::newRow("--proxy-user, wrong password") << "http_proxy"
                                                  << "" << proxyUser << QByteArray("wrong") << QByteArray() << refused;
    QTest::newRow("policy before the environment") << "policy"
                                                   << "alice:s3cret" << none << QByteArray() << QByteArray() << 0;
}

// A first installation through a real proxy that asks for a user name and password.
void EndToEndInstallTest::runThroughProxy()
{
    QFETCH(QString, setting);
    QFETCH(QString, credentials);
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, passwordVariable);
    QFETCH(QByteArray, noProxy);
    QFETCH(int, status);

    QVERIFY(m_server->addNestoraRelease());
    QString failure;
    QVERIFY2(m_server->start(&failure), qPrintable(failure));
    KVTinyproxy proxy(QStringLiteral("alice"), QStringLiteral("s3cret"));
    QVERIFY2(proxy.start(&failure), qPrintable(failure));
    const QUrl address = proxy.address(credentials.section(':', 0, 0), credentials.section(':', 1));
    const QStringList variables{setting, "http_proxy", "NESTORA_PROXY_PASSWORD", "no_proxy"};
    auto restore = qScopeGuard([&] {
        for (const QString &name : variables)
            qunsetenv(qPrintable(name));
    });
    if (setting == QLatin1String("policy")) {
        // The policy wins over a proxy that is not there.
        qputenv("http_proxy", "http://127.0.0.1:1");
        QVERIFY(KVTestFiles::writeFile(KVTestSandbox::current().policyFile(),
                                       "[Network]\nProxy = " + address.toEncoded() + "\n"));
    } else {
        qputenv(qPrintable(setting), address.toEncoded());
    }
    if (!passwordVariable.isNull())
        qputenv("NESTORA_PROXY_PASSWORD", passwordVariable);
    qputenv("no_proxy", noProxy);

    const KVTestInstaller::Outcome outcome = m_installer.run(arguments);
    QVERIFY(outcome.finished);
    QVERIFY2(outcome.exitStatus == status, qPrintable(outcome.errors));
    QCOMPARE(proxy.passedConnections() == 0, status != 0 || !noProxy.isEmpty());
    if (status == 0) {
        QCOMPARE(deliverables(), releasedDeliverables());
    } else {
        QVERIFY2(outcome.errors.contains("proxy server 127.0.0.1:" + QString::number(proxy.port())),
                 qPrintable(outcome.errors));
        QVERIFY(!QFileInfo::exists(applicationPath()));
    }
    QCOMPARE(leftovers(), QStringList());
    QVERIFY(!KVTestInstaller::log().contains("s3cret"));
}

void EndToEndInstallTest::commandLineAnsweredWithoutWindow_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("errors");
    const QString usage = QStringLiteral("Usage: NestoraInstaller [--headless --accept-license]");
    QTest::newRow("help, headless") << QStringList{"--headless", "--help"} << 0 << usage << "";
    QTest::newRow("version") << QStringList{"--version"} << 0 << "7.6.5\n"
                             << "";
    QTest::newRow("unknown option") << QStringList{"--force"} << int(KVHeadlessDriver::UsageError) << ""
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
    QString failure;
    QVERIFY2(m_server->start(&failure), qPrintable(failure));
    const auto homeBefore = snapshot(KVTestSandbox::current().home());
    // No display at all: a window, or a QApplication, would make the start fail.
    QProcessEnvironment noDisplay = QProcessEnvironment::systemEnvironment();
    for (const char *variable : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        noDisplay.remove(QString::fromLatin1(variable));
    const KVTestInstaller::Outcome outcome =
        KVTestProcess::run(QStringList{m_installer.executablePath()} + arguments, 120000, {}, noDisplay);

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

void EndToEndInstallTest::killedRunLeavesOldOrNewAndNothingBehind_data()
{
    QTest::addColumn<quint32>("seed"); // 0: killed once the application archive has begun to arrive
    for (quint32 seed = 1; seed <= 5; ++seed)
        QTest::addRow("seed %u", seed) << seed;
    QTest::addRow("while downloading") << 0u;
}

// The installer is killed at a random moment of an update (with the programs it runs), then
// started again: the application is the old one or the new one at every moment, and the second
// run completes the update, continuing a download the first one began, and removes whatever the
// first one left.
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
    const QString archive =
        QLatin1Char('/') + KVTestUpdateServer::applicationFile(KVTestUpdateServer::releaseApplication);
    if (seed == 0)
        m_server->nginx().limitRate(archive, QStringLiteral("32k"));
    QString failure;
    QVERIFY2(m_server->start(&failure), qPrintable(failure));
    QVERIFY(installApplication(QStringLiteral("2.0.0")));
    const Snapshot oldApplication = snapshot(applicationPath());
    const Snapshot newApplication = releaseSnapshot(KVTestUpdateServer::releaseApplication);

    QProcess killed;
    killed.setChildProcessModifier([] { ::setpgid(0, 0); }); // a group of its own, with unzip and the scripts
    killed.start(m_installer.executablePath(), KVTestInstaller::headlessArguments);
    QVERIFY(killed.waitForStarted());
    const pid_t group = pid_t(killed.processId());
    QVERIFY(group > 0);
    if (seed == 0)
        QTRY_VERIFY(
            QFileInfo(KVTestSandbox::current().root() + "/cache/Nestora/Downloads/keldran-vexa-app.zip.part").size() >
            0);
    else
        QTest::qWait(int(QRandomGenerator(seed).bounded(2500)));
    if (killed.state() != QProcess::NotRunning)
        QCOMPARE(::kill(-group, SIGKILL), 0);
    QVERIFY(killed.state() == QProcess::NotRunning || killed.waitForFinished());
    const Snapshot afterKill = snapshot(applicationPath());
    QVERIFY(afterKill == oldApplication || afterKill == newApplication);

    const KVTestInstaller::Outcome outcome = m_installer.run();
    QVERIFY2(outcome.exitStatus == KVHeadlessDriver::Succeeded, qPrintable(outcome.errors));
    QCOMPARE(snapshot(applicationPath()), newApplication);
    QCOMPARE(history(), kCurrentHistory);
    QCOMPARE(leftovers(), QStringList());
    if (seed == 0) {
        const QStringList continued =
            m_server->nginx().requests().filter(QRegularExpression("^" + archive + " 206 bytes=[1-9]"));
        QVERIFY2(continued.size() == 1, qPrintable(m_server->nginx().requests().join('\n')));
    }
}

NESTORA_TEST_MAIN(EndToEndInstallTest)
#include "tst_endtoend_install.moc"
