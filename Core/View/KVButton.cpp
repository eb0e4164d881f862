#include "Core/View/KVButton.h"

#include "Core/Logging/KVLog.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVLayerEffect.h"
#include "Core/View/KVPalette.h"
#include "Core/View/KVToolTip.h"

#include <QAccessible>
#include <QApplication>
#include <QCursor>
#include <QKeyEvent>
#include <QPainter>
#include <QTimer>

namespace {

const QColor underlineColor(0, 120, 214);

// How the log names a view: its class and address, like the platform's object descriptions.
QString describe(const QObject *object)
{
    if (!object)
        return {};
    return QStringLiteral("<%1: 0x%2>")
        .arg(QString::fromLatin1(object->metaObject()->className()))
        .arg(quintptr(object), 0, 16);
}

} // namespace

KVButton::KVButton(QWidget *parent)
    : QWidget(parent)
    , m_cell(std::make_unique<KVButtonCell>())
    , m_effect(new KVLayerEffect(this))
{
    setFocusPolicy(Qt::TabFocus);
    setAttribute(Qt::WA_Hover);
    setFont(KVIFont::regular14());
    setGraphicsEffect(m_effect);
    setNeedsDisplay();
}

KVButton::~KVButton()
{
    closeToolTip();
}

void KVButton::setTitle(const QString &title)
{
    m_title = title;
    setNeedsDisplay();
    updateGeometry();
    QAccessibleEvent renamed(this, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&renamed);
}

void KVButton::setImage(const KVImage &image)
{
    m_image = image;
    update();
}

void KVButton::setCell(std::unique_ptr<KVButtonCell> cell)
{
    m_cell = std::move(cell);
    update();
}

void KVButton::setToolTip(const QString &toolTip)
{
    if (toolTip.isNull()) {
        closeToolTip();
        m_toolTipString.clear();
        return;
    }
    // A text never set is not the title, even when the title is empty.
    if (!m_toolTipString.isNull() && m_toolTipString == m_title && m_toolTipString != toolTip)
        m_toolTipString += QStringLiteral("\n%1").arg(toolTip);
    else
        m_toolTipString = toolTip;
}

void KVButton::popToolTip()
{
    const QPoint pointer = QCursor::pos();
    const bool pointerOnButton = rect().contains(mapFromGlobal(pointer));
    if (QApplication::topLevelAt(pointer) != window() || !pointerOnButton)
        return;
    if (m_hasPressed || m_toolTip || m_toolTipString.isEmpty())
        return;
    m_toolTip = KVToolTip::create(m_toolTipString);
    if (!m_toolTip)
        return;
    m_toolTip->setOffset(height() / 2.0);
    const QPointF centre = QPointF(mapTo(window(), QPoint(0, 0))) + QPointF(width() / 2.0, height() / 2.0);
    m_toolTip->displayToolTipInWindow(window(), centre);
}

void KVButton::closeToolTip()
{
    if (!m_toolTip)
        return;
    m_toolTip->closeToolTip();
    m_toolTip.reset();
}

void KVButton::setNeedsDisplay()
{
    // The plain button's title follows its image, like a check box's; the kinds centre theirs.
    m_attributedTitle = KVAttributedTitle{.text = m_title,
                                          .font = font(),
                                          .color = m_textColor,
                                          .alignment = m_image.isNull() ? Qt::AlignHCenter : Qt::AlignLeft};
    m_underlined = false;
    updateLayer();
    m_effect->setLayerOpacity(m_dimsWhenDisabled && (m_flag & Disabled) ? 0.4 : 1.0);
    // The ring and the underline's overshoot reach outside the button.
    const QMarginsF outside = KVFocusRing::margins + QMarginsF(0, 0, m_title.size(), 0);
    m_effect->setOverlay(outside, [this](QPainter &painter) { paintOutside(painter); });
    update();
}

QSize KVButton::sizeHint() const
{
    const QSizeF title = KVAttributedTitle{.text = m_title, .font = font()}.size();
    const qreal imageWidth = m_image.isNull() ? 0.0 : m_image.size().width() + KVButtonCell::imageTitleSpacing;
    return {int(std::ceil(title.width() + imageWidth)) + 36, std::max(32, int(std::ceil(m_image.size().height())))};
}

KVButton::PaintedState KVButton::paintedState() const
{
    if (m_flag & Disabled)
        return PaintedState::Disabled;
    if (m_flag & Pressed)
        return PaintedState::Pressed;
    if (m_flag & Hovered)
        return PaintedState::Hovered;
    if (m_flag & Focused)
        return PaintedState::Focused;
    if (m_flag & Active)
        return PaintedState::Active;
    return PaintedState::None;
}

void KVButton::drawContent(QPainter &painter)
{
    m_cell->drawWithFrame(painter, rect(), m_attributedTitle, m_image);
    static const char *const names[] = {"Disabled", "Pressed", "Hovered", "Focused", "Active", "Unknown Status"};
    KVLogVerbose("%@: %s", QString::fromLatin1(metaObject()->className()), names[int(paintedState())]);
}

void KVButton::setAttributedTitleWithColor(const QColor &color, bool underlined)
{
    m_attributedTitle = KVAttributedTitle{.text = m_title, .font = font(), .color = color};
    m_underlined = underlined;
}

void KVButton::setFocusRingShown(bool shown, const QColor &borderColor)
{
    m_focusRingShown = shown;
    if (shown)
        m_focusRingBorderColor = borderColor;
}

void KVButton::showKeyboardFocus()
{
    setFocusRingShown((m_flag & Focused) && !(m_flag & Pressed), KVPalette::keyboardFocus);
}

void KVButton::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF bounds = rect();
    const qreal radius = m_layer.capsule ? std::min(bounds.width(), bounds.height()) / 2 : 0.0;
    if (m_layer.fill.isValid() && m_layer.fill.alpha() > 0) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(m_layer.fill);
        painter.drawRoundedRect(bounds, radius, radius);
    }
    drawContent(painter);
    // A layer's one-point border lies inside its bounds, above its content.
    if (m_layer.border.isValid() && m_layer.border.alpha() > 0) {
        painter.setPen(QPen(m_layer.border, 1.0));
        painter.setBrush(Qt::NoBrush);
        const QRectF stroke = bounds.adjusted(0.5, 0.5, -0.5, -0.5);
        const qreal strokeRadius = std::max(0.0, radius - 0.5);
        painter.drawRoundedRect(stroke, strokeRadius, strokeRadius);
    }
}

void KVButton::paintOutside(QPainter &painter) const
{
    if (m_focusRingShown) {
        const QRectF bounds = rect();
        KVFocusRing::paint(painter, bounds, std::min(bounds.width(), bounds.height()) / 2, m_focusRingBorderColor,
                           m_focusRingColor);
    }
    if (m_underlined) {
        // One point per title character past the right edge: the overshoot is part of the look.
        painter.fillRect(QRectF(0, height() - 1, width() + m_title.size(), 1), underlineColor);
    }
}

void KVButton::mousePressEvent(QMouseEvent *event)
{
    // Only the primary button presses; the others pass through to the parent, as on every button.
    if (event->button() != Qt::LeftButton)
        return event->ignore();
    if (isEnabled()) {
        m_flag |= Pressed;
        setNeedsDisplay();
        m_hasPressed = true;
    }
    closeToolTip();
    event->accept();
}

void KVButton::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return event->ignore();
    if (isEnabled()) {
        m_flag &= ~unsigned(Pressed);
        setNeedsDisplay();
        const bool overButton = rect().contains(event->position().toPoint());
        KVLogVerbose("%s hitTestView:%@ self:%@", "-[KVButton mouseUp:]", overButton ? describe(this) : QString(),
                     describe(this));
        if (overButton) {
            m_hasPressed = true;
            performClick();
        }
    }
    closeToolTip();
    event->accept();
}

void KVButton::enterEvent(QEnterEvent *)
{
    if (isEnabled()) {
        m_flag |= Hovered;
        setNeedsDisplay();
    }
    if (!m_toolTipString.isEmpty() && !m_toolTipTimer) {
        m_toolTipTimer = new QTimer(this);
        m_toolTipTimer->setSingleShot(true);
        m_toolTipTimer->setInterval(1000);
        connect(m_toolTipTimer, &QTimer::timeout, this, &KVButton::popToolTip);
        m_toolTipTimer->start();
    }
}

void KVButton::leaveEvent(QEvent *)
{
    if (isEnabled()) {
        m_hasPressed = false;
        m_flag &= ~unsigned(Hovered);
        setNeedsDisplay();
    }
    closeToolTip();
    delete m_toolTipTimer;
    m_toolTipTimer = nullptr;
}

void KVButton::focusInEvent(QFocusEvent *event)
{
    QWidget::focusInEvent(event);
    if (!isEnabled())
        return;
    m_flag |= Focused;
    setNeedsDisplay();
}

void KVButton::focusOutEvent(QFocusEvent *event)
{
    QWidget::focusOutEvent(event);
    m_flag &= ~unsigned(Focused);
    setNeedsDisplay();
}

void KVButton::keyPressEvent(QKeyEvent *event)
{
    // The space bar and Return press the focused button, as they do every platform button.
    const bool pressKey =
        event->key() == Qt::Key_Space || event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (pressKey && (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier && isEnabled()) {
        if (!event->isAutoRepeat())
            performClick();
        return;
    }
    QWidget::keyPressEvent(event);
}

void KVButton::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::EnabledChange) {
        if (isEnabled())
            m_flag &= ~unsigned(Disabled);
        else
            m_flag |= Disabled;
        setNeedsDisplay();
    } else if (event->type() == QEvent::FontChange) {
        setNeedsDisplay();
    }
}

void KVButton::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    closeToolTip();
}

bool KVButton::event(QEvent *event)
{
    if (event->type() == QEvent::ToolTip)
        return true; // the drawn tool tip replaces Qt's
    if (event->type() == QEvent::Resize)
        setNeedsDisplay();
    return QWidget::event(event);
}

void KVButton::performClick()
{
    if (!isEnabled())
        return;
    // Queued, so that the action runs after the mouse event has been handled.
    QMetaObject::invokeMethod(
        this, [this] { Q_EMIT clicked(this); }, Qt::QueuedConnection);
}
