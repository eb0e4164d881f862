#include "Installer/KVHeadlessDriver.h"
#include "Installer/KVIWindow.h"
#include "KVTestFiles.h"
#include "KVTestHttpServer.h"
#include "KVTestInstaller.h"
#include "KVTestSandbox.h"

#include <QDir>
#include <QProcess>
#include <QPushButton>

namespace {

const QString installerBundle = QStringLiteral(NESTORA_BUILD_DIR "/NestoraInstaller.app");

} // namespace

// The installer's shell: how it shows popups one at a time, and that only one installer runs per
// user.
class InstallerShellTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init() { KVTestSandbox::current().reset(); }

    // Popups show one at a time, each handler runs as its popup ends, and while one shows the mask
    // swallows every click and key meant for the window below.
    void popupsAreQueuedAndBlockTheWindow()
    {
        KVIWindow window;
        window.resize(520, 360);
        auto *content = new QWidget;
        auto *button = new QPushButton(QStringLiteral("Behind"), content);
        button->setGeometry(10, 10, 100, 30);
        window.setContentView(content);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QSignalSpy clicked(button, &QPushButton::clicked);
        // Clicks go through the window, as the window system delivers them.
        const auto clickButton = [&] {
            QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {},
                              button->mapTo(&window, button->rect().center()));
            QTest::keyClick(button, Qt::Key_Space);
        };
        QWidget first, second;
        first.resize(200, 100);
        second.resize(200, 100);
        QList<std::pair<QString, QVariantMap>> ended;
        window.beginPopupView(&first, [&](const QVariantMap &info) { ended.append({"first", info}); });
        window.beginPopupView(&second, [&](const QVariantMap &info) {
            QCOMPARE(window.popupView(), nullptr);
            ended.append({"second", info});
        });
        QCOMPARE(window.popupView(), &first);
        QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {}, QPoint(15, 15)); // on the dimmed area
        clickButton();
        QCOMPARE(clicked.count(), 0);

        window.endPopupView(&second, {{"Response", "DefaultButtonClicked"}}); // not the card shown: ignored
        QCOMPARE(window.popupView(), &first);
        QVERIFY(ended.isEmpty());
        window.endPopupView(&first, {{"Response", "AlternateButtonClicked"}});
        QCOMPARE(window.popupView(), &second);
        window.endPopupView(&second);
        QCOMPARE(window.popupView(), nullptr);
        const decltype(ended) expected{{"first", {{"Response", "AlternateButtonClicked"}}}, {"second", {}}};
        QCOMPARE(ended, expected);
        QCOMPARE(first.parent(), nullptr); // the cards go back to their owners
        clickButton();
        QCOMPARE(clicked.count(), 2);
    }

    void simultaneousStartsLeaveOneRunning_data()
    {
        QTest::addColumn<bool>("headless");
        QTest::addColumn<bool>("socketTaken"); // the runner cannot listen: later starts cannot raise it
        QTest::newRow("window") << false << false;
        QTest::newRow("headless") << true << false;
        QTest::newRow("activation socket taken") << false << true;
    }
    void simultaneousStartsLeaveOneRunning()
    {
        QFETCH(bool, headless);
        QFETCH(bool, socketTaken);
        // A guard left by a killed installer, lock file and socket file both, must not block.
        const QString guard = KVTestSandbox::current().runtimeDirectory() + "/com.tovik.nestora.installer";
        QVERIFY(KVTestFiles::writeFile(guard + ".lock", {}));
        QVERIFY(KVTestFiles::writeFile(socketTaken ? guard + ".socket/in-the-way" : guard + ".socket", {}));
        // Headless, the runner waits for a manifest that never comes.
        KVTestHttpServer server;
        server.setResponse("/manifest.ini", {200, {}, {}, KVTestHttpServer::Behaviour::Stall, 0});
        QVERIFY(KVTestFiles::writeFile(KVTestSandbox::current().home() + "/Downloads/TestServerForVexa.txt",
                                       "{\"ApplicationUpdate\": \"" + server.url("/manifest.ini").toEncoded() + "\"}"));
        const QStringList arguments = headless ? KVTestInstaller::headlessArguments : QStringList();
        // Each start has a TMPDIR of its own, and a long one: neither may matter to the guard.
        constexpr int kStarts = 4;
        std::vector<std::unique_ptr<QProcess>> installers;
        for (int i = 0; i < kStarts; ++i) {
            const QString temporary =
                KVTestSandbox::current().temporaryDirectory() + '/' + QString(110, QChar('a' + i));
            QVERIFY(QDir().mkpath(temporary));
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
            environment.insert(QStringLiteral("TMPDIR"), temporary);
            installers.push_back(std::make_unique<QProcess>());
            installers.back()->setProcessEnvironment(environment);
        }
        auto stopAll = qScopeGuard([&] {
            // Terminated, not killed: the runner ends as a user's quit ends it.
            for (const auto &installer : installers) {
                installer->terminate();
                installer->waitForFinished();
            }
        });
        for (const auto &installer : installers)
            installer->start(installerBundle + "/Contents/MacOS/NestoraInstaller", arguments);

        const auto running = [&] {
            return std::count_if(installers.cbegin(), installers.cend(),
                                 [](const auto &installer) { return installer->state() != QProcess::NotRunning; });
        };
        QTRY_COMPARE_WITH_TIMEOUT(running(), 1, 30000);
        for (const auto &installer : installers) {
            if (installer->state() == QProcess::NotRunning) {
                QCOMPARE(installer->exitStatus(), QProcess::NormalExit);
                QCOMPARE(installer->exitCode(), headless ? int(KVHeadlessDriver::AnotherInstanceRuns) : 0);
            }
        }
        if (!headless && !socketTaken)
            QTRY_VERIFY_WITH_TIMEOUT(KVTestInstaller::log().contains("brought to the front by a second start"), 10000);
        QTest::qWait(500); // a second runner would show up here
        QCOMPARE(running(), 1);
    }
};

NESTORA_TEST_MAIN(InstallerShellTest)
#include "tst_installershell.moc"
