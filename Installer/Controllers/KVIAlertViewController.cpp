#include "Installer/Controllers/KVIAlertViewController.h"

#include "Core/Logging/KVLog.h"
#include "Core/View/KVButtonCell.h"
#include "Core/View/KVFlatButtons.h"
#include "Core/View/KVGeometry.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVTextView.h"
#include "Installer/KVIWindow.h"

#include <QEvent>
#include <QFontMetricsF>
#include <QKeyEvent>
#include <QLabel>

namespace {
const QString kClassName = QStringLiteral("KVIAlertViewController");
constexpr int kCardWidth = 360;
const QColor kTextGrey(74, 74, 74);

double defaultLineHeight(const QFont &font)
{
    return QFontMetricsF(font).lineSpacing();
}
double titleWidth(const QString &title, const QFont &font)
{
    return QFontMetricsF(font).horizontalAdvance(title);
}
} // namespace

KVIAlertViewController::KVIAlertViewController(KVIWindow *window, const QString &messageText,
                                               const QString &informativeText, const QString &defaultButtonTitle,
                                               const QString &alternateButtonTitle,
                                               const QString &additionalCheckboxTitle)
    : m_window(window)
    , m_messageText(messageText)
    , m_informativeText(informativeText)
    , m_defaultButtonText(defaultButtonTitle)
    , m_alternateButtonText(alternateButtonTitle)
    , m_additionalCheckboxText(additionalCheckboxTitle)
    , m_view(new QWidget)
    , m_messageTextField(new QLabel(m_view))
    , m_informativeTextView(new KVTextView(m_view))
    , m_defaultButton(new KVPrimary4DialogButton(m_view))
    , m_alternateButton(new KVSecondary4DialogButton(m_view))
    , m_additionalCheckbox(new KVButton(m_view))
{
    m_view->setAttribute(Qt::WA_StyledBackground);
    m_view->setObjectName(QStringLiteral("KVIAlertCard"));
    m_view->setStyleSheet(QStringLiteral("#KVIAlertCard { background: white; border-radius: 8px; }"));
    m_view->installEventFilter(this);

    // The elements' heights before layout, as the card's interface gives them.
    const double messageHeight = defaultLineHeight(KVIFont::medium15()) + 5;
    const double checkboxHeight = defaultLineHeight(KVIFont::regular14()) + 5;

    if (!m_messageText.isNull()) {
        m_messageTextField->setFont(KVIFont::medium15());
        m_messageTextField->setText(m_messageText);
        QPalette palette = m_messageTextField->palette();
        palette.setColor(QPalette::WindowText, kTextGrey);
        m_messageTextField->setPalette(palette);
    }
    m_messageTextField->setVisible(!m_messageText.isNull());

    const KVTextAttributes bodyAttributes{
        .font = KVIFont::regular14(), .foregroundColor = kTextGrey, .lineSpacing = 6, .wordWrap = true};
    m_informativeTextView->setAttributes(bodyAttributes);
    m_informativeTextHeight =
        KVTextMeasure::heightWithString(m_informativeText, bodyAttributes, double(kCardWidth - 60));
    m_informativeTextView->setString(m_informativeText);

    if (!m_additionalCheckboxText.isNull())
        m_additionalCheckbox->setFont(KVIFont::regular14());
    m_additionalCheckbox->setCell(std::make_unique<KVIAdditinalCheckboxButtonCell>());
    m_additionalCheckbox->setImage(KVImage::named(QStringLiteral("CheckboxUnchecked")));
    m_additionalCheckbox->setVisible(!m_additionalCheckboxText.isNull());

    const double buttonHeight = defaultLineHeight(KVIFont::medium14()) + 2;
    for (KVButton *button : {m_defaultButton, m_alternateButton}) {
        button->setFont(KVIFont::medium14());
        button->resize(button->width(), qRound(buttonHeight));
    }

    double cardHeight = m_informativeTextHeight + buttonHeight + 60 + 15;
    if (!m_additionalCheckboxText.isNull())
        cardHeight += checkboxHeight + 15;
    if (!m_messageText.isNull())
        cardHeight += messageHeight + 15;
    m_view->resize(kCardWidth, qRound(cardHeight));

    m_defaultButton->setTitle(m_defaultButtonText.isNull() ? QStringLiteral("OK") : m_defaultButtonText);
    m_alternateButton->setTitle(m_alternateButtonText);
    m_alternateButton->setVisible(!m_alternateButtonText.isNull());

    // The keyboard: the default button takes the focus, Tab goes in reading order (the check box, then
    // the buttons from left to right), Return and Escape choose the default answer, which in every
    // dialog of the installer is the one that changes nothing.
    m_view->setFocusProxy(m_defaultButton);
    QWidget::setTabOrder(m_additionalCheckbox, m_alternateButton);
    QWidget::setTabOrder(m_alternateButton, m_defaultButton);
    for (QWidget *control : {m_defaultButton, m_alternateButton, m_additionalCheckbox})
        control->installEventFilter(this);
    m_view->setAccessibleName(m_messageText.isNull() ? m_informativeText : m_messageText);

    connect(m_defaultButton, &KVButton::clicked, this, &KVIAlertViewController::defaultButtonDidClick);
    connect(m_alternateButton, &KVButton::clicked, this, &KVIAlertViewController::alternateButtonDidClick);
    connect(m_additionalCheckbox, &KVButton::clicked, this, &KVIAlertViewController::additionalCheckboxDidClick);
    layoutView();
}

KVIAlertViewController::~KVIAlertViewController()
{
    KVLogVerbose("%s", __func__);
    delete m_view;
}

bool KVIAlertViewController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_view && event->type() == QEvent::Show)
        layoutView();
    if (event->type() == QEvent::ShortcutOverride || event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter || key == Qt::Key_Escape) {
            // Claimed before any shortcut of the window below (its Escape opens dialogs).
            event->accept();
            if (event->type() == QEvent::KeyPress)
                m_defaultButton->performClick();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

void KVIAlertViewController::setFrame(QWidget *widget, const QRectF &bottomLeftFrame) const
{
    // The smallest whole-pixel frame that holds the fractional one, so that no title is clipped.
    widget->setGeometry(KVGeometry::flipped(bottomLeftFrame, m_view->height()).toAlignedRect());
}

void KVIAlertViewController::layoutView()
{
    const double W = m_view->width();
    const double H = m_view->height();

    double top = H;
    if (!m_messageText.isNull()) {
        const double h = defaultLineHeight(m_messageTextField->font()) + 5;
        const QRectF frame(28, H - h - 15, W - 42, h);
        setFrame(m_messageTextField, frame);
        top = frame.y();
    }
    const QRectF body(30, top - m_informativeTextHeight - 30, W - 60, m_informativeTextHeight);
    setFrame(m_informativeTextView, body);

    // Measured from the stored text: a null default text measures as zero width, though it reads "OK".
    const double defaultWidth = titleWidth(m_defaultButtonText, m_defaultButton->font()) + 4;
    const QRectF defaultFrame(W - defaultWidth - 30, 30, defaultWidth, m_defaultButton->height());
    setFrame(m_defaultButton, defaultFrame);
    if (!m_alternateButtonText.isNull()) {
        const double w = titleWidth(m_alternateButtonText, m_alternateButton->font()) + 4;
        setFrame(m_alternateButton, QRectF(defaultFrame.x() - w - 30, 30, w, m_alternateButton->height()));
    }
    if (!m_additionalCheckboxText.isNull()) {
        const QString paddedTitle = QStringLiteral("   ") + m_additionalCheckboxText;
        m_additionalCheckbox->setTitle(paddedTitle);
        const double h = defaultLineHeight(m_additionalCheckbox->font()) + 5;
        // The box's image stands beside the title here rather than over its leading blanks, so its
        // width comes on top of the title's.
        const double w = titleWidth(paddedTitle, m_additionalCheckbox->font()) + 20 +
                         m_additionalCheckbox->image().size().width() + KVButtonCell::imageTitleSpacing;
        setFrame(m_additionalCheckbox, QRectF(30, body.y() - h - 15, w, h));
    }
}

void KVIAlertViewController::endPopup(const QString &response)
{
    if (m_window)
        m_window->endPopupView(m_view, {{QStringLiteral("Response"), response}});
}

void KVIAlertViewController::defaultButtonDidClick()
{
    KVLogInfo("%@ default button did click", kClassName);
    endPopup(QStringLiteral("DefaultButtonClicked"));
}

void KVIAlertViewController::alternateButtonDidClick()
{
    KVLogInfo("%@ alternate button did click", kClassName);
    endPopup(QStringLiteral("AlternateButtonClicked"));
}

void KVIAlertViewController::additionalCheckboxDidClick()
{
    m_additionalCheckboxChecked = !m_additionalCheckboxChecked;
    m_additionalCheckbox->setImage(KVImage::named(m_additionalCheckboxChecked ? QStringLiteral("CheckboxChecked")
                                                                              : QStringLiteral("CheckboxUnchecked")));
}
