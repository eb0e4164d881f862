#include "Core/Extensions/KVLocalizedString.h"
#include "Core/Extensions/KVWindowPlacement.h"
#include "Installer/KVIAppDelegate.h"
#include "Installer/KVIWindow.h"
#include "Installer/KVPopupWindow.h"
#include "KVLogCapture.h"
#include "KVTestInstaller.h"
#include "KVTestSandbox.h"
#include "Platform/KVBundle.h"
#include "Platform/KVUserDefaults.h"

#include <QCloseEvent>
#include <QDir>
#include <QProcess>
#include <QPushButton>
#include <QtTest/qtestspontaneevent.h>

namespace {

const QString installerBundle = QStringLiteral(NESTORA_BUILD_DIR "/NestoraInstaller.app");

} // namespace

// The installer's shell: where its window goes, how it shows popups one at a time, and that only
// one installer runs per user.
class InstallerShellTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init() { KVTestSandbox::current().reset(); }

    void windowOriginArguments_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QList<QPointF>>("origins");
        QTest::addColumn<bool>("missingValue");
        QTest::newRow("none") << QStringList{"installer"} << QList<QPointF>{} << false;
        QTest::newRow("fractions cut off")
            << QStringList{"-KVWindowOrigin", "871.5", "674.9"} << QList<QPointF>{{871, 674}} << false;
        QTest::newRow("non-numbers read 0")
            << QStringList{"-KVWindowOrigin", "left", "x"} << QList<QPointF>{{0, 0}} << false;
        QTest::newRow("each applied, last wins")
            << QStringList{"-KVWindowOrigin", "1", "2", "-KVWindowOrigin", "3", "4"} << QList<QPointF>{{1, 2}, {3, 4}}
            << false;
        QTest::newRow("flag last") << QStringList{"-KVWindowOrigin"} << QList<QPointF>{} << true;
    }
    void windowOriginArguments()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QList<QPointF>, origins);
        QFETCH(bool, missingValue);
        const auto scan = KVWindowPlacement::scanWindowOrigins(arguments);
        QCOMPARE(scan.origins, origins);
        QCOMPARE(scan.missingValue, missingValue);
    }

    void launchSequence()
    {
        KVBundle::setMainBundlePath(installerBundle);
        KVLogCapture log;
        KVIAppDelegate delegate;
        delegate.setScreenMetricsProvider([] { return KVIAppDelegate::ScreenMetrics{QSizeF(1440, 900), 22}; });

        delegate.applicationWillFinishLaunching({"NestoraInstaller", "-KVWindowOrigin", "100", "200"});
        QCOMPARE(delegate.window()->frameOrigin(), QPointF(100, 200));
        QVERIFY(log.contains(QStringLiteral("Keldran Nestora installer will finish launching with version:1.0.0")));
        QVERIFY(log.contains(QStringLiteral("KVIAppDelegate location: (\n    NestoraInstaller,\n    "
                                            "\"-KVWindowOrigin\",\n    100,\n    200\n)")));

        delegate.applicationDidFinishLaunching();
        // Did-finish places the window top-right whatever the arguments said.
        const QSizeF size = delegate.window()->frameGeometry().size();
        QCOMPARE(delegate.window()->frameOrigin(), QPointF(1440 - size.width() - 24, 900 - size.height() - 22 - 24));
        QVERIFY(delegate.window()->isVisible());
        QVERIFY(delegate.window()->contentView());
        KVUserDefaults &defaults = KVUserDefaults::standardUserDefaults();
        QVERIFY(qAbs(defaults.dateForKey("InstallerLastLaunchDate").secsTo(QDateTime::currentDateTimeUtc())) < 60);
        QCOMPARE(defaults.stringForKey("LogLevel"), QStringLiteral("info")); // registered from VexaUserDefaults

        // A flag without its values is logged, not fatal.
        KVIAppDelegate second;
        second.applicationWillFinishLaunching({"NestoraInstaller", "-KVWindowOrigin", "5"});
        QCOMPARE(log.messages().filter(QStringLiteral("-KVWindowOrigin without its two values")).size(), 1);
    }

    void popupsAreShownOneAtATime()
    {
        KVIWindow window;
        window.resize(520, 360);
        window.show();
        QWidget first, second;
        first.resize(200, 100);
        second.resize(200, 100);
        QList<std::pair<QString, QVariantMap>> ended;
        window.beginPopupView(&first, [&](const QVariantMap &info) { ended.append({"first", info}); });
        window.beginPopupView(&second, [&](const QVariantMap &info) {
            QCOMPARE(window.popupView(), nullptr); // the handler runs as the popup ends
            ended.append({"second", info});
        });
        QCOMPARE(window.popupView(), &first);

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
    }

    void popupBlocksTheWindowAndTheMaskSwallowsClicks()
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
        };
        clickButton();
        QCOMPARE(clicked.count(), 1);

        QWidget card;
        card.resize(200, 100);
        int handled = 0;
        window.beginPopupView(&card, [&](const QVariantMap &) { ++handled; });
        // A click on the dimmed area: the popup stays, nothing below it is reached, not even by keys.
        QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {}, QPoint(15, 15));
        clickButton();
        QTest::keyClick(button, Qt::Key_Space);
        QCOMPARE(window.popupView(), &card);
        QCOMPARE(clicked.count(), 1);
        QCOMPARE(handled, 0);
        window.endPopupView(&card);
        QCOMPARE(handled, 1);
        // Once the popup is gone, the window takes clicks again.
        clickButton();
        QTest::keyClick(button, Qt::Key_Space);
        QCOMPARE(clicked.count(), 3);
    }

    void cardIsCentred_data()
    {
        QTest::addColumn<QSize>("windowSize");
        QTest::addColumn<QSize>("cardSize");
        QTest::newRow("installer") << QSize(520, 360) << QSize(300, 160);
        QTest::newRow("odd sizes") << QSize(641, 401) << QSize(250, 121);
        QTest::newRow("card wider than window") << QSize(300, 200) << QSize(400, 100);
    }
    void cardIsCentred()
    {
        QFETCH(QSize, windowSize);
        QFETCH(QSize, cardSize);
        KVIWindow window;
        window.resize(windowSize);
        window.show();
        QWidget card;
        card.resize(cardSize);
        window.beginPopupView(&card, {});
        KVPopupWindow *popup = window.popupWindow();
        QCOMPARE(popup->size(), windowSize);
        const QSize room = windowSize - cardSize;
        QCOMPARE(card.geometry(), QRect(QPoint(room.width() / 2, room.height() / 2), cardSize));
        QCOMPARE(popup->maskView()->geometry(), QRect(QPoint(), windowSize));
        window.endPopupView(&card);
    }

    void simultaneousStartsLeaveOneRunning()
    {
        // A guard left by a killed installer, lock file and socket file both, must not block.
        const QString guard = KVTestSandbox::current().runtimeDirectory() + "/com.tovik.nestora.installer";
        for (const QString &leftOver : {guard + ".lock", guard + ".socket"}) {
            QFile file(leftOver);
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
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
            for (const auto &installer : installers) {
                installer->kill();
                installer->waitForFinished();
            }
        });
        for (const auto &installer : installers)
            installer->start(installerBundle + "/Contents/MacOS/NestoraInstaller", {});

        const auto running = [&] {
            return std::count_if(installers.cbegin(), installers.cend(),
                                 [](const auto &installer) { return installer->state() != QProcess::NotRunning; });
        };
        QTRY_COMPARE_WITH_TIMEOUT(running(), 1, 30000);
        for (const auto &installer : installers) {
            if (installer->state() == QProcess::NotRunning) {
                QCOMPARE(installer->exitStatus(), QProcess::NormalExit);
                QCOMPARE(installer->exitCode(), 0);
            }
        }
        QTRY_VERIFY_WITH_TIMEOUT(KVTestInstaller::log().contains("brought to the front by a second start"), 10000);
        QTest::qWait(500); // a second runner would show up here
        QCOMPARE(running(), 1);
    }

    void windowManagerCloseIsARequest()
    {
        KVIWindow window;
        window.show();
        QSignalSpy requests(&window, &KVIWindow::closeRequested);
        QCloseEvent fromWindowManager;
        QSpontaneKeyEvent::setSpontaneous(&fromWindowManager);
        static_cast<QObject &>(window).event(&fromWindowManager);
        QVERIFY(!fromWindowManager.isAccepted());
        QCOMPARE(requests.count(), 1);
        QVERIFY(window.isVisible());
        // The program's own close, as when the application quits, goes through.
        QVERIFY(window.close());
        QCOMPARE(requests.count(), 1);
    }

    void activationRestoresMinimisedWindow()
    {
        KVIAppDelegate delegate;
        delegate.window()->showMinimized();
        delegate.activate();
        QVERIFY(!delegate.window()->isMinimized());
        QVERIFY(delegate.window()->isVisible());
    }

    void stringTables_data()
    {
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("text");
        QTest::newRow("English") << "en"
                                 << "IDS_INSTALLER_CONTINUE"
                                 << "Continue";
        QTest::newRow("German") << "de_DE"
                                << "IDS_INSTALLER_CONTINUE"
                                << "Weiter";
        QTest::newRow("unknown language falls back to English") << "fi"
                                                                << "IDS_CANCEL"
                                                                << "Quit";
        QTest::newRow("unknown key is empty, not the key") << "en"
                                                           << "IDS_NO_SUCH_KEY"
                                                           << "";
        QTest::newRow("format keeps its placeholders")
            << "de"
            << "IDS_WSPDH"
            << "%@ konnte nicht installiert werden. Bitte versuche es sp\u00e4ter erneut oder lade es von %@ "
               "herunter.";
    }
    void stringTables()
    {
        QFETCH(QString, language);
        QFETCH(QString, key);
        QFETCH(QString, text);
        KVSetLocalizationLanguage(language);
        QCOMPARE(KVLocalizedString(key), text);
        QVERIFY(!KVLocalizedString(key).isNull());
        KVSetLocalizationLanguage(QStringLiteral("en"));
    }
};

NESTORA_TEST_MAIN(InstallerShellTest)
#include "tst_installershell.moc"
