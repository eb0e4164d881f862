#include "Core/View/KVPlainButtons.h"

#include "Core/Logging/KVLog.h"
#include "Core/View/KVPalette.h"

using namespace KVPalette;

KVLinkButton::KVLinkButton(QWidget *parent)
    : KVButton(parent)
{
    setTextColor(brandBlue);
    setCursor(Qt::PointingHandCursor);
    setNeedsDisplay();
}

KVLinkButton::~KVLinkButton()
{
    KVLogVerbose("%s", "-[KVLinkButton dealloc]");
}

void KVLinkButton::updateLayer()
{
    setAttributedTitleWithColor(textColor(), flag() & Hovered);
    layer().fill = flag() & (Hovered | Active) ? QColor(Qt::transparent) : QColor();
    layer().border = Qt::transparent;
    showKeyboardFocus();
}

KVIconButton::KVIconButton(QWidget *parent)
    : KVButton(parent)
{}

KVIconButton::KVIconButton(const KVImage &defaultImage, const KVImage &hoverImage, const KVImage &pressImage,
                           QWidget *parent)
    : KVButton(parent)
    , m_defaultImage(defaultImage)
    , m_hoveredImage(hoverImage)
    , m_pressedImage(pressImage)
{
    setNeedsDisplay();
}

void KVIconButton::setDefaultImage(const KVImage &image)
{
    m_defaultImage = image;
    setNeedsDisplay();
}

void KVIconButton::setHoveredImage(const KVImage &image)
{
    m_hoveredImage = image;
    setNeedsDisplay();
}

void KVIconButton::setPressedImage(const KVImage &image)
{
    m_pressedImage = image;
    setNeedsDisplay();
}

QSize KVIconButton::sizeHint() const
{
    return m_defaultImage.size().toSize().expandedTo({16, 16});
}

void KVIconButton::updateLayer()
{
    // Disabled takes no part in the choice; with no bit set the image stays as it is.
    if (flag() & Pressed) {
        setImage(m_pressedImage);
        KVLogVerbose("Activity cell button pressed");
    } else if (flag() & Hovered) {
        setImage(m_hoveredImage);
        KVLogVerbose("Activity cell button hovered");
    } else if (flag() & Active) {
        setImage(m_defaultImage);
        KVLogVerbose("Activity cell button active");
    }
    layer().border = Qt::transparent;
    showKeyboardFocus();
}

KVMenuButton::KVMenuButton(QWidget *parent)
    : KVButton(parent)
{
    // The row keeps the base's regular 14-point font: the one it shows in every screen.
    setTextColor(textGrey);
    setDimsWhenDisabled(false);
    setNeedsDisplay();
}

KVMenuButton::~KVMenuButton()
{
    KVLogVerbose("%s", "-[KVMenuButton dealloc]");
}

KVAttributedTitle KVMenuButton::attributedTitle() const
{
    return {.text = title(), .font = font(), .color = textColor(), .alignment = Qt::AlignLeft, .truncatesTail = false};
}

void KVMenuButton::updateLayer()
{
    QColor fill;
    if (flag() & Disabled) {
        fill = Qt::transparent;
        setTextColor(disabledGrey);
    } else if (flag() & (Pressed | Hovered)) {
        fill = rgb(210, 226, 241);
        setTextColor(textGrey);
    } else if (flag() & Active) {
        fill = Qt::transparent;
        setTextColor(textGrey);
    }
    layer().fill = fill;
    layer().border = Qt::transparent;
    showKeyboardFocus();
}

void KVMenuButton::drawContent(QPainter &painter)
{
    const KVAttributedTitle title = attributedTitle();
    const qreal titleHeight = title.size().height();
    const QRectF line(12.0, height() / 2.0 - titleHeight / 2.0, width() - 12.0, titleHeight);
    cell().drawTitle(painter, title, line);
}
