#include "Installer/Controllers/KVIViewController.h"

#include "App/Model/KVErrorClass.h"
#include "App/Model/KVNetworkHelper.h"
#include "App/Model/KVUpdateEngine.h"
#include "Core/Extensions/KVLocalizedString.h"
#include "Core/Extensions/KVNotificationCenter.h"
#include "Core/Logging/KVFormat.h"
#include "Core/Logging/KVLog.h"
#include "Core/View/KVCapsuleButtons.h"
#include "Core/View/KVCheckBox.h"
#include "Core/View/KVGeometry.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVPlainButtons.h"
#include "Core/View/KVProgressIndicator.h"
#include "Core/View/KVTextView.h"
#include "Installer/Controllers/KVIAlertViewController.h"
#include "Installer/KVIImageView.h"
#include "Installer/KVILinkTextView.h"
#include "Installer/KVIView.h"
#include "Installer/KVIWindow.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QEvent>
#include <QFontMetricsF>
#include <QKeyEvent>
#include <QScrollArea>
#include <QShortcut>
#include <QTimer>

#include <cmath>

namespace {

const QString kIndicatorFramePrefix = QStringLiteral("installer progress  ");
constexpr std::chrono::milliseconds kIndicatorInterval(40);

const QColor kTextGrey(74, 74, 74);
const QColor kErrorRed(229, 76, 85);
const QColor kLicenseText(0, 0, 0, qRound(0.87 * 255));
const QColor kLinkBlue(0, 120, 214);

// The interface: the outlets' frames before the flow moves any of them, with y growing upwards
// from the bottom edge of a view of KVIViewController::viewSize. The info text sits 24 points above
// the progress bar and the licence text 27 points above the button row; both keep 40-point margins.
constexpr double kMargin = 40;
constexpr double kViewWidth = KVIViewController::viewSize.width();
constexpr double kViewHeight = KVIViewController::viewSize.height();
constexpr QRectF kCloseButtonFrame(kViewWidth - 8 - 24, kViewHeight - 8 - 24, 24, 24);
constexpr QRectF kMinimizeButtonFrame(kCloseButtonFrame.x() - 24, kCloseButtonFrame.y(), 24, 24);
constexpr QRectF kProgressIndicatorFrame(kMargin, 64, kViewWidth - 2 * kMargin, 6);
constexpr QRectF kCheckingIndicatorFrame((kViewWidth - 32) / 2, kProgressIndicatorFrame.center().y() - 16, 32, 32);
constexpr QRectF kButtonRowFrame(kMargin, 52, 130, 34);
constexpr double kCheckboxSide = 18;
constexpr QRectF kCheckboxFrame(kMargin, 110, kCheckboxSide, kCheckboxSide);
constexpr double kLicenseX = kMargin + kCheckboxSide + 10;
constexpr QRectF kLicenseScrollViewFrame(kLicenseX, 97, kViewWidth - kMargin - kLicenseX, 40);

QScrollArea *makeScrollView(QWidget *content, QWidget *parent)
{
    auto *scrollView = new QScrollArea(parent);
    scrollView->setFrameShape(QFrame::NoFrame);
    scrollView->setFocusPolicy(Qt::NoFocus); // the text inside takes the focus where it has links
    scrollView->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scrollView->setWidgetResizable(false);
    QPalette palette = scrollView->palette();
    palette.setColor(QPalette::Window, Qt::white);
    palette.setColor(QPalette::Base, Qt::white);
    scrollView->setPalette(palette);
    scrollView->viewport()->setAutoFillBackground(false);
    scrollView->setWidget(content);
    return scrollView;
}

QUrl vendorPage(const QString &scheme, const QString &path)
{
    QUrl url;
    url.setScheme(scheme);
    url.setHost(QStringLiteral(NESTORA_VENDOR_SITE));
    url.setPath(path);
    return url;
}

} // namespace

KVIViewController::Environment KVIViewController::defaultEnvironment()
{
    return {
        .startNetworkMonitor = [] { KVNetworkHelper::sharedInstance(); },
        .openURL = [](const QUrl &url) { return QDesktopServices::openUrl(url); },
        .terminateApplication = [] { QCoreApplication::quit(); },
    };
}

KVIViewController::KVIViewController(KVUpdateEngine &engine, KVIWindow *window, Environment environment)
    : m_window(window)
    , m_environment(std::move(environment))
    , m_sequence(new KVLaunchSequence(engine, this))
    , m_view(new KVIView)
    , m_infoTextView(new KVTextView)
    , m_licenseTextView(new KVILinkTextView)
    , m_licenseAgreementCheckbox(new KVCheckBox(m_view))
    , m_continueButton(new KVPrimaryButton(m_view))
    , m_cancelButton(new KVSecondaryButton(m_view))
    , m_minimizeButton(new KVIconButton(m_view))
    , m_closeButton(new KVIconButton(m_view))
    , m_progressIndicator(new KVProgressIndicator(m_view))
    , m_checkingIndicator(new KVIImageView(m_view))
{
    setParent(m_view);
    m_infoScrollView = makeScrollView(m_infoTextView, m_view);
    m_licenseScrollView = makeScrollView(m_licenseTextView, m_view);
    buildInterface();
    connectSequence();
    viewDidLoad();
}

KVIViewController::~KVIViewController()
{
    KVNotificationCenter::defaultCenter().removeObserver(this);
    if (m_alert)
        m_alert->deleteLater();
}

QUrl KVIViewController::termsURL()
{
    return vendorPage(QStringLiteral("https"), QStringLiteral("/legal-privacy/terms-and-conditions/"));
}

QUrl KVIViewController::privacyURL()
{
    return vendorPage(QStringLiteral("https"), QStringLiteral("/legal-privacy/"));
}

QUrl KVIViewController::licenseAgreementURL()
{
    return vendorPage(QStringLiteral("https"), QStringLiteral("/legal-privacy/end-user-license-agreement/"));
}

QRectF KVIViewController::frameOf(const QWidget *subview) const
{
    return KVGeometry::flipped(QRectF(subview->geometry()), m_view->height());
}

void KVIViewController::setFrame(QWidget *subview, const QRectF &bottomLeftFrame) const
{
    // Each edge on its nearest whole pixel, so that a frame keeps its width wherever it starts.
    const QRectF frame = KVGeometry::flipped(bottomLeftFrame, m_view->height());
    const QPoint topLeft(qRound(frame.left()), qRound(frame.top()));
    subview->setGeometry(QRect(topLeft, QPoint(qRound(frame.right()), qRound(frame.bottom())) - QPoint(1, 1)));
}

// What the interface file holds: the outlets' kinds, frames and wiring.
void KVIViewController::buildInterface()
{
    m_view->setFixedSize(viewSize);
    m_view->installEventFilter(this);

    setFrame(m_closeButton, kCloseButtonFrame);
    setFrame(m_minimizeButton, kMinimizeButtonFrame);
    setFrame(m_progressIndicator, kProgressIndicatorFrame);
    setFrame(m_checkingIndicator, kCheckingIndicatorFrame);
    setFrame(m_cancelButton, kButtonRowFrame);
    setFrame(m_continueButton, kButtonRowFrame);
    setFrame(m_licenseAgreementCheckbox, kCheckboxFrame);
    setFrame(m_licenseScrollView, kLicenseScrollViewFrame);
    m_licenseTextView->resize(m_licenseScrollView->size());
    m_checkingIndicator->hide();

    // The box's state is the flow's to decide: a click only reports itself.
    m_licenseAgreementCheckbox->setTogglesItself(false);
    connect(m_licenseAgreementCheckbox, &KVCheckBox::clicked, this,
            &KVIViewController::licenseAgreementCheckboxDidChange);
    connect(m_continueButton, &KVButton::clicked, this, [this] {
        if (m_continueRetries)
            tryAgainButtonDidClick();
        else
            contiuneButtonDidClick();
    });
    connect(m_cancelButton, &KVButton::clicked, this, &KVIViewController::cancelButtonDidClick);
    connect(m_closeButton, &KVButton::clicked, this, &KVIViewController::closeButtonDidClick);
    connect(m_minimizeButton, &KVButton::clicked, this, &KVIViewController::minimizeButtonDidClick);
    connect(m_licenseTextView, &KVILinkTextView::clickedOnLink, this,
            [this](const QUrl &link, int characterIndex) { textView(m_licenseTextView, link, characterIndex); });

    // Escape asks whether to leave, as the close button does before the end.
    auto *escape = new QShortcut(QKeySequence(Qt::Key_Escape), m_view);
    connect(escape, &QShortcut::activated, this, [this] {
        if (!m_alert)
            showWarningDialog();
    });
    m_infoTextView->setStatus(true);
}

void KVIViewController::viewDidLoad()
{
    KVLogVerbose("%s", __func__);
    m_environment.startNetworkMonitor();
    addNetworkMonitor();

    m_minimizeButton->setDefaultImage(KVImage::named(QStringLiteral("installer_window_minimize")));
    m_minimizeButton->setHoveredImage(KVImage::named(QStringLiteral("installer_window_minimize hover")));
    m_minimizeButton->setPressedImage(KVImage::named(QStringLiteral("installer_window_minimize pressed")));
    m_closeButton->setDefaultImage(KVImage::named(QStringLiteral("installer_window_close")));
    m_closeButton->setHoveredImage(KVImage::named(QStringLiteral("installer_window_close hover")));
    m_closeButton->setPressedImage(KVImage::named(QStringLiteral("installer_window_close pressed")));
    m_minimizeButton->setAccessibleName(KVLocalizedString(QStringLiteral("IDS_MINIMIZE")));
    m_closeButton->setAccessibleName(KVLocalizedString(QStringLiteral("IDS_CLOSE")));

    m_infoScrollView->hide();
    m_infoTextView->setFont(KVIFont::regular14());
    m_infoTextView->setAttributes({.font = KVIFont::regular14(), .foregroundColor = kTextGrey});

    m_progressIndicator->hide();
    m_cancelButton->setTitle(KVLocalizedString(QStringLiteral("IDS_INSTALLER_CANCEL")));
    setContinueRetries(false);
    hideLicenseControls();

    displayInfo(KVLocalizedString(QStringLiteral("IDS_INSTALLER_CHECK_INTERNET")), false);
    // Nothing else starts the flow: the first reachable notification does.
}

bool KVIViewController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_view && event->type() == QEvent::Resize)
        viewDidLayout();
    // Return that no control used presses Continue, the screen's default button, once it can act.
    if (watched == m_view && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if ((key == Qt::Key_Return || key == Qt::Key_Enter) && m_continueButton->isVisible() &&
            m_continueButton->isEnabled()) {
            m_continueButton->performClick();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

// ---- Network ------------------------------------------------------------------------------------

void KVIViewController::addNetworkMonitor()
{
    KVNotificationCenter &center = KVNotificationCenter::defaultCenter();
    center.addObserver(this, KVNetworkReachableNotification,
                       [this](const KVNotification &) { handleNetworkReachableNotification(); });
    center.addObserver(this, KVNetworkNotReachableNotification,
                       [this](const KVNotification &) { handleNetworkNotReachableNotification(); });
}

void KVIViewController::removeNetworkMonitor()
{
    KVNotificationCenter &center = KVNotificationCenter::defaultCenter();
    center.removeObserver(this, KVNetworkReachableNotification);
    center.removeObserver(this, KVNetworkNotReachableNotification);
}

void KVIViewController::handleNetworkReachableNotification()
{
    KVLogInfo("%s in step %d", __func__, updateStep());
    if (updateStep() == KVLaunchSequence::LicenseShown)
        showEULA();
    else
        m_sequence->repeatCurrentStep();
}

void KVIViewController::handleNetworkNotReachableNotification()
{
    KVLogInfo("%s in step %d", __func__, updateStep());
    showConnectionError();
    hideLicenseControls();
}

// ---- Flow ---------------------------------------------------------------------------------------

void KVIViewController::connectSequence()
{
    connect(m_sequence, &KVLaunchSequence::checkStarted, this, &KVIViewController::showChecking);
    connect(m_sequence, &KVLaunchSequence::checkFailed, this, &KVIViewController::showFailure);
    connect(m_sequence, &KVLaunchSequence::installerUpdateStarted, this, &KVIViewController::showInstallerUpdate);
    connect(m_sequence, &KVLaunchSequence::licenceRequired, this, &KVIViewController::showEULA);
    connect(m_sequence, &KVLaunchSequence::nothingDue, this, &KVIViewController::showNothingDue);
    connect(m_sequence, &KVLaunchSequence::runProgressed, this, &KVIViewController::showRunProgress);
    connect(m_sequence, &KVLaunchSequence::runFinished, this,
            [this](KVLaunchSequence::Run, const KVError &error) { updateRunDidComplete(error); });
}

void KVIViewController::showInstallerUpdate()
{
    displayCheckingIndicator(false);
    m_progressIndicator->show();
}

void KVIViewController::showNothingDue()
{
    // The engine hands over to the companion application itself.
    displayCheckingIndicator(false);
    m_progressIndicator->hide();
    m_infoScrollView->show();
    displayInfo(QStringLiteral(""), false);
}

void KVIViewController::hideLicenseControls()
{
    m_continueButton->hide();
    m_cancelButton->hide();
    m_licenseAgreementCheckbox->hide();
    m_licenseScrollView->hide();
}

void KVIViewController::showChecking()
{
    displayInfo(KVLocalizedString(QStringLiteral("CHECKING_UPDATE")), false);
    m_progressIndicator->hide();
    displayCheckingIndicator(false);
    m_infoScrollView->show();
    hideLicenseControls();
}

void KVIViewController::showConnectionError()
{
    m_infoScrollView->show();
    displayInfo(KVLocalizedString(QStringLiteral("IDS_INSTALLER_ERROR_CONNECT")), true);
    displayCheckingIndicator(true);
    m_progressIndicator->hide();
}

void KVIViewController::showFailure(const KVError &error, const QString &step)
{
    KVLogError("%@ %@ failed: %@", QStringLiteral("KVIViewController"), step, error);
    m_infoScrollView->show();
    m_progressIndicator->hide();
    displayInfo(KVErrorText(error), true);
    // Try Again stands where the animation would: the user, not the network, resumes from here.
    displayCheckingIndicator(false);
    offerRetry();
}

void KVIViewController::offerRetry()
{
    setContinueRetries(true);
    m_continueButton->show();
    m_continueButton->setEnabled(true);
    m_cancelButton->show();
    m_continueButton->setFocus(Qt::OtherFocusReason);
}

void KVIViewController::tryAgainButtonDidClick()
{
    KVLogInfo("%s in step %d", __func__, updateStep());
    setContinueRetries(false);
    m_sequence->repeatCurrentStep();
}

void KVIViewController::setContinueRetries(bool retries)
{
    m_continueRetries = retries;
    m_continueButton->setTitle(KVLocalizedString(retries ? QStringLiteral("IDS_INSTALLER_TRY_AGAIN")
                                                         : QStringLiteral("IDS_INSTALLER_CONTINUE")));
    viewDidLayout();
}

void KVIViewController::showEULA()
{
    // Network changes do not move the flow while the licence is shown.
    removeNetworkMonitor();
    setContinueRetries(false);
    displayCheckingIndicator(false);
    m_progressIndicator->hide();
    m_infoScrollView->hide();
    m_continueButton->show();
    m_continueButton->setEnabled(false);
    m_cancelButton->show();
    m_licenseAgreementCheckbox->show();
    m_licenseScrollView->show();

    const QString terms = KVLocalizedString(QStringLiteral("IDS_TERMS"));
    const QString privacy = KVLocalizedString(QStringLiteral("IDS_PRIVACY"));
    const QString eula = KVLocalizedString(QStringLiteral("IDS_EULA"));
    const QString text = KVFormat(KVLocalizedString(QStringLiteral("IDS_INSTALLER_ACCEPT")), terms, privacy, eula);
    QList<KVILinkTextView::Link> links;
    const std::pair<QString, QUrl> targets[] = {
        {terms, termsURL()}, {privacy, privacyURL()}, {eula, licenseAgreementURL()}};
    for (const auto &[name, url] : targets) {
        const qsizetype location = text.indexOf(name);
        if (location >= 0 && !name.isEmpty())
            links.append({.location = location, .length = name.size(), .url = url});
    }

    const QFont font = KVIFont::regular12();
    m_licenseTextView->setAttributes({.font = font, .foregroundColor = kLicenseText, .alignment = Qt::AlignLeft});
    m_licenseTextView->setLinkColor(kLinkBlue);
    m_licenseTextView->setString(text);
    m_licenseTextView->setLinks(links);
    // The keyboard meets the controls in reading order: the window's own buttons at the top, then
    // the licence (box and links), then the button row. Set once the links exist: Qt leaves a view
    // that takes no focus out of the order.
    const QList<QWidget *> readingOrder{m_minimizeButton,  m_closeButton,  m_licenseAgreementCheckbox,
                                        m_licenseTextView, m_cancelButton, m_continueButton};
    for (qsizetype i = 1; i < readingOrder.size(); ++i)
        QWidget::setTabOrder(readingOrder[i - 1], readingOrder[i]);

    QRectF scrollFrame = frameOf(m_licenseScrollView);
    const double textHeight = KVTextMeasure::heightWithString(text, font, scrollFrame.width());
    const QRectF continueFrame = frameOf(m_continueButton);
    scrollFrame.moveTop(continueFrame.y() + continueFrame.height() + 27); // the bottom edge, y up
    scrollFrame.setHeight(textHeight);
    setFrame(m_licenseScrollView, scrollFrame);
    m_licenseTextView->resize(m_licenseScrollView->width(), int(std::ceil(textHeight)));

    m_licenseAgreementCheckbox->setChecked(false);
    QRectF checkboxFrame = frameOf(m_licenseAgreementCheckbox);
    // Its top edge 2 points below the top of the text.
    checkboxFrame.moveTop(scrollFrame.y() + textHeight - 2 - checkboxFrame.height());
    setFrame(m_licenseAgreementCheckbox, checkboxFrame);

    // The first control of the step takes the focus; Continue cannot, while it is disabled.
    m_licenseAgreementCheckbox->setAccessibleName(text);
    m_licenseAgreementCheckbox->setFocus(Qt::OtherFocusReason);
}

void KVIViewController::licenseAgreementCheckboxDidChange()
{
    const bool wasChecked = m_licenseAgreementCheckbox->checked();
    m_continueButton->setEnabled(!wasChecked);
    m_continueButton->setNeedsDisplay();
    m_licenseAgreementCheckbox->setChecked(!wasChecked);
}

void KVIViewController::contiuneButtonDidClick()
{
    addNetworkMonitor();
    m_sequence->updateDeliverables();
}

void KVIViewController::showRunProgress(KVLaunchSequence::Run run, float fraction,
                                        const std::optional<QVariantMap> &info)
{
    // The self-update shows its bar as it starts; the deliverables' run brings it back with every
    // report, after a network loss too.
    if (run == KVLaunchSequence::Run::Deliverables) {
        displayCheckingIndicator(false);
        m_progressIndicator->show();
    }
    m_progressIndicator->setDoubleValue(fraction);
    if (info && info->contains(QStringLiteral("message"))) {
        m_infoScrollView->show();
        displayInfo(info->value(QStringLiteral("message")).toString(), false);
    }
}

void KVIViewController::updateRunDidComplete(const KVError &error)
{
    m_progressIndicator->hide();
    if (!error) {
        displayInfo(KVLocalizedString(QStringLiteral("IDS_INSTALLER_COMPLETE")), false);
        displayCheckingIndicator(false);
    } else if (!m_hasError) {
        // The first error stays on screen; the step is left where the progress put it.
        showFailure(error, QStringLiteral("update run"));
    }
}

// ---- Display ------------------------------------------------------------------------------------

void KVIViewController::displayInfo(const QString &text, bool withError)
{
    m_hasError = withError;
    m_infoScrollView->show();

    const KVTextAttributes attributes{.font = m_infoTextView->font(),
                                      .foregroundColor = withError ? kErrorRed : kTextGrey,
                                      .alignment = Qt::AlignHCenter,
                                      .lineSpacing = 8,
                                      .wordWrap = true};
    const double width = m_view->width() - 2 * kMargin;
    const double textHeight = KVTextMeasure::heightWithString(text, attributes, width);

    const QRectF progressFrame = frameOf(m_progressIndicator);
    const double y = progressFrame.y() + progressFrame.height() + 24;
    const double available = m_view->height() - y;
    const double height = std::min(available, textHeight);
    setFrame(m_infoScrollView, QRectF(kMargin, y, width, height));

    m_infoTextView->setAttributes(attributes);
    m_infoTextView->setString(text);
    m_infoTextView->resize(m_infoScrollView->width(), int(std::ceil(textHeight)));
}

void KVIViewController::displayCheckingIndicator(bool show)
{
    m_checkingIndicator->setVisible(show);
    if (show && !m_checkingIndicatorTimer) {
        m_checkingIndicatorTimer = new QTimer(this);
        m_checkingIndicatorTimer->setInterval(kIndicatorInterval);
        connect(m_checkingIndicatorTimer, &QTimer::timeout, this, &KVIViewController::updateIndicator);
        m_checkingIndicatorTimer->start();
        updateIndicator();
    } else if (!show && m_checkingIndicatorTimer) {
        delete std::exchange(m_checkingIndicatorTimer, nullptr);
    }
}

void KVIViewController::updateIndicator()
{
    // No wrap-around count: after the last frame the next name finds no artwork, the view stays
    // empty for one tick and the tick after starts again at frame 1. The frames present decide
    // how many there are.
    const QString shown = m_checkingIndicator->image().name();
    int frame = 1;
    if (!shown.isEmpty())
        frame = QStringView(shown).mid(kIndicatorFramePrefix.size()).toInt() + 1;
    const KVImage next = KVImage::named(kIndicatorFramePrefix + QString::number(frame));
    m_checkingIndicator->setImage(next.isNull() ? KVImage() : next);
}

void KVIViewController::viewDidLayout()
{
    const QFont font = m_continueButton->font();
    const QFontMetricsF metrics(font);
    const double viewWidth = m_view->width();

    double widths[2];
    KVButton *const buttons[2] = {m_continueButton, m_cancelButton};
    for (int i = 0; i < 2; ++i) {
        const ButtonWidth width = buttonWidthForTitleWidth(metrics.horizontalAdvance(buttons[i]->title()));
        widths[i] = width.width;
        // Titles change (Continue, Try Again): a tool tip only where this one is clipped.
        buttons[i]->setToolTip(width.clipped ? buttons[i]->title() : QString());
    }
    const auto [continueWidth, cancelWidth] = widths;

    const double total = continueWidth + cancelWidth + 24;
    const QRectF cancelFrame = frameOf(m_cancelButton);
    const double cancelX = (viewWidth - total) / 2;
    setFrame(m_cancelButton, QRectF(cancelX, cancelFrame.y(), cancelWidth, cancelFrame.height()));
    setFrame(m_continueButton,
             QRectF(viewWidth - cancelX - continueWidth, cancelFrame.y(), continueWidth, cancelFrame.height()));
}

KVIViewController::ButtonWidth KVIViewController::buttonWidthForTitleWidth(double titleWidth)
{
    const double width = std::max(std::trunc(titleWidth + 0.5) + 36, 130.0);
    if (width >= 151)
        return {150, true};
    return {width, false};
}

// ---- Closing ------------------------------------------------------------------------------------

void KVIViewController::showWarningDialog()
{
    if (!m_window)
        return;
    m_alert =
        new KVIAlertViewController(m_window, QString(), KVLocalizedString(QStringLiteral("IDS_INSTALLER_EXIT_OR_NOT")),
                                   KVLocalizedString(QStringLiteral("IDS_INSTALLER_RESUME")),
                                   KVLocalizedString(QStringLiteral("IDS_CANCEL")), QString());
    QPointer<KVIViewController> self(this);
    KVIAlertViewController *shown = m_alert;
    // The dialog does not pause the engine: its handlers go on driving the screen meanwhile.
    m_window->beginPopupView(m_alert->view(), [self, shown](const QVariantMap &userInfo) {
        // The card is still in use by the window until this returns.
        shown->deleteLater();
        if (!self)
            return;
        if (self->m_alert == shown)
            self->m_alert = nullptr;
        if (userInfo.value(QStringLiteral("Response")).toString() == QStringLiteral("AlternateButtonClicked"))
            self->m_environment.terminateApplication();
    });
}

void KVIViewController::closeButtonDidClick()
{
    if (updateStep() > KVLaunchSequence::SectionUpdateInProgress)
        m_environment.terminateApplication();
    else
        showWarningDialog();
}

void KVIViewController::cancelButtonDidClick()
{
    showWarningDialog();
}

void KVIViewController::minimizeButtonDidClick()
{
    m_view->window()->showMinimized();
}

// ---- Links --------------------------------------------------------------------------------------

void KVIViewController::licenseAgreementDidClick()
{
    const QUrl url = vendorPage(QStringLiteral("http"), QStringLiteral("/legal-privacy/end-user-license-agreement"));
    if (!m_environment.openURL(url))
        KVLogError("Failed to open url:%@", url);
}

bool KVIViewController::textView(KVILinkTextView *, const QUrl &link, int)
{
    if (link.isEmpty())
        return false;
    KVLogInfo("clickedOnLink:%@", link);
    return m_environment.openURL(link);
}
