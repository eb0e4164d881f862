#include "Core/Extensions/KVLocalizedString.h"
#include "Core/Extensions/KVWindowPlacement.h"
#include "Installer/KVIAppDelegate.h"
#include "Installer/KVIWindow.h"
#include "Installer/KVPopupWindow.h"
#include "KVLogCapture.h"
#include "KVTestSandbox.h"
#include "Platform/KVBundle.h"
#include "Platform/KVUserDefaults.h"

#include <QDir>
#include <QLocalSocket>
#include <QProcess>
#include <QPushButton>

namespace {

const QString installerBundle = QStringLiteral(NESTORA_BUILD_DIR "/NestoraInstaller.app");

bool installerLogContains(const QByteArray &text)
{
    const QDir logs(KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora/InstallerLog"));
    for (const QFileInfo &file : logs.entryInfoList(QDir::Files)) {
        QFile log(file.filePath());
        if (log.open(QIODevice::ReadOnly) && log.readAll().contains(text))
            return true;
    }
    return false;
}

bool acceptsConnections(const QString &socketPath)
{
    QLocalSocket probe;
    probe.connectToServer(socketPath);
    return probe.waitForConnected(200);
}

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

    void secondStartActivatesTheFirst()
    {
        const QString socketPath = QDir::tempPath() + "/com.tovik.nestora.installer-" + QString::number(getuid());
        // A stale socket file, as a crashed installer leaves it, must not block the start.
        QFile stale(socketPath);
        QVERIFY(stale.open(QIODevice::WriteOnly));
        stale.close();

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        QProcess first, second;
        first.setProcessEnvironment(environment);
        second.setProcessEnvironment(environment);
        first.start(installerBundle + "/Contents/MacOS/NestoraInstaller", {});
        QVERIFY(first.waitForStarted());
        auto stopFirst = qScopeGuard([&] {
            first.kill();
            first.waitForFinished();
        });
        QTRY_VERIFY_WITH_TIMEOUT(acceptsConnections(socketPath), 20000);

        second.start(installerBundle + "/Contents/MacOS/NestoraInstaller", {});
        QVERIFY(second.waitForFinished(20000));
        QCOMPARE(second.exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(first.state(), QProcess::Running);
        QTRY_VERIFY_WITH_TIMEOUT(installerLogContains("brought to the front by a second start"), 10000);
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
