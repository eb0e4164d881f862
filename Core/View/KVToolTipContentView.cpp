#include "Core/View/KVToolTipContentView.h"

#include "Core/View/KVGeometry.h"
#include "Core/View/KVLayerEffect.h"

#include <QPaintEvent>
#include <QPainter>

bool hasTopArrow(KVToolTipPosition position)
{
    return position == KVToolTipPosition::Below || position == KVToolTipPosition::BelowShiftedLeft ||
           position == KVToolTipPosition::BelowShiftedRight;
}

bool hasBottomArrow(KVToolTipPosition position)
{
    return position == KVToolTipPosition::Above || position == KVToolTipPosition::AboveShiftedLeft ||
           position == KVToolTipPosition::AboveShiftedRight;
}

namespace {

// A quarter circle from the path's current point, through the corner, to `to`: both points lie
// one radius from the corner along its two edges.
void appendCornerArc(QPainterPath &path, QPointF corner, QPointF to)
{
    // Control points of the usual cubic approximation of a quarter circle.
    constexpr qreal kappa = 0.5522847498;
    const QPointF from = path.currentPosition();
    path.cubicTo(from + (corner - from) * kappa, to + (corner - to) * kappa, to);
}

} // namespace

KVToolTipContentView::KVToolTipContentView(QWidget *parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_TranslucentBackground);
}

QRectF KVToolTipContentView::contentRectForFrameRect(const QRectF &frameRect) const
{
    QRectF rect = frameRect.adjusted(m_borderWidth, m_borderWidth, -m_borderWidth, -m_borderWidth);
    if (hasTopArrow(m_toolTipPosition)) {
        rect.setHeight(rect.height() - m_arrowHeight);
    } else if (hasBottomArrow(m_toolTipPosition)) {
        rect.setHeight(rect.height() - m_arrowHeight);
        rect.translate(0, m_arrowHeight);
    }
    return rect.adjusted(m_viewMargin, m_viewMargin, -m_viewMargin, -m_viewMargin);
}

QRectF KVToolTipContentView::frameRectForContentRect(const QRectF &contentRect) const
{
    QRectF rect = contentRect.adjusted(-m_viewMargin, -m_viewMargin, m_viewMargin, m_viewMargin);
    if (hasArrow(m_toolTipPosition))
        rect.setHeight(rect.height() + m_arrowHeight);
    // Raised, like the content rectangle, rather than lowered: callers always reset the origin.
    if (hasBottomArrow(m_toolTipPosition))
        rect.translate(0, m_arrowHeight);
    return rect.adjusted(-m_borderWidth, -m_borderWidth, m_borderWidth, m_borderWidth);
}

QPointF KVToolTipContentView::anchorPointForRect(const QRectF &rect) const
{
    const QRectF content = contentRectForFrameRect(rect);
    qreal bodyHeight = content.height();
    qreal bodyBottom = content.y();
    if (hasTopArrow(m_toolTipPosition)) {
        bodyHeight = content.height() + m_arrowHeight;
    } else if (hasBottomArrow(m_toolTipPosition)) {
        bodyHeight = content.height() + m_arrowHeight;
        bodyBottom = content.y() - m_arrowHeight;
    }
    const qreal top = bodyBottom + bodyHeight;
    const qreal midX = content.x() + content.width() / 2;
    const qreal arrowX = midX + m_arrowOffset;
    const qreal leftLimit = content.x() + m_cornerRadius + m_borderWidth;
    const qreal rightLimit = content.x() + content.width() - m_cornerRadius - m_borderWidth;
    qreal shiftedX = arrowX;
    switch (m_toolTipPosition) {
    case KVToolTipPosition::Below:
        return {midX, top};
    case KVToolTipPosition::Above:
        return {midX, bodyBottom};
    case KVToolTipPosition::BelowShiftedLeft:
    case KVToolTipPosition::AboveShiftedLeft:
        if (arrowX == rightLimit)
            shiftedX = rightLimit - m_arrowWidth / 2;
        break;
    case KVToolTipPosition::BelowShiftedRight:
    case KVToolTipPosition::AboveShiftedRight:
        if (arrowX == leftLimit)
            shiftedX = leftLimit + m_arrowWidth / 2;
        break;
    default:
        return {0, 0};
    }
    return {shiftedX, hasTopArrow(m_toolTipPosition) ? top : bodyBottom};
}

QPointF KVToolTipContentView::anchorPoint() const
{
    return anchorPointForRect(bounds());
}

QPainterPath KVToolTipContentView::balloonPath(const QRectF &c) const
{
    const qreal x = c.x(), y = c.y(), maxX = c.x() + c.width(), maxY = c.y() + c.height();
    const qreal radius = m_cornerRadius;
    const qreal left = x + radius;
    const qreal right = maxX - radius;
    const qreal arrowX = x + c.width() / 2 + m_arrowOffset;

    QPainterPath path;
    path.moveTo(left, maxY);
    if (hasTopArrow(m_toolTipPosition)) {
        if (right <= arrowX)
            path.lineTo(right - m_arrowWidth, maxY);
        else if (left < arrowX)
            path.lineTo(arrowX - m_arrowWidth / 2, maxY);
        else
            path.lineTo(left, maxY);
        appendArrowToPath(path);
    }
    path.lineTo(right, maxY);
    appendCornerArc(path, {maxX, maxY}, {maxX, maxY - radius});
    path.lineTo(maxX, y + radius);
    appendCornerArc(path, {maxX, y}, {maxX - radius, y});
    if (hasBottomArrow(m_toolTipPosition)) {
        if (arrowX <= left)
            path.lineTo(left + m_arrowWidth, y);
        else if (arrowX < right)
            path.lineTo(arrowX + m_arrowWidth / 2, y);
        else
            path.lineTo(right, y);
        appendArrowToPath(path);
    }
    path.lineTo(left, y);
    appendCornerArc(path, {x, y}, {x, y + radius});
    path.lineTo(x, maxY - radius);
    appendCornerArc(path, {x, maxY}, {left, maxY});
    path.closeSubpath();
    return path;
}

void KVToolTipContentView::appendArrowToPath(QPainterPath &path) const
{
    const QPointF start = path.currentPosition();
    if (hasTopArrow(m_toolTipPosition)) {
        path.lineTo(start.x() + m_arrowWidth / 2, start.y() + m_arrowHeight);
        path.lineTo(start.x() + m_arrowWidth, start.y());
    } else if (hasBottomArrow(m_toolTipPosition)) {
        path.lineTo(start.x() - m_arrowWidth / 2, start.y() - m_arrowHeight);
        path.lineTo(start.x() - m_arrowWidth, start.y());
    } else {
        path.lineTo(start);
        path.lineTo(start);
    }
}

QPainterPath KVToolTipContentView::ToolTipFramePathForContentRect(QPainter &painter, const QRectF &contentRect) const
{
    const QPainterPath path = balloonPath(contentRect);
    const QPainterPath onScreen = KVGeometry::flipped(path, height());
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    if (m_borderWidth != 0.0) {
        // Stroked before the fill, so the fill covers the border's inner half.
        QPen pen(m_borderColor, m_borderWidth);
        pen.setJoinStyle(Qt::RoundJoin);
        painter.strokePath(onScreen, pen);
    }
    // The fill casts the shadow; it is drawn at the device's pixel density to stay sharp.
    const qreal scale = devicePixelRatioF();
    QImage fill((QSizeF(size()) * scale).toSize(), QImage::Format_ARGB32_Premultiplied);
    fill.fill(Qt::transparent);
    {
        QPainter fillPainter(&fill);
        fillPainter.setRenderHint(QPainter::Antialiasing);
        fillPainter.scale(scale, scale);
        fillPainter.fillPath(onScreen, m_backgroundColor);
    }
    QImage balloon =
        KVShadow::withShadow(fill, KVGeometry::flippedOffset({0.0, -2.0}) * scale, 4.0 * scale, QColor(197, 194, 194));
    balloon.setDevicePixelRatio(scale);
    painter.drawImage(QPointF(0, 0), balloon);
    painter.restore();
    return path;
}

void KVToolTipContentView::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    painter.setClipRegion(event->region());
    ToolTipFramePathForContentRect(painter, contentRectForFrameRect(bounds()));
}

void KVToolTipContentView::leaveEvent(QEvent *)
{
    // A pointer that entered the balloon and leaves it dismisses it.
    if (window()->isVisible())
        window()->close();
}
