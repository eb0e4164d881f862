#include "Core/View/KVGeometry.h"

#include <QGuiApplication>
#include <QScreen>
#include <QTransform>
#include <QWidget>

namespace {

KVGeometry::VisibleFrameProvider &visibleFrameProvider()
{
    static KVGeometry::VisibleFrameProvider provider;
    return provider;
}

// The height that screen space is mirrored in: the bottom edge of the primary screen.
qreal screenSpaceHeight()
{
    const QScreen *primary = QGuiApplication::primaryScreen();
    if (!primary)
        return 0.0;
    const QRect geometry = primary->geometry();
    return geometry.y() + geometry.height();
}

} // namespace

namespace KVGeometry {

QPointF flipped(QPointF point, qreal areaHeight)
{
    return {point.x(), areaHeight - point.y()};
}

QRectF flipped(const QRectF &rect, qreal areaHeight)
{
    return {rect.x(), areaHeight - rect.y() - rect.height(), rect.width(), rect.height()};
}

QPainterPath flipped(const QPainterPath &path, qreal areaHeight)
{
    return QTransform(1, 0, 0, -1, 0, areaHeight).map(path);
}

QPointF flippedOffset(QPointF offset)
{
    return {offset.x(), -offset.y()};
}

QPointF toScreenSpace(QPointF globalPoint)
{
    return flipped(globalPoint, screenSpaceHeight());
}
QRectF toScreenSpace(const QRectF &globalRect)
{
    return flipped(globalRect, screenSpaceHeight());
}
QRectF fromScreenSpace(const QRectF &screenRect)
{
    return flipped(screenRect, screenSpaceHeight());
}

QRect visibleFrame(const QWidget *window)
{
    if (visibleFrameProvider())
        return visibleFrameProvider()(window);
    const QScreen *screen = window && window->screen() ? window->screen() : QGuiApplication::primaryScreen();
    return screen ? screen->availableGeometry() : QRect();
}

void setVisibleFrameProvider(VisibleFrameProvider provider)
{
    visibleFrameProvider() = std::move(provider);
}

} // namespace KVGeometry
