#include "Core/View/KVLayerEffect.h"

#include "Core/View/KVGeometry.h"

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
    const QPointF qtOffset = KVGeometry::flippedOffset(offset);
    if (qtOffset == m_shadowOffset && qFuzzyCompare(radius, m_shadowRadius) && shadow == m_shadowColor)
        return;
    m_shadowOffset = qtOffset;
    m_shadowRadius = radius;
    m_shadowColor = shadow;
    updateBoundingRect();
    update();
}

void KVLayerEffect::setOverlay(const QRectF &extent, Overlay overlay)
{
    m_overlayExtent = extent;
    m_overlay = std::move(overlay);
    updateBoundingRect();
    update();
}

QRectF KVLayerEffect::boundingRectFor(const QRectF &rect) const
{
    QRectF bounds = rect;
    if (m_shadowColor.alpha() > 0) {
        const qreal blur = blurRadiusForShadowRadius(m_shadowRadius);
        bounds |= rect.translated(m_shadowOffset).adjusted(-blur, -blur, blur, blur);
    }
    if (m_overlay)
        bounds |= m_overlayExtent;
    return bounds;
}

void KVLayerEffect::draw(QPainter *painter)
{
    QPoint offset;
    const QPixmap source = sourcePixmap(Qt::DeviceCoordinates, &offset, PadToEffectiveBoundingRect);
    if (source.isNull())
        return;
    const qreal scale = source.devicePixelRatio();
    QImage layer = source.toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    layer.setDevicePixelRatio(1.0);
    if (m_shadowColor.alpha() > 0)
        layer = KVShadow::withShadow(layer, m_shadowOffset * scale, m_shadowRadius * scale, m_shadowColor);
    if (m_overlay) {
        QPainter overlay(&layer);
        overlay.setTransform(painter->deviceTransform() * QTransform::fromTranslate(-offset.x(), -offset.y()));
        m_overlay(overlay);
    }
    layer.setDevicePixelRatio(scale);

    // Like Qt's own effects: the group is drawn in device coordinates, so it is not scaled again.
    const QTransform restore = painter->worldTransform();
    const qreal opacity = painter->opacity();
    painter->setWorldTransform(QTransform());
    painter->setOpacity(opacity * m_opacity);
    painter->drawImage(offset, layer);
    painter->setOpacity(opacity);
    painter->setWorldTransform(restore);
}

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
