#pragma once

#include <QColor>
#include <QGraphicsEffect>
#include <QImage>
#include <QMarginsF>
#include <QPointF>

#include <functional>

// What a view's backing layer adds around the view's own painting: a shadow, an opacity for the
// whole view (shadow included, as one group), and decorations that reach outside the view's
// rectangle (a focus ring, an underline's overshoot). Everything is worked out in the view's own
// coordinates, y growing downwards as the controls' layers do (a positive shadow offset falls
// below), and rendered at the screen's device pixel ratio. A repaint covers only the view and
// what the effect adds around it, wherever the view sits in its parent.
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
    // `outside` is how far around the view's rectangle the overlay may paint. Only a change of it
    // makes the parent repaint what the effect covered.
    void setOverlay(const QMarginsF &outside, Overlay overlay);

protected:
    QRectF boundingRectFor(const QRectF &rect) const override;
    void draw(QPainter *painter) override;

private:
    qreal m_opacity = 1.0;
    QPointF m_shadowOffset;
    qreal m_shadowRadius = 0.0;
    QColor m_shadowColor = Qt::transparent;
    QMarginsF m_overlayOutside;
    Overlay m_overlay;
};

// The ring that shows which control has the keyboard focus: 3 points wide, 3 points outside the
// control, its corners following the control's corner radius.
namespace KVFocusRing {
constexpr qreal outset = 3.0;
// How far the ring reaches outside the control.
constexpr QMarginsF margins{outset, outset, outset, outset};
// Paints the ring around the control (the border lies inside the ring's rectangle, as a layer's
// border does); an invalid fill leaves the inside empty.
void paint(QPainter &painter, const QRectF &controlRect, qreal controlCornerRadius, const QColor &border,
           const QColor &fill = {});
} // namespace KVFocusRing

namespace KVShadow {
// The image over a drop shadow of its own shape, as a layer shadow of that offset (in Qt's
// direction), radius and colour looks. Sizes are the image's pixels; the image keeps its size, so
// it needs transparent room for the shadow.
QImage withShadow(const QImage &image, QPointF offset, qreal radius, const QColor &color);
} // namespace KVShadow
