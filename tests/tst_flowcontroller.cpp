// The installer's screen and its flow, driven by a scripted engine and by reachability
// notifications posted as the network helper posts them: each row plays a script of engine
// answers, network changes and clicks and checks where the screen ends up; then the licence
// screen walked by keyboard alone.

#include "App/Model/KVErrorClass.h"
#include "App/Model/KVNetworkHelper.h"
#include "App/Model/KVUpdateEngine.h"
#include "Core/Extensions/KVLocalizedString.h"
#include "Core/Extensions/KVNotificationCenter.h"
#include "Core/View/KVButton.h"
#include "Core/View/KVCheckBox.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVPlainButtons.h"
#include "Core/View/KVProgressIndicator.h"
#include "Core/View/KVTextView.h"
#include "Installer/Controllers/KVIAlertViewController.h"
#include "Installer/Controllers/KVIViewController.h"
#include "Installer/KVIAccessible.h"
#include "Installer/KVIImageView.h"
#include "Installer/KVILinkTextView.h"
#include "Installer/KVIView.h"
#include "Installer/KVIWindow.h"
#include "Installer/KVPopupWindow.h"
#include "KVTestSandbox.h"
#include "Platform/KVBundle.h"
#include "Platform/KVUserDefaults.h"

#include <QAccessible>
#include <QLabel>
#include <QScrollArea>

#include <memory>

namespace {

// An engine whose answers the test gives: each call is recorded with its handlers.
class KVScriptedEngine : public KVUpdateEngine
{
public:
    struct Run
    {
        QList<KVINISectionPtr> sections;
        KVProgressHandler progress;
        KVUpdateCompletionHandler completion;
    };

    void checkInstallerUpdateWithcompletionHandler(std::function<void(KVINISectionPtr, KVError)> handler) override
    {
        installerChecks.append(std::move(handler));
    }
    void updateInstaller(const KVINISectionPtr &section, KVProgressHandler progress,
                         KVUpdateCompletionHandler completion) override
    {
        runs.append({{section}, std::move(progress), std::move(completion)});
    }
    void checkUpdateWithcompletionHandler(std::function<void(QList<KVINISectionPtr>, KVError)> handler) override
    {
        checks.append(std::move(handler));
    }
    void updateWithSections(const QList<KVINISectionPtr> &sections, KVProgressHandler progress,
                            KVUpdateCompletionHandler completion) override
    {
        runs.append({sections, std::move(progress), std::move(completion)});
    }

    QList<std::function<void(KVINISectionPtr, KVError)>> installerChecks;
    QList<std::function<void(QList<KVINISectionPtr>, KVError)>> checks;
    QList<Run> runs;
};

KVINISectionPtr section(const QString &name)
{
    return std::make_shared<KVINISection>(name);
}

QString text(const QString &key)
{
    return KVLocalizedString(key);
}

} // namespace

class FlowControllerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void flow_data();
    void flow();
    void licenceByMouseAndKeyboard();

private:
    void play(const QString &event);
    QStringList facts() const;

    std::unique_ptr<KVIWindow> m_window;
    std::unique_ptr<KVScriptedEngine> m_engine;
    QPointer<KVIViewController> m_controller;
    KVError m_lastError;
    int m_monitorStarts = 0;
    int m_terminations = 0;
    QList<QUrl> m_openedURLs;
};

void FlowControllerTest::initTestCase()
{
    KVBundle::setMainBundlePath(QStringLiteral(NESTORA_BUILD_DIR "/NestoraInstaller.app"));
    KVIFont::setFamilyOverride(QStringLiteral("Inter"));
    KVSetLocalizationLanguage(QStringLiteral("en"));
    KVIAccessible::install();
}

void FlowControllerTest::init()
{
    KVTestSandbox::current().reset();
    m_monitorStarts = m_terminations = 0;
    m_openedURLs.clear();
    m_lastError = KVError();
    m_engine = std::make_unique<KVScriptedEngine>();
    m_window = std::make_unique<KVIWindow>();
    m_window->resize(KVIViewController::viewSize);
    m_controller = new KVIViewController(*m_engine, m_window.get(),
                                         {.startNetworkMonitor = [this] { ++m_monitorStarts; },
                                          .openURL =
                                              [this](const QUrl &url) {
                                                  m_openedURLs.append(url);
                                                  return true;
                                              },
                                          .terminateApplication = [this] { ++m_terminations; }});
    m_window->setContentView(m_controller->view());
    m_window->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
}

void FlowControllerTest::cleanup()
{
    m_window.reset(); // the window owns the view, which owns the controller
    QVERIFY(!m_controller);
    m_engine.reset();
}

// One event of a row's script: an engine answer ("self:", "check:" for the installer and the
// deliverables checks, "progress", "silent", "done", "fail:" for the last run), a reachability
// notification, a click or a call the controller takes from the network helper.
void FlowControllerTest::play(const QString &event)
{
    const KVError unreachable(KVURLErrorDomain, KVURLErrorCannotConnectToHost);
    const QMap<QString, KVError> failures{
        {"fail:refused", unreachable},
        {"fail:md5", KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorMD5Mismatch)},
        {"fail:privileged", KVError(QString(), -1)}};
    const QList<KVINISectionPtr> due{section("Mac_Application_2.2.0"), section("Device_XML")};
    const qsizetype runs = m_engine->runs.size();
    if (event == "online") {
        KVNotificationCenter::defaultCenter().post(KVNetworkReachableNotification);
    } else if (event == "offline") {
        KVNotificationCenter::defaultCenter().post(KVNetworkNotReachableNotification);
    } else if (event.startsWith("self:")) {
        const KVINISectionPtr installer = event == "self:due" ? section("Installer_1.1.0") : nullptr;
        m_lastError = event == "self:fail" ? unreachable : KVError();
        m_engine->installerChecks.takeLast()(installer, m_lastError);
        if (m_engine->runs.size() > runs)
            QCOMPARE(m_engine->runs.last().sections, QList{installer});
    } else if (event.startsWith("check:")) {
        // A failing check after Continue still runs, with what it found.
        const QList<KVINISectionPtr> found = event == "check:due" ? due : QList<KVINISectionPtr>();
        m_lastError = event == "check:fail" ? unreachable : KVError();
        m_engine->checks.takeLast()(found, m_lastError);
        if (m_engine->runs.size() > runs)
            QCOMPARE(m_engine->runs.last().sections, found);
    } else if (event == "progress") {
        m_engine->runs.last().progress(0.4f, QVariantMap{{"message", text("IDS_INSTALLER_INSTALLING")}});
        QCOMPARE(m_controller->progressIndicator()->doubleValue(), double(0.4f));
    } else if (event == "silent") {
        m_engine->runs.last().progress(0.6f, std::nullopt);
    } else if (event == "done" || failures.contains(event)) {
        m_lastError = failures.value(event);
        m_engine->runs.last().completion({}, m_lastError);
    } else if (event == "monitor") {
        m_controller->addNetworkMonitor();
    } else if (event == "eula") {
        m_controller->showEULA();
    } else {
        const QMap<QString, std::function<QWidget *()>> targets{
            {"tick", [this] { return m_controller->licenseAgreementCheckbox(); }},
            {"continue", [this] { return m_controller->continueButton(); }},
            {"cancel", [this] { return m_controller->cancelButton(); }},
            {"close", [this] { return m_controller->closeButton(); }},
            {"resume", [this] { return m_controller->alert()->defaultButton(); }},
            {"quit", [this] { return m_controller->alert()->alternateButton(); }}};
        QVERIFY2(targets.contains(event), qPrintable(event));
        QWidget *target = targets[event]();
        QVERIFY(target->isVisible());
        QTest::mouseClick(target, Qt::LeftButton);
        QCoreApplication::processEvents(); // buttons act once the click has been handled
        if (event == "close" || event == "cancel")
            QTRY_VERIFY(m_controller->alert() || m_terminations);
        else if (event == "resume" || event == "quit")
            QTRY_VERIFY(!m_controller->alert());
    }
}

// What the screen shows and has done, in the words of the rows.
QStringList FlowControllerTest::facts() const
{
    const std::pair<const char *, bool> all[] = {
        {"licence", m_controller->licenseScrollView()->isVisible()},
        {"continue", m_controller->continueButton()->isVisible() && m_controller->continueButton()->isEnabled()},
        {"checking", m_controller->checkingIndicator()->isVisible()},
        {"progress", m_controller->progressIndicator()->isVisible()},
        {"error", m_controller->hasError()},
        {"alert", bool(m_controller->alert())},
        {"quit", m_terminations > 0},
        {"dated", KVUserDefaults::standardUserDefaults().dateForKey("InstallerUpdateDate").isValid()}};
    QStringList shown;
    for (const auto &[fact, holds] : all)
        if (holds)
            shown << QString::fromLatin1(fact);
    return shown;
}

void FlowControllerTest::flow_data()
{
    QTest::addColumn<QString>("script");
    // The step; the info text's key ("=hidden", "=empty", "=error": the last error's text); the facts
    // that hold; the installer checks, deliverables checks unanswered and runs started.
    QTest::addColumn<QString>("expected");
    const auto row = [](const char *name, const QString &script, const char *expected) {
        QTest::newRow(name) << script << QString::fromLatin1(expected);
    };

    const QString licence = "online self:none check:due";
    const QString run = licence + " tick continue check:due";
    const QString running = run + " progress";
    row("waiting for the network", "", "0 IDS_INSTALLER_CHECK_INTERNET 0/0/0");
    row("checking", "online", "0 CHECKING_UPDATE 1/0/0");
    row("nothing due", "online self:none check:none", "1 =empty 0/0/0");
    row("licence", licence, "4 =hidden licence 0/0/0");
    row("licence accepted", licence + " tick", "4 =hidden licence continue 0/0/0");
    row("licence ignores the network", licence + " offline", "4 =hidden licence 0/0/0");
    row("licence shown again, unticked", licence + " tick monitor online", "4 =hidden licence 0/0/0");
    row("run started", run, "5 CHECKING_UPDATE 0/0/1");
    row("check failing after Continue still runs", licence + " tick continue check:fail", "5 CHECKING_UPDATE 0/0/1");
    row("running", running, "6 IDS_INSTALLER_INSTALLING progress 0/0/1");
    row("progress without a message keeps the last", running + " silent", "6 IDS_INSTALLER_INSTALLING progress 0/0/1");
    row("complete", running + " done", "7 IDS_INSTALLER_COMPLETE dated 0/0/1");
    row("self-update running", "online self:due progress", "2 IDS_INSTALLER_INSTALLING progress 0/0/1");
    row("self-update complete", "online self:due progress done", "3 IDS_INSTALLER_COMPLETE dated 0/0/1");

    // Failed checks offer Try Again; the network coming back does the same.
    row("installer check failed", "online self:fail", "0 =error continue error 0/0/0");
    row("Try Again", "online self:fail continue", "0 CHECKING_UPDATE 1/0/0");
    row("deliverables check failed", "online self:fail continue self:none check:fail", "1 =error continue error 0/0/0");
    row("network back after a failed check", "online self:none check:fail online", "0 CHECKING_UPDATE 1/0/0");

    // Offline, the animation says that the installer goes on by itself once the network is back.
    row("offline while checking", "online offline", "0 IDS_INSTALLER_ERROR_CONNECT checking error 1/0/0");
    row("back while checking", "online offline online", "0 CHECKING_UPDATE 2/0/0");
    row("offline while running", running + " offline", "6 IDS_INSTALLER_ERROR_CONNECT checking error 0/0/1");
    row("back while running checks again", running + " offline online", "6 CHECKING_UPDATE 0/1/1");
    row("and runs again", running + " offline online check:due", "5 CHECKING_UPDATE 0/0/2");
    row("back after completion", running + " done offline online", "7 CHECKING_UPDATE dated 0/1/1");
    row("a second monitor observes twice", run + " monitor online", "5 CHECKING_UPDATE 0/2/1");
    row("the licence drops every observer", run + " monitor eula online", "5 =hidden licence 0/0/1");

    // A failed run offers Try Again, which checks and runs again.
    row("connection refused", running + " fail:refused", "6 =error continue error dated 0/0/1");
    row("digest mismatch", running + " fail:md5", "6 =error continue error dated 0/0/1");
    row("privileged deployment failed", running + " fail:privileged", "6 =error continue error dated 0/0/1");
    row("Try Again after a failed run", running + " fail:md5 continue check:due", "5 CHECKING_UPDATE dated 0/0/2");
    row("failed while offline", running + " offline fail:md5",
        "6 IDS_INSTALLER_ERROR_CONNECT checking error dated 0/0/1");

    // Closing asks first until the work is done; the dialog does not pause the engine.
    row("close asks", "close", "0 IDS_INSTALLER_CHECK_INTERNET alert 0/0/0");
    row("resume keeps running", running + " close progress resume", "6 IDS_INSTALLER_INSTALLING progress 0/0/1");
    row("quit while running", running + " close quit", "6 IDS_INSTALLER_INSTALLING progress quit 0/0/1");
    row("cancel the licence", licence + " cancel quit", "4 =hidden licence quit 0/0/0");
    row("close when complete quits", running + " done close", "7 IDS_INSTALLER_COMPLETE quit dated 0/0/1");
}

// With NESTORA_SCREENSHOT_DIR set, each row's screen is also saved there as <row>.png to be looked at.
void FlowControllerTest::flow()
{
    QFETCH(QString, script);
    QFETCH(QString, expected);

    for (const QString &event : script.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        play(event);
        if (QTest::currentTestFailed()) {
            qWarning("failed at \"%s\"", qPrintable(event));
            return;
        }
    }

    QStringList facts = expected.split(QLatin1Char(' '));
    QCOMPARE(m_controller->updateStep(), facts.takeFirst().toULongLong());
    const QString info = facts.takeFirst();
    QCOMPARE(m_controller->infoScrollView()->isVisible(), info != "=hidden");
    if (info != "=hidden") {
        const QString shown = info == "=error" ? KVErrorText(m_lastError) : info == "=empty" ? QString() : text(info);
        QCOMPARE(m_controller->infoTextView()->string(), shown);
    }
    const KVScriptedEngine &engine = *m_engine;
    QCOMPARE(
        QStringLiteral("%1/%2/%3").arg(engine.installerChecks.size()).arg(engine.checks.size()).arg(engine.runs.size()),
        facts.takeLast());
    QStringList shown = this->facts();
    facts.sort();
    shown.sort();
    QCOMPARE(shown, facts);
    QCOMPARE(m_monitorStarts, 1);
    // The licence's controls come and go together: Continue acts once the box is ticked.
    const KVCheckBox *box = m_controller->licenseAgreementCheckbox();
    QCOMPARE(box->isVisible(), m_controller->licenseScrollView()->isVisible());
    if (box->isVisible())
        QCOMPARE(box->checked(), shown.contains("continue"));
    // The checking animation runs exactly while it is shown.
    QCOMPARE(bool(m_controller->checkingIndicatorTimer()), m_controller->checkingIndicator()->isVisible());
    if (m_controller->checkingIndicator()->isVisible()) {
        const QString frame = m_controller->checkingIndicator()->image().name();
        QTRY_VERIFY(m_controller->checkingIndicator()->image().name() != frame);
    }

    const QString folder = qEnvironmentVariable("NESTORA_SCREENSHOT_DIR");
    if (!folder.isEmpty()) {
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(m_window->grab().save(folder + QStringLiteral("/%1.png").arg(QTest::currentDataTag())));
    }
}

void FlowControllerTest::licenceByMouseAndKeyboard()
{
    for (const char *event : {"online", "self:none", "check:due"})
        play(event);
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    const auto press = [](Qt::Key key) { QTest::keyClick(QApplication::focusWidget(), key); };
    // What a screen reader says the focus is on (a link inside the licence text included).
    const auto focusName = [] {
        QAccessibleInterface *focus = QAccessible::queryAccessibleInterface(QApplication::focusWidget());
        if (QAccessibleInterface *part = focus->focusChild())
            focus = part;
        return focus->text(QAccessible::Name);
    };
    KVCheckBox *box = m_controller->licenseAgreementCheckbox();
    const QString accept = m_controller->licenseTextView()->string();
    // The step's first control has the focus: Continue cannot, while it is disabled.
    QCOMPARE(QApplication::focusWidget(), box);
    QCOMPARE(focusName(), accept);
    // A click on a link opens it.
    const KVILinkTextView *textView = m_controller->licenseTextView();
    const KVILinkTextView::Link link = textView->links().value(2);
    QTest::mouseClick(m_controller->licenseTextView(), Qt::LeftButton, {},
                      textView->firstCharacterRect(link).center().toPoint());
    QCOMPARE(m_openedURLs, QList<QUrl>{link.url});
    m_openedURLs.clear();
    box->setFocus();

    // Tab reaches each link of the licence on its own, and Return follows the focused one; Space
    // alone ticks the box, not a right click, and then Continue can act.
    press(Qt::Key_Tab);
    press(Qt::Key_Tab);
    QCOMPARE(focusName(), text("IDS_PRIVACY"));
    press(Qt::Key_Return);
    QCOMPARE(m_openedURLs, QList<QUrl>{KVIViewController::privacyURL()});
    box->setFocus();
    QTest::mouseClick(box, Qt::RightButton);
    QVERIFY(!box->checked());
    press(Qt::Key_Space);
    QVERIFY(box->checked() && m_controller->continueButton()->isEnabled());

    // Escape asks whether to leave, in a dialog that keeps the focus until it ends; Escape closes it
    // and Return chooses its default answer, even with Quit focused.
    for (const Qt::Key close : {Qt::Key_Escape, Qt::Key_Return}) {
        press(Qt::Key_Escape);
        QTRY_VERIFY(m_controller->alert());
        KVIAlertViewController *alert = m_controller->alert();
        QCOMPARE(QAccessible::queryAccessibleInterface(m_window->popupWindow())->role(), QAccessible::Dialog);
        QCOMPARE(QApplication::focusWidget(), alert->defaultButton());
        for (int i = 0; i < 3; ++i) {
            press(Qt::Key_Tab);
            QVERIFY(alert->view()->isAncestorOf(QApplication::focusWidget()));
        }
        QCOMPARE(QApplication::focusWidget(), alert->alternateButton());
        press(close);
        QTRY_VERIFY(!m_controller->alert());
        QCOMPARE(QApplication::focusWidget(), box);
    }
    QCOMPARE(m_terminations, 0);

    // Return presses Continue, the step's default button.
    press(Qt::Key_Return);
    QTRY_VERIFY(!m_controller->continueButton()->isVisible());
    QCOMPARE(m_engine->checks.size(), 1);
}

NESTORA_TEST_MAIN(FlowControllerTest)
#include "tst_flowcontroller.moc"
