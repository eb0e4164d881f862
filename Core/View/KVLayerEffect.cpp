#include "Core/View/KVLayerEffect.h"

#include <QGraphicsDropShadowEffect>
#include <QGraphicsPixmapItem>
#include <QGraphicsScene>
#include <QPainter>

namespace {

// A layer's shadow radius blurs over about twice as far as Qt's blur radius of the same number.
qreal blurRadiusForShadowRadius(qreal radius)
{
    return 2.0 * radius;
}

} // namespace

KVLayerEffect::KVLayerEffect(QObject *parent)
    : QGraphicsEffect(parent)
{}

void KVLayerEffect::setLayerOpacity(qreal opacity)
{
    if (qFuzzyCompare(m_opacity, opacity))
        return;
    m_opacity = opacity;
    update();
}

void KVLayerEffect::setLayerShadow(QPointF offset, qreal radius, const QColor &color, qreal opacity)
{
    QColor shadow = color;
    shadow.setAlphaF(float(color.alphaF() * opacity));
    if (offset == m_shadowOffset && qFuzzyCompare(radius, m_shadowRadius) && shadow == m_shadowColor)
        return;
    m_shadowOffset = offset;
    m_shadowRadius = radius;
    m_shadowColor = shadow;
    updateBoundingRect();
    update();
}

void KVLayerEffect::setOverlay(const QMarginsF &outside, Overlay overlay)
{
    const bool extentChanged = outside != m_overlayOutside || bool(overlay) != bool(m_overlay);
    m_overlayOutside = outside;
    m_overlay = std::move(overlay);
    // A new extent repaints the whole parent (Qt cannot tell what the old one covered); the same
    // extent repaints only the area the effect covers.
    if (extentChanged)
        updateBoundingRect();
    update();
}

QRectF KVLayerEffect::boundingRectFor(const QRectF &rect) const
{
    // Qt asks with the view's rectangle in its parent's coordinates as well as in the view's own,
    // so everything is added relative to `rect`.
    QRectF bounds = rect;
    if (m_shadowColor.alpha() > 0) {
        const qreal blur = blurRadiusForShadowRadius(m_shadowRadius);
        bounds |= rect.translated(m_shadowOffset).adjusted(-blur, -blur, blur, blur);
    }
    if (m_overlay)
        bounds |= rect.marginsAdded(m_overlayOutside);
    return bounds;
}

void KVLayerEffect::draw(QPainter *painter)
{
    // Logical coordinates: the view's own, whatever its place in the parent and the screen's scale.
    QPoint offset;
    const QPixmap source = sourcePixmap(Qt::LogicalCoordinates, &offset, PadToEffectiveBoundingRect);
    if (source.isNull())
        return;
    const qreal scale = source.devicePixelRatio();
    QImage layer = source.toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    layer.setDevicePixelRatio(1.0);
    if (m_shadowColor.alpha() > 0)
        layer = KVShadow::withShadow(layer, m_shadowOffset * scale, m_shadowRadius * scale, m_shadowColor);
    if (m_overlay) {
        QPainter overlay(&layer);
        overlay.scale(scale, scale);
        overlay.translate(-offset);
        m_overlay(overlay);
    }
    layer.setDevicePixelRatio(scale);

    const qreal opacity = painter->opacity();
    painter->setOpacity(opacity * m_opacity);
    painter->drawImage(offset, layer);
    painter->setOpacity(opacity);
}

namespace KVFocusRing {

void paint(QPainter &painter, const QRectF &controlRect, qreal controlCornerRadius, const QColor &border,
           const QColor &fill)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF ring = controlRect.marginsAdded(margins);
    const qreal radius = controlCornerRadius + outset;
    if (fill.isValid()) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(fill);
        painter.drawRoundedRect(ring, radius, radius);
    }
    const qreal half = outset / 2;
    painter.setPen(QPen(border, outset));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(ring.adjusted(half, half, -half, -half), radius - half, radius - half);
    painter.restore();
}

} // namespace KVFocusRing

namespace KVShadow {

QImage withShadow(const QImage &image, QPointF offset, qreal radius, const QColor &color)
{
    // Qt blurs only inside graphics effects, so the image is drawn as a one-item scene.
    QGraphicsScene scene;
    QGraphicsPixmapItem *item = scene.addPixmap(QPixmap::fromImage(image));
    auto *shadow = new QGraphicsDropShadowEffect;
    shadow->setOffset(offset);
    shadow->setBlurRadius(blurRadiusForShadowRadius(radius));
    shadow->setColor(color);
    item->setGraphicsEffect(shadow);
    const QRectF area(QPointF(0, 0), image.size());
    scene.setSceneRect(area);

    QImage result(image.size(), QImage::Format_ARGB32_Premultiplied);
    result.fill(Qt::transparent);
    QPainter painter(&result);
    scene.render(&painter, area, area);
    return result;
}

} // namespace KVShadow
