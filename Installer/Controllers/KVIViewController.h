#pragma once

#include "App/Model/KVLaunchSequence.h"

#include <QObject>
#include <QPointer>
#include <QRectF>
#include <QSize>
#include <QUrl>
#include <QVariantMap>

#include <functional>
#include <optional>

class KVButton;
class KVCheckBox;
class KVError;
class KVIAlertViewController;
class KVIImageView;
class KVILinkTextView;
class KVIView;
class KVIWindow;
class KVIconButton;
class KVProgressIndicator;
class KVTextView;
class KVUpdateEngine;
class QScrollArea;
class QTimer;
class QWidget;

// The installer's one screen: it waits for the network, then starts the launch sequence
// (KVLaunchSequence) and shows each of its steps: the checks, the licence to be accepted, the
// progress of the update runs and their outcome, with Try Again after a failure. Where the flow
// stands is the sequence's step, which the close button and the network notifications consult.
//
// Thread: main, for everything; the engine's handlers arrive on the main thread.
class KVIViewController : public QObject
{
    Q_OBJECT
public:
    // What the screen reaches outside itself; tests replace each part.
    struct Environment
    {
        std::function<void()> startNetworkMonitor;  // starts the reachability reports
        std::function<bool(const QUrl &)> openURL;  // opens a web page in the user's browser
        std::function<void()> terminateApplication; // ends the installer
    };
    // The network helper, the desktop's browser and the application's quit.
    static Environment defaultEnvironment();

    // The size the screen is drawn for; the installer window takes it.
    static constexpr QSize viewSize{440, 220};

    // Builds the screen (its view owns this controller) and runs viewDidLoad(). The engine must
    // outlive the screen; the window shows the exit dialog and may be null where none is needed.
    KVIViewController(KVUpdateEngine &engine, KVIWindow *window, Environment environment = defaultEnvironment());
    ~KVIViewController() override;

    KVIView *view() const { return m_view; }
    quint64 updateStep() const { return m_sequence->step(); }
    bool hasError() const { return m_hasError; }

    // The outlets.
    QScrollArea *infoScrollView() const { return m_infoScrollView; }
    KVTextView *infoTextView() const { return m_infoTextView; }
    QScrollArea *licenseScrollView() const { return m_licenseScrollView; }
    KVILinkTextView *licenseTextView() const { return m_licenseTextView; }
    KVCheckBox *licenseAgreementCheckbox() const { return m_licenseAgreementCheckbox; }
    KVButton *continueButton() const { return m_continueButton; }
    KVButton *cancelButton() const { return m_cancelButton; }
    KVIconButton *minimizeButton() const { return m_minimizeButton; }
    KVIconButton *closeButton() const { return m_closeButton; }
    KVProgressIndicator *progressIndicator() const { return m_progressIndicator; }
    KVIImageView *checkingIndicator() const { return m_checkingIndicator; }
    KVIAlertViewController *alert() const { return m_alert; }
    QTimer *checkingIndicatorTimer() const { return m_checkingIndicatorTimer; }

    // A subview's frame with y growing upwards from the view's bottom edge, as the layout rules
    // are written.
    QRectF frameOf(const QWidget *subview) const;

    // The width a row button takes for a title of that width, and whether the title is clipped
    // there (then the button shows it whole as its tool tip).
    struct ButtonWidth
    {
        double width;
        bool clipped;
    };
    static ButtonWidth buttonWidthForTitleWidth(double titleWidth);

    // The web pages of the licence screen.
    static QUrl termsURL();
    static QUrl privacyURL();
    static QUrl licenseAgreementURL();

    // Actions.
    void closeButtonDidClick();
    void contiuneButtonDidClick();
    void cancelButtonDidClick();
    void minimizeButtonDidClick();
    void licenseAgreementDidClick();
    void licenseAgreementCheckboxDidChange();
    // Continue, titled "Try Again" on an error screen: repeats the failed check, or the check and
    // the run.
    void tryAgainButtonDidClick();

    // Flow.
    void showEULA();
    void showWarningDialog();

    // Display.
    void displayInfo(const QString &text, bool withError);
    void displayCheckingIndicator(bool show);
    void updateIndicator();

    // Network monitoring. Adding twice observes twice, so each notification then runs twice.
    void addNetworkMonitor();
    void removeNetworkMonitor();
    void handleNetworkReachableNotification();
    void handleNetworkNotReachableNotification();

    // A click on a link of the licence text: opens it; false when there is none or it fails.
    bool textView(KVILinkTextView *textView, const QUrl &link, int characterIndex);

    // Lays out the button row for the current titles and view width.
    void viewDidLayout();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildInterface();
    void viewDidLoad();
    void setFrame(QWidget *subview, const QRectF &bottomLeftFrame) const;
    // Hides the controls of the licence screen: continue, cancel, check box and licence text.
    void hideLicenseControls();
    // The display of a check or re-check: "CHECKING_UPDATE" and nothing else.
    void showChecking();
    void showConnectionError();
    // The error's text in red, logged with its cause.
    void showFailure(const KVError &error, const QString &step);
    // Cancel and Continue, titled "Try Again", below an error.
    void offerRetry();
    void setContinueRetries(bool retries);
    // What the sequence reports, shown.
    void connectSequence();
    void showInstallerUpdate();
    void showNothingDue();
    void showRunProgress(KVLaunchSequence::Run run, float fraction, const std::optional<QVariantMap> &info);
    void updateRunDidComplete(const KVError &error);

    QPointer<KVIWindow> m_window;
    Environment m_environment;
    KVLaunchSequence *m_sequence;

    KVIView *m_view;
    QScrollArea *m_infoScrollView;
    KVTextView *m_infoTextView;
    QScrollArea *m_licenseScrollView;
    KVILinkTextView *m_licenseTextView;
    KVCheckBox *m_licenseAgreementCheckbox;
    KVButton *m_continueButton;
    KVButton *m_cancelButton;
    KVIconButton *m_minimizeButton;
    KVIconButton *m_closeButton;
    KVProgressIndicator *m_progressIndicator;
    KVIImageView *m_checkingIndicator;
    KVIAlertViewController *m_alert = nullptr;
    QTimer *m_checkingIndicatorTimer = nullptr;

    bool m_hasError = false;
    bool m_continueRetries = false;
};
