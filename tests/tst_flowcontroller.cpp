// The installer's screen and its flow, driven by a scripted engine and by reachability
// notifications posted as the network helper posts them: the steps, what each step shows, the
// licence screen, the button row, the checking indicator and closing.

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
#include <QScrollArea>
#include <QTimer>

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
        installerRuns.append({{section}, std::move(progress), std::move(completion)});
    }
    void checkUpdateWithcompletionHandler(std::function<void(QList<KVINISectionPtr>, KVError)> handler) override
    {
        checks.append(std::move(handler));
    }
    void updateWithSections(const QList<KVINISectionPtr> &sections, KVProgressHandler progress,
                            KVUpdateCompletionHandler completion) override
    {
        sectionRuns.append({sections, std::move(progress), std::move(completion)});
    }

    QList<std::function<void(KVINISectionPtr, KVError)>> installerChecks;
    QList<Run> installerRuns;
    QList<std::function<void(QList<KVINISectionPtr>, KVError)>> checks;
    QList<Run> sectionRuns;
};

KVINISectionPtr section(const QString &name)
{
    return std::make_shared<KVINISection>(name);
}

const KVError kNoError;
const KVError kUnreachableManifest(QStringLiteral("NSURLErrorDomain"), -1004);

QString text(const char *key)
{
    return KVLocalizedString(QString::fromLatin1(key));
}

void postReachable()
{
    KVNotificationCenter::defaultCenter().post(KVNetworkReachableNotification);
}

void postNotReachable()
{
    KVNotificationCenter::defaultCenter().post(KVNetworkNotReachableNotification);
}

} // namespace

class FlowControllerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void waitsForTheNetworkThenFindsNothingDue();
    void sectionUpdateWalksTheSteps();
    void selfUpdateWalksTheSteps();
    void checkErrorWaitsForTheNetwork();
    void checkAfterContinueFailingStillRuns();
    void networkLossAndReturn_data();
    void networkLossAndReturn();
    void doubleMonitorRunsHandlersTwice();
    void runErrorText_data();
    void runErrorText();
    void checkboxRule_data();
    void checkboxRule();
    void licenceLinksOpen();
    void licenceByKeyboardAlone();
    void closing_data();
    void closing();
    void screensAreTidy_data();
    void screensAreTidy();

private:
    // Drives the flow to a step through the engine's answers.
    void reachStep(quint64 step);
    void tickAndContinue();
    bool infoShows(const QString &expected, bool error) const;
    bool licenceControlsHidden() const;

    std::unique_ptr<KVIWindow> m_window;
    std::unique_ptr<KVScriptedEngine> m_engine;
    QPointer<KVIViewController> m_controller;
    int m_monitorStarts = 0;
    int m_terminations = 0;
    QList<QUrl> m_openedURLs;
    bool m_openSucceeds = true;
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
    m_openSucceeds = true;
    m_engine = std::make_unique<KVScriptedEngine>();
    m_window = std::make_unique<KVIWindow>();
    m_window->resize(KVIViewController::viewSize);
    m_controller = new KVIViewController(*m_engine, m_window.get(),
                                         {.startNetworkMonitor = [this] { ++m_monitorStarts; },
                                          .openURL =
                                              [this](const QUrl &url) {
                                                  m_openedURLs.append(url);
                                                  return m_openSucceeds;
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

void FlowControllerTest::reachStep(quint64 step)
{
    postReachable();
    if (step == 0)
        return;
    m_engine->installerChecks.takeLast()(nullptr, kNoError);
    if (step == 1) {
        m_engine->checks.takeLast()({}, kNoError);
        return;
    }
    m_engine->checks.takeLast()({section("Mac_Application_2.2.0"), section("Device_XML")}, kNoError);
    if (step == 4)
        return;
    tickAndContinue();
    m_engine->checks.takeLast()({section("Mac_Application_2.2.0"), section("Device_XML")}, kNoError);
    if (step == 5)
        return;
    m_engine->sectionRuns.last().progress(0.25f, QVariantMap{{"message", text("IDS_INSTALLER_DOWNLOADING")}});
    if (step == 6)
        return;
    m_engine->sectionRuns.last().completion({}, kNoError);
}

void FlowControllerTest::tickAndContinue()
{
    QTest::mouseClick(m_controller->licenseAgreementCheckbox(), Qt::LeftButton);
    QVERIFY(m_controller->continueButton()->isEnabled());
    QTest::mouseClick(m_controller->continueButton(), Qt::LeftButton);
    // The button fires once the click has been handled.
    QTRY_VERIFY(!m_controller->continueButton()->isVisible());
    QVERIFY(infoShows(text("CHECKING_UPDATE"), false));
}

bool FlowControllerTest::infoShows(const QString &expected, bool error) const
{
    const KVTextView *info = m_controller->infoTextView();
    const QColor colour = error ? QColor(229, 76, 85) : QColor(74, 74, 74);
    return m_controller->infoScrollView()->isVisible() && info->string() == expected &&
           info->attributes().foregroundColor == colour && m_controller->hasError() == error;
}

bool FlowControllerTest::licenceControlsHidden() const
{
    return !m_controller->continueButton()->isVisible() && !m_controller->cancelButton()->isVisible() &&
           !m_controller->licenseAgreementCheckbox()->isVisible() && !m_controller->licenseScrollView()->isVisible();
}

void FlowControllerTest::waitsForTheNetworkThenFindsNothingDue()
{
    QCOMPARE(m_monitorStarts, 1);
    QVERIFY(infoShows(text("IDS_INSTALLER_CHECK_INTERNET"), false));
    QVERIFY(!m_controller->checkingIndicator()->isVisible());
    QVERIFY(!m_controller->progressIndicator()->isVisible());
    QVERIFY(licenceControlsHidden());
    QVERIFY(m_engine->installerChecks.isEmpty());
    QCOMPARE(m_controller->updateStep(), quint64(0));

    postReachable();
    QCOMPARE(m_engine->installerChecks.size(), 1);
    QVERIFY(infoShows(text("CHECKING_UPDATE"), false));

    m_engine->installerChecks.takeLast()(nullptr, kNoError);
    m_engine->checks.takeLast()({}, kNoError);
    QCOMPARE(m_controller->updateStep(), quint64(1));
    QVERIFY(infoShows(QStringLiteral(""), false));
    QVERIFY(!m_controller->progressIndicator()->isVisible());
    QVERIFY(!m_controller->checkingIndicator()->isVisible());
    QVERIFY(licenceControlsHidden());
    QVERIFY(m_engine->sectionRuns.isEmpty());
}

void FlowControllerTest::sectionUpdateWalksTheSteps()
{
    reachStep(0);
    m_engine->installerChecks.takeLast()(nullptr, kNoError);
    QCOMPARE(m_controller->updateStep(), quint64(1));
    QCOMPARE(m_engine->checks.size(), 1);

    const QList<KVINISectionPtr> due{section("Mac_Application_2.2.0"), section("Smart_Cards")};
    m_engine->checks.takeLast()(due, kNoError);
    QCOMPARE(m_controller->updateStep(), quint64(4));
    QVERIFY(!m_controller->infoScrollView()->isVisible());
    QVERIFY(m_controller->cancelButton()->isVisible() && m_controller->licenseScrollView()->isVisible());
    QVERIFY(!m_controller->licenseAgreementCheckbox()->checked() && !m_controller->continueButton()->isEnabled());

    tickAndContinue();
    QVERIFY(licenceControlsHidden());
    QCOMPARE(m_engine->checks.size(), 1);
    m_engine->checks.takeLast()(due, kNoError);
    QCOMPARE(m_controller->updateStep(), quint64(5));
    QCOMPARE(m_engine->sectionRuns.size(), 1);
    QCOMPARE(m_engine->sectionRuns.last().sections, due);

    m_engine->sectionRuns.last().progress(0.4f, QVariantMap{{"message", text("IDS_INSTALLER_INSTALLING")}});
    QCOMPARE(m_controller->updateStep(), quint64(6));
    QVERIFY(m_controller->progressIndicator()->isVisible());
    QCOMPARE(m_controller->progressIndicator()->doubleValue(), double(0.4f));
    QVERIFY(infoShows(text("IDS_INSTALLER_INSTALLING"), false));
    // A report without a message keeps the last one.
    m_engine->sectionRuns.last().progress(0.6f, std::nullopt);
    QVERIFY(infoShows(text("IDS_INSTALLER_INSTALLING"), false));

    QVERIFY(!KVUserDefaults::standardUserDefaults().dateForKey("InstallerUpdateDate").isValid());
    m_engine->sectionRuns.last().completion({}, kNoError);
    QCOMPARE(m_controller->updateStep(), quint64(7));
    QVERIFY(!m_controller->progressIndicator()->isVisible());
    QVERIFY(!m_controller->checkingIndicator()->isVisible());
    QVERIFY(infoShows(text("IDS_INSTALLER_COMPLETE"), false));
    QVERIFY(KVUserDefaults::standardUserDefaults().dateForKey("InstallerUpdateDate").isValid());
}

void FlowControllerTest::selfUpdateWalksTheSteps()
{
    reachStep(0);
    const KVINISectionPtr installer = section("Installer_1.1.0");
    m_engine->installerChecks.takeLast()(installer, kNoError);
    QCOMPARE(m_controller->updateStep(), quint64(1));
    QCOMPARE(m_engine->installerRuns.size(), 1);
    QCOMPARE(m_engine->installerRuns.last().sections.first(), installer);
    QVERIFY(m_engine->checks.isEmpty());
    QVERIFY(m_controller->progressIndicator()->isVisible());

    m_engine->installerRuns.last().progress(0.5f, QVariantMap{{"message", text("IDS_INSTALLER_UPDATING")}});
    QCOMPARE(m_controller->updateStep(), quint64(2));
    QCOMPARE(m_controller->progressIndicator()->doubleValue(), 0.5);
    QVERIFY(infoShows(text("IDS_INSTALLER_UPDATING"), false));

    m_engine->installerRuns.last().completion({}, kNoError);
    QCOMPARE(m_controller->updateStep(), quint64(3));
    QVERIFY(infoShows(text("IDS_INSTALLER_COMPLETE"), false));
    QVERIFY(KVUserDefaults::standardUserDefaults().dateForKey("InstallerUpdateDate").isValid());
}

void FlowControllerTest::checkErrorWaitsForTheNetwork()
{
    reachStep(0);
    m_engine->installerChecks.takeLast()(nullptr, kUnreachableManifest);
    QCOMPARE(m_controller->updateStep(), quint64(0));
    QVERIFY(infoShows(KVErrorText(kUnreachableManifest), true));
    // Try Again, where Continue stands, repeats the check; the deliverables check fails the same way.
    QVERIFY(m_controller->continueButton()->isVisible() && m_controller->continueButton()->isEnabled());
    QTest::mouseClick(m_controller->continueButton(), Qt::LeftButton);
    QTRY_COMPARE(m_engine->installerChecks.size(), 1);
    m_engine->installerChecks.takeLast()(nullptr, kNoError);
    m_engine->checks.takeLast()({section("Device_XML")}, kUnreachableManifest);
    QCOMPARE(m_controller->updateStep(), quint64(1));
    QVERIFY(infoShows(KVErrorText(kUnreachableManifest), true));

    postReachable();
    QCOMPARE(m_engine->installerChecks.size(), 1);
    QCOMPARE(m_controller->updateStep(), quint64(0));
    QVERIFY(!m_controller->checkingIndicator()->isVisible());
}

void FlowControllerTest::checkAfterContinueFailingStillRuns()
{
    reachStep(4);
    tickAndContinue();
    m_engine->checks.takeLast()({}, kUnreachableManifest);
    QCOMPARE(m_controller->updateStep(), quint64(5));
    QCOMPARE(m_engine->sectionRuns.size(), 1);
    QVERIFY(m_engine->sectionRuns.last().sections.isEmpty());
}

void FlowControllerTest::networkLossAndReturn_data()
{
    QTest::addColumn<quint64>("step");
    QTest::addColumn<int>("installerChecks"); // asked for once the network is back
    QTest::addColumn<int>("checks");
    QTest::addColumn<quint64>("stepAfter");

    QTest::newRow("0 checking") << quint64(0) << 1 << 0 << quint64(0);
    QTest::newRow("1 nothing due") << quint64(1) << 1 << 0 << quint64(0);
    QTest::newRow("6 running") << quint64(6) << 0 << 1 << quint64(6);
    QTest::newRow("7 complete") << quint64(7) << 0 << 1 << quint64(7);
}

void FlowControllerTest::networkLossAndReturn()
{
    QFETCH(quint64, step);
    QFETCH(int, installerChecks);
    QFETCH(int, checks);
    QFETCH(quint64, stepAfter);

    reachStep(step);
    QCOMPARE(m_controller->updateStep(), step);
    m_engine->installerChecks.clear();
    m_engine->checks.clear();

    postNotReachable();
    QCOMPARE(m_controller->updateStep(), step);
    QVERIFY(infoShows(text("IDS_INSTALLER_ERROR_CONNECT"), true));
    QVERIFY(m_controller->checkingIndicator()->isVisible());
    QVERIFY(!m_controller->progressIndicator()->isVisible());
    QVERIFY(licenceControlsHidden());
    // Animated: the frames move on by themselves.
    const QString frame = m_controller->checkingIndicator()->image().name();
    QTRY_VERIFY(m_controller->checkingIndicator()->image().name() != frame);

    postReachable();
    QVERIFY(!m_controller->checkingIndicator()->isVisible());
    QVERIFY(!m_controller->checkingIndicatorTimer());
    QCOMPARE(m_engine->installerChecks.size(), installerChecks);
    QCOMPARE(m_engine->checks.size(), checks);
    QCOMPARE(m_controller->updateStep(), stepAfter);
    QVERIFY(infoShows(text("CHECKING_UPDATE"), false));
    QVERIFY(!m_controller->progressIndicator()->isVisible());

    if (checks) {
        // A new deliverables check and run follow, and the step goes back to 5.
        const int runs = int(m_engine->sectionRuns.size());
        m_engine->checks.takeLast()({section("Device_XML")}, kNoError);
        QCOMPARE(m_controller->updateStep(), quint64(5));
        QCOMPARE(m_engine->sectionRuns.size(), runs + 1);
    }
}

void FlowControllerTest::doubleMonitorRunsHandlersTwice()
{
    // While the licence is shown the monitor is off: nothing moves.
    reachStep(4);
    postNotReachable();
    QVERIFY(m_controller->licenseScrollView()->isVisible());
    QVERIFY(!m_controller->hasError());

    // Continue observes again; a second add observes twice.
    tickAndContinue();
    m_engine->checks.takeLast()({section("Device_XML")}, kNoError);
    QCOMPARE(m_controller->updateStep(), quint64(5));
    m_controller->addNetworkMonitor();
    m_engine->checks.clear();
    postReachable();
    QCOMPARE(m_engine->checks.size(), 2);

    // After the licence is shown again the observers are gone, however many there were.
    m_controller->showEULA();
    postReachable();
    QCOMPARE(m_engine->checks.size(), 2);
}

void FlowControllerTest::runErrorText_data()
{
    QTest::addColumn<QString>("domain");
    QTest::addColumn<qint64>("code");
    QTest::addColumn<bool>("offlineFirst"); // the first error shown stays
    QTest::newRow("connection refused") << QStringLiteral("NSURLErrorDomain") << qint64(-1004) << false;
    QTest::newRow("MD5 mismatch") << QStringLiteral("KVUpdateHelperErrorDomain") << qint64(1) << false;
    QTest::newRow("privileged deployment") << QStringLiteral("") << qint64(-1) << false;
    QTest::newRow("MD5 mismatch after going offline")
        << QStringLiteral("KVUpdateHelperErrorDomain") << qint64(1) << true;
}

void FlowControllerTest::runErrorText()
{
    QFETCH(QString, domain);
    QFETCH(qint64, code);
    QFETCH(bool, offlineFirst);

    reachStep(6);
    if (offlineFirst)
        postNotReachable();
    m_engine->sectionRuns.last().completion({}, KVError(domain, code));
    QCOMPARE(m_controller->updateStep(), quint64(6));
    QVERIFY(!m_controller->progressIndicator()->isVisible());
    // Offline, the animation says that the installer goes on by itself once the network is back;
    // after any other error Try Again does.
    QCOMPARE(m_controller->checkingIndicator()->isVisible(), offlineFirst);
    const QString shown = offlineFirst ? text("IDS_INSTALLER_ERROR_CONNECT") : KVErrorText(KVError(domain, code));
    QVERIFY2(infoShows(shown, true), qPrintable(m_controller->infoTextView()->string()));
    QVERIFY(KVUserDefaults::standardUserDefaults().dateForKey("InstallerUpdateDate").isValid());
    if (offlineFirst)
        return;

    // Try Again repeats the check and the run.
    QCOMPARE(m_controller->continueButton()->title(), KVLocalizedString(QStringLiteral("IDS_INSTALLER_TRY_AGAIN")));
    QTest::mouseClick(m_controller->continueButton(), Qt::LeftButton);
    QTRY_COMPARE(m_engine->checks.size(), 1);
    m_engine->checks.takeLast()({section("Device_XML")}, kNoError);
    QCOMPARE(m_engine->sectionRuns.size(), 2);
}

void FlowControllerTest::checkboxRule_data()
{
    QTest::addColumn<int>("clicks");
    QTest::addColumn<bool>("enabled");
    QTest::newRow("none") << 0 << false;
    QTest::newRow("ticked") << 1 << true;
    QTest::newRow("ticked and unticked") << 2 << false;
    QTest::newRow("ticked again") << 3 << true;
}

void FlowControllerTest::checkboxRule()
{
    QFETCH(int, clicks);
    QFETCH(bool, enabled);

    reachStep(4);
    QSignalSpy changes(m_controller->licenseAgreementCheckbox(), &KVCheckBox::checkedChanged);
    for (int i = 0; i < clicks; ++i)
        QTest::mouseClick(m_controller->licenseAgreementCheckbox(), Qt::LeftButton);
    // The box toggles once per click, by the controller's hand alone.
    QCOMPARE(changes.size(), clicks);
    QCOMPARE(m_controller->licenseAgreementCheckbox()->checked(), enabled);
    QCOMPARE(m_controller->continueButton()->isEnabled(), enabled);

    // A reachable notification in step 4 re-shows the licence: unticked, Continue disabled.
    m_controller->addNetworkMonitor();
    postReachable();
    QCOMPARE(m_controller->updateStep(), quint64(4));
    QVERIFY(!m_controller->licenseAgreementCheckbox()->checked());
    QVERIFY(!m_controller->continueButton()->isEnabled());
    QVERIFY(m_engine->installerChecks.isEmpty());
}

void FlowControllerTest::licenceLinksOpen()
{
    reachStep(4);
    const KVILinkTextView *textView = m_controller->licenseTextView();
    const QList<KVILinkTextView::Link> links = textView->links();
    QCOMPARE(links.size(), 3);

    // A real click on a link opens it; a failed opening is only reported.
    QTest::mouseClick(m_controller->licenseTextView(), Qt::LeftButton, {},
                      textView->firstCharacterRect(links[2]).center().toPoint());
    QCOMPARE(m_openedURLs, QList<QUrl>{links[2].url});
    QVERIFY(!m_controller->textView(m_controller->licenseTextView(), QUrl(), 0));
    m_openSucceeds = false;
    QVERIFY(!m_controller->textView(m_controller->licenseTextView(), links[0].url, 0));
    QCOMPARE(m_terminations, 0);
    QVERIFY(m_controller->licenseScrollView()->isVisible());
}

void FlowControllerTest::licenceByKeyboardAlone()
{
    reachStep(4);
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    const auto press = [](Qt::Key key, Qt::KeyboardModifiers modifiers = {}) {
        QTest::keyClick(QApplication::focusWidget(), key, modifiers);
    };
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

    // Tab walks every control in reading order, each link of the licence on its own.
    QStringList walk;
    for (int i = 0; i < 7; ++i) {
        press(Qt::Key_Tab);
        walk << focusName();
    }
    QCOMPARE(walk, QStringList({text("IDS_TERMS"), text("IDS_PRIVACY"), text("IDS_EULA"), text("IDS_INSTALLER_CANCEL"),
                                text("IDS_MINIMIZE"), text("IDS_CLOSE"), accept}));
    press(Qt::Key_Tab);
    press(Qt::Key_Tab);
    press(Qt::Key_Return); // follows the focused link
    QCOMPARE(m_openedURLs, QList<QUrl>{KVIViewController::privacyURL()});
    press(Qt::Key_Tab, Qt::ShiftModifier);
    press(Qt::Key_Tab, Qt::ShiftModifier);
    QCOMPARE(QApplication::focusWidget(), box);

    // Only Space ticks the box, not a right click; then Continue can act and takes its turn.
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

void FlowControllerTest::closing_data()
{
    QTest::addColumn<quint64>("step");
    QTest::addColumn<bool>("asks");
    QTest::newRow("0 checking") << quint64(0) << true;
    QTest::newRow("4 licence") << quint64(4) << true;
    QTest::newRow("6 running") << quint64(6) << true;
    QTest::newRow("7 complete") << quint64(7) << false;
}

void FlowControllerTest::closing()
{
    QFETCH(quint64, step);
    QFETCH(bool, asks);

    reachStep(step);
    QTest::mouseClick(m_controller->closeButton(), Qt::LeftButton);
    if (!asks) {
        QTRY_COMPARE(m_terminations, 1);
        QVERIFY(!m_controller->alert());
        return;
    }
    QTRY_VERIFY(m_controller->alert());
    KVIAlertViewController *alert = m_controller->alert();
    QCOMPARE(m_window->popupView(), alert->view());
    QCOMPARE(m_terminations, 0);

    // The dialog does not pause the engine: a run's progress still moves the screen.
    if (step == 6) {
        m_engine->sectionRuns.last().progress(0.8f, std::nullopt);
        QCOMPARE(m_controller->progressIndicator()->doubleValue(), double(0.8f));
    }

    // Resume: the dialog goes, the installer stays.
    QTest::mouseClick(alert->defaultButton(), Qt::LeftButton);
    QTRY_VERIFY(!m_controller->alert());
    QVERIFY(!m_window->popupView());
    QCOMPARE(m_terminations, 0);

    // Quit, from the cancel button where there is one.
    if (m_controller->cancelButton()->isVisible())
        QTest::mouseClick(m_controller->cancelButton(), Qt::LeftButton);
    else
        m_controller->closeButtonDidClick();
    QTRY_VERIFY(m_controller->alert());
    QTest::mouseClick(m_controller->alert()->alternateButton(), Qt::LeftButton);
    QTRY_COMPARE(m_terminations, 1);
    QVERIFY(!m_controller->alert());
}

void FlowControllerTest::screensAreTidy_data()
{
    QTest::addColumn<QString>("screen");
    for (const char *screen : {"waiting", "checking", "licence", "progress", "complete", "offline", "failed"})
        QTest::newRow(screen) << QString::fromLatin1(screen);
}

// Every screen keeps its controls inside the view, clear of each other and of the window buttons.
// With NESTORA_SCREENSHOT_DIR set, each screen is also saved there as <screen>.png to be looked at.
void FlowControllerTest::screensAreTidy()
{
    QFETCH(QString, screen);
    if (screen == "checking")
        reachStep(0);
    else if (screen == "licence")
        reachStep(4);
    else if (screen == "progress")
        reachStep(6);
    else if (screen == "complete")
        reachStep(7);
    else if (screen == "offline")
        postNotReachable();
    else if (screen == "failed") {
        reachStep(6);
        m_engine->sectionRuns.last().completion({}, KVError(QStringLiteral("KVUpdateHelperErrorDomain"), 1));
    }

    QList<QWidget *> shown;
    const QList<QWidget *> outlets{
        m_controller->infoScrollView(),    m_controller->licenseScrollView(), m_controller->licenseAgreementCheckbox(),
        m_controller->continueButton(),    m_controller->cancelButton(),      m_controller->progressIndicator(),
        m_controller->checkingIndicator(), m_controller->minimizeButton(),    m_controller->closeButton()};
    for (QWidget *outlet : outlets) {
        if (outlet->isVisible())
            shown.append(outlet);
    }
    const QRect bounds = m_controller->view()->rect();
    for (int i = 0; i < shown.size(); ++i) {
        QVERIFY2(bounds.contains(shown[i]->geometry()), shown[i]->metaObject()->className());
        for (int j = i + 1; j < shown.size(); ++j) {
            QVERIFY2(!shown[i]->geometry().intersects(shown[j]->geometry()),
                     qPrintable(QStringLiteral("%1 overlaps %2")
                                    .arg(shown[i]->metaObject()->className(), shown[j]->metaObject()->className())));
        }
    }

    const QString folder = qEnvironmentVariable("NESTORA_SCREENSHOT_DIR");
    if (!folder.isEmpty()) {
        QTest::qWait(100); // a frame or two of the animations
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(m_window->grab().save(folder + QStringLiteral("/%1.png").arg(screen)));
    }
}

NESTORA_TEST_MAIN(FlowControllerTest)
#include "tst_flowcontroller.moc"
