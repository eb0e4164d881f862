#include "Core/View/KVProgressIndicator.h"

#include "Core/Logging/KVLog.h"
#include "Core/View/KVGeometry.h"
#include "Core/View/KVPalette.h"

#include <QAccessible>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QVariantAnimation>

#include <cmath>

namespace {

constexpr qreal cornerRadius = 3.0;
constexpr qreal bandWidth = 100.0;
const QPointF stopPoint(40.0, 0.0);

QLinearGradient horizontalGradient(const QRectF &rect, const QList<QColor> &colors)
{
    QLinearGradient gradient(rect.topLeft(), rect.topRight());
    if (colors.size() == 1) {
        gradient.setColorAt(0, colors.first());
        gradient.setColorAt(1, colors.first());
        return gradient;
    }
    for (qsizetype i = 0; i < colors.size(); ++i)
        gradient.setColorAt(qreal(i) / qreal(colors.size() - 1), colors[i]);
    return gradient;
}

} // namespace

KVProgressIndicator::KVProgressIndicator(QWidget *parent)
    : QWidget(parent)
{}

KVProgressIndicator::~KVProgressIndicator()
{
    KVLogInfo("%s", "-[KVProgressIndicator dealloc]");
    removeAnimation();
}

void KVProgressIndicator::setDoubleValue(double value)
{
    m_value = value;
    QAccessibleValueChangeEvent changed(this, value);
    QAccessible::updateAccessibility(&changed);
    update();
}

void KVProgressIndicator::setIndeterminate(bool indeterminate)
{
    m_indeterminate = indeterminate;
    if (indeterminate) {
        m_value = minValue;
        initializeAnimationLayer();
    } else if (m_hasBand) {
        removeAnimation();
        m_hasBand = false;
    }
    update();
}

void KVProgressIndicator::startAnimation()
{
    m_paused = false;
    if (!m_indeterminate)
        return;
    refreshAnimationLayer();
    // A track no wider than the band has no sweep: the formula gives no positive duration.
    const QPointF current = currentPoint(), origin = originPoint(), end = endPoint();
    const double seconds = 2.0 * (end.x() - current.x()) / (end.x() - origin.x() - bandWidth);
    if (!std::isfinite(seconds) || seconds <= 0.0)
        return;
    if (!m_animation) {
        m_animation = new QVariantAnimation(this);
        connect(m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant &position) {
            m_bandPosition = position.toPointF();
            update();
        });
        connect(m_animation, &QVariantAnimation::finished, this, [this] { animationDidStop(true); });
    }
    m_animation->stop();
    m_animation->setStartValue(current);
    m_animation->setEndValue(end);
    m_animation->setDuration(int(std::lround(seconds * 1000.0)));
    m_bandPosition = current;
    // The sweep runs only while it can be seen; showEvent starts a pass that is waiting.
    if (isVisible())
        m_animation->start();
    update();
}

void KVProgressIndicator::stopAnimation()
{
    m_paused = true;
    if (!m_indeterminate)
        return;
    refreshAnimationLayer();
    removeAnimation();
    m_bandPosition = stopPoint;
    update();
}

void KVProgressIndicator::animationDidStop(bool finished)
{
    if (finished && !m_paused)
        startAnimation();
}

void KVProgressIndicator::removeAnimation()
{
    if (!m_animation)
        return;
    m_animation->disconnect(this);
    m_animation->stop();
    delete m_animation;
    m_animation = nullptr;
}

void KVProgressIndicator::initializeAnimationLayer()
{
    if (rect().isEmpty() || m_hasBand)
        return;
    m_hasBand = true;
    m_bandSize = QSizeF(bandWidth, height());
    m_bandPosition = currentPoint();
    refreshAnimationLayer();
}

void KVProgressIndicator::refreshAnimationLayer()
{
    if (!m_progressColors.isEmpty())
        m_bandColors = m_progressColors;
    else if (m_progressColor.isValid())
        m_bandColors = {m_progressColor};
    else if (m_paused)
        m_bandColors = {KVPalette::rgb(109, 109, 109), KVPalette::disabledGrey};
    else
        m_bandColors = {KVPalette::brandBlue, KVPalette::rgb(60, 151, 239)};
}

QList<QColor> KVProgressIndicator::barColors() const
{
    if (!m_progressColors.isEmpty())
        return m_progressColors;
    if (m_progressColor.isValid())
        return {m_progressColor};
    return {KVPalette::brandBlue, KVPalette::rgb(60, 151, 239)};
}

QRectF KVProgressIndicator::barRect() const
{
    if (m_value <= 0.0)
        return {};
    return {0.0, 0.0, double(float(m_value * width())), double(height())};
}

void KVProgressIndicator::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath track;
    track.addRoundedRect(rect(), cornerRadius, cornerRadius);
    painter.fillPath(track, m_backgroundColor);

    const QRectF bar = barRect();
    if (!bar.isEmpty()) {
        QPainterPath barPath;
        barPath.addRoundedRect(bar, cornerRadius, cornerRadius);
        painter.fillPath(barPath, horizontalGradient(bar, barColors()));
    }
    if (m_hasBand) {
        // The band slides inside the rounded track.
        painter.setClipPath(track);
        const QRectF band = KVGeometry::flipped(QRectF(m_bandPosition, m_bandSize), height());
        QPainterPath bandPath;
        bandPath.addRoundedRect(band, cornerRadius, cornerRadius);
        painter.fillPath(bandPath, horizontalGradient(band, m_bandColors));
    }
}

void KVProgressIndicator::resizeEvent(QResizeEvent *)
{
    if (m_indeterminate) {
        m_value = minValue;
        initializeAnimationLayer();
    }
}

void KVProgressIndicator::showEvent(QShowEvent *)
{
    if (!m_animation)
        return;
    if (m_animation->state() == QAbstractAnimation::Paused)
        m_animation->resume();
    else if (m_animation->state() == QAbstractAnimation::Stopped)
        m_animation->start();
}

void KVProgressIndicator::hideEvent(QHideEvent *)
{
    if (m_animation && m_animation->state() == QAbstractAnimation::Running)
        m_animation->pause();
}
