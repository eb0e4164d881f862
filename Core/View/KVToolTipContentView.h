#pragma once

#include <QColor>
#include <QPainterPath>
#include <QWidget>

// Where a tool-tip balloon lies relative to the point it points at, and where its arrow sits.
// Values other than these (0, 2, 4 to 7) mean a balloon without an arrow.
enum class KVToolTipPosition : unsigned {
    None = 0,
    Below = 1,              // arrow centred on the top edge
    Above = 3,              // arrow centred on the bottom edge
    AboveShiftedLeft = 8,   // arrow on the bottom edge, right of centre
    AboveShiftedRight = 9,  // arrow on the bottom edge, left of centre
    BelowShiftedLeft = 10,  // arrow on the top edge, right of centre
    BelowShiftedRight = 11, // arrow on the top edge, left of centre
};

bool hasTopArrow(KVToolTipPosition position);
bool hasBottomArrow(KVToolTipPosition position);
inline bool hasArrow(KVToolTipPosition position)
{
    return hasTopArrow(position) || hasBottomArrow(position);
}

// The frame of a tool-tip window: a rounded light-grey balloon with a triangular arrow and a soft
// shadow, around the content. Its geometry (content and frame rectangles, anchor point, balloon
// path) is worked out with y growing upwards from the view's bottom-left corner.
class KVToolTipContentView : public QWidget
{
    Q_OBJECT
public:
    explicit KVToolTipContentView(QWidget *parent = nullptr);

    KVToolTipPosition toolTipPosition() const { return m_toolTipPosition; }
    void setToolTipPosition(KVToolTipPosition position) { m_toolTipPosition = position; }
    qreal arrowWidth() const { return m_arrowWidth; }
    void setArrowWidth(qreal width) { m_arrowWidth = width; }
    qreal arrowHeight() const { return m_arrowHeight; }
    void setArrowHeight(qreal height) { m_arrowHeight = height; }
    qreal viewMargin() const { return m_viewMargin; }
    void setViewMargin(qreal margin) { m_viewMargin = margin; }
    QColor backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(const QColor &color) { m_backgroundColor = color; }
    qreal cornerRadius() const { return m_cornerRadius; }
    void setCornerRadius(qreal radius) { m_cornerRadius = radius; }
    // How far right of the balloon's centre the arrow sits (negative: left).
    qreal arrowOffset() const { return m_arrowOffset; }
    void setArrowOffset(qreal offset) { m_arrowOffset = offset; }
    qreal borderWidth() const { return m_borderWidth; }
    void setBorderWidth(qreal width) { m_borderWidth = width; }
    QColor borderColor() const { return m_borderColor; }
    void setBorderColor(const QColor &color) { m_borderColor = color; }

    QRectF contentRectForFrameRect(const QRectF &frameRect) const;
    QRectF frameRectForContentRect(const QRectF &contentRect) const;
    // Where the arrow's tip is for a frame of that rectangle.
    QPointF anchorPointForRect(const QRectF &rect) const;
    QPointF anchorPoint() const;

    // Builds the balloon's outline around the content rectangle, strokes the border if there is
    // one, and fills it over a shadow.
    QPainterPath ToolTipFramePathForContentRect(QPainter &painter, const QRectF &contentRect) const;
    // Adds the arrow at the path's current point, on the edge the position chooses.
    void appendArrowToPath(QPainterPath &path) const;

    // The view's bounds with y growing upwards.
    QRectF bounds() const { return QRectF(0, 0, width(), height()); }

protected:
    void paintEvent(QPaintEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    QPainterPath balloonPath(const QRectF &contentRect) const;

    KVToolTipPosition m_toolTipPosition = KVToolTipPosition::Below;
    qreal m_arrowWidth = 12.0;
    qreal m_arrowHeight = 6.0;
    qreal m_viewMargin = 6.0;
    QColor m_backgroundColor{224, 223, 223};
    qreal m_cornerRadius = 4.0;
    qreal m_arrowOffset = 0.0;
    qreal m_borderWidth = 0.0;
    QColor m_borderColor = Qt::transparent;
};
