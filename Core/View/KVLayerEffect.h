#pragma once

#include <QColor>
#include <QGraphicsEffect>
#include <QImage>
#include <QPointF>

#include <functional>

// What a view's backing layer adds around the view's own painting: a shadow, an opacity for the
// whole view (shadow included, as one group), and decorations that reach outside the view's
// rectangle (a focus ring, an underline's overshoot). Shadows are given in layer terms: the offset
// grows upwards and the radius is the layer's shadow radius.
class KVLayerEffect : public QGraphicsEffect
{
    Q_OBJECT
public:
    // Paints in the view's own coordinates; may paint outside the view's rectangle.
    using Overlay = std::function<void(QPainter &painter)>;

    explicit KVLayerEffect(QObject *parent = nullptr);

    void setLayerOpacity(qreal opacity);
    qreal layerOpacity() const { return m_opacity; }
    void setLayerShadow(QPointF offset, qreal radius, const QColor &color, qreal opacity);
    // `extent` is the area, in the view's coordinates, that the overlay may paint into.
    void setOverlay(const QRectF &extent, Overlay overlay);

protected:
    QRectF boundingRectFor(const QRectF &rect) const override;
    void draw(QPainter *painter) override;

private:
    qreal m_opacity = 1.0;
    QPointF m_shadowOffset; // in Qt's direction
    qreal m_shadowRadius = 0.0;
    QColor m_shadowColor = Qt::transparent;
    QRectF m_overlayExtent;
    Overlay m_overlay;
};

namespace KVShadow {
// The image over a drop shadow of its own shape, as a layer shadow of that offset (in Qt's
// direction), radius and colour looks. Sizes are the image's pixels; the image keeps its size, so
// it needs transparent room for the shadow.
QImage withShadow(const QImage &image, QPointF offset, qreal radius, const QColor &color);
} // namespace KVShadow
