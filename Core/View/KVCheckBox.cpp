#include "Core/View/KVCheckBox.h"

#include "Core/View/KVIFont.h"
#include "Core/View/KVLayerEffect.h"
#include "Core/View/KVPalette.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

KVCheckBox::KVCheckBox(QWidget *parent)
    : QWidget(parent)
    , m_cell(std::make_unique<KVButtonCell>())
    , m_effect(new KVLayerEffect(this))
{
    setFocusPolicy(Qt::TabFocus);
    setFont(KVIFont::regular14());
    setGraphicsEffect(m_effect);
    m_effect->setOverlay(KVFocusRing::margins, [this](QPainter &painter) { paintFocusRing(painter); });
}

void KVCheckBox::setChecked(bool checked)
{
    m_checked = checked;
    Q_EMIT checkedChanged(checked);
    QAccessible::State changed;
    changed.checked = true;
    QAccessibleStateChangeEvent event(this, changed);
    QAccessible::updateAccessibility(&event);
    update();
}

void KVCheckBox::setTitle(const QString &title)
{
    m_title = title;
    updateGeometry();
    update();
}

void KVCheckBox::setCell(std::unique_ptr<KVButtonCell> cell)
{
    m_cell = std::move(cell);
    update();
}

void KVCheckBox::onHit()
{
    setChecked(!m_checked);
}

QSize KVCheckBox::sizeHint() const
{
    const QSizeF image = currentImage().size();
    const QSizeF title = attributedTitle().size();
    const qreal spacing = m_title.isEmpty() ? 0.0 : KVButtonCell::imageTitleSpacing;
    return QSizeF(image.width() + spacing + title.width(), std::max(image.height(), title.height()))
        .toSize()
        .expandedTo({1, 1});
}

void KVCheckBox::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    m_cell->drawWithFrame(painter, rect(), attributedTitle(), currentImage());
}

void KVCheckBox::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return event->ignore();
    m_pressed = true;
    event->accept();
}

void KVCheckBox::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return event->ignore();
    m_pressed = false;
    // Like any platform button, the click counts only when released inside.
    if (rect().contains(event->position().toPoint()))
        performClick();
    event->accept();
}

void KVCheckBox::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Space && event->modifiers() == Qt::NoModifier) {
        if (!event->isAutoRepeat())
            performClick();
    } else {
        QWidget::keyPressEvent(event);
    }
}

void KVCheckBox::focusInEvent(QFocusEvent *event)
{
    QWidget::focusInEvent(event);
    update();
}

void KVCheckBox::focusOutEvent(QFocusEvent *event)
{
    QWidget::focusOutEvent(event);
    update();
}

void KVCheckBox::paintFocusRing(QPainter &painter) const
{
    if (!hasFocus())
        return;
    const QRectF image = m_cell->imageRectForBounds(rect(), attributedTitle(), currentImage());
    KVFocusRing::paint(painter, image.isEmpty() ? QRectF(rect()) : image, 2.0, KVPalette::keyboardFocus);
}

void KVCheckBox::performClick()
{
    Q_EMIT clicked();
    if (m_togglesItself)
        onHit();
}

KVAttributedTitle KVCheckBox::attributedTitle() const
{
    return {.text = m_title,
            .font = font(),
            .color = palette().color(QPalette::WindowText),
            .alignment = Qt::AlignLeft,
            .truncatesTail = true};
}

KVImage KVCheckBox::currentImage() const
{
    return KVImage::named(m_checked ? m_checkedImage : m_unCheckedImage);
}
