#pragma once

#include <QColor>
#include <QList>
#include <QPointF>
#include <QSizeF>
#include <QWidget>

class QVariantAnimation;

// The installer's progress bar. Determinate: a rounded grey track and a rounded bar whose width is
// the value's share of the track (not clamped: a value above 1 overshoots), filled with a
// left-to-right gradient. Indeterminate: a 100-point gradient band sweeps from left of the track
// to its right edge, pass after pass, while animating and visible; stopped, it turns grey and rests
// 40 points in from the left.
class KVProgressIndicator : public QWidget
{
    Q_OBJECT
public:
    explicit KVProgressIndicator(QWidget *parent = nullptr);
    ~KVProgressIndicator() override;

    // The value is a fraction: the range is fixed at 0 to 1.
    static constexpr double minValue = 0.0;
    static constexpr double maxValue = 1.0;
    double doubleValue() const { return m_value; }
    void setDoubleValue(double value);

    bool isIndeterminate() const { return m_indeterminate; }
    void setIndeterminate(bool indeterminate);
    void startAnimation();
    void stopAnimation();
    bool isPaused() const { return m_paused; }

    // Colours take effect at the next repaint or start.
    QColor backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(const QColor &color) { m_backgroundColor = color; }
    // A single bar colour, used when progressColors is empty.
    QColor progressColor() const { return m_progressColor; }
    void setProgressColor(const QColor &color) { m_progressColor = color; }
    QList<QColor> progressColors() const { return m_progressColors; }
    void setProgressColors(const QList<QColor> &colors) { m_progressColors = colors; }

    // The determinate bar in the view's coordinates; empty at a value of 0 or less.
    QRectF barRect() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void initializeAnimationLayer();
    void refreshAnimationLayer();
    void animationDidStop(bool finished);
    void removeAnimation();
    // Where a pass starts and ends: from left of the track (the band's width) to its right edge.
    QPointF currentPoint() const { return {-100.0, 0.0}; }
    QPointF originPoint() const { return {0.0, 0.0}; }
    QPointF endPoint() const { return {double(width()), 0.0}; }
    QList<QColor> barColors() const;

    double m_value = 0.0;
    bool m_indeterminate = false;
    bool m_paused = false;
    QColor m_backgroundColor{232, 231, 231};
    QColor m_progressColor;
    QList<QColor> m_progressColors;

    // The sweep band, worked out with y growing upwards from the bottom-left corner.
    bool m_hasBand = false;
    QSizeF m_bandSize;
    QPointF m_bandPosition;
    QList<QColor> m_bandColors;
    QVariantAnimation *m_animation = nullptr;
};
