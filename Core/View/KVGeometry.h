#pragma once

#include <QPainterPath>
#include <QPointF>
#include <QRect>
#include <QRectF>

#include <functional>

class QWidget;

// The controls' geometry is worked out with a y axis that grows upwards from the bottom-left
// corner (of a view, or of the primary screen for screen coordinates), while Qt's grows downwards
// from the top-left. Every conversion between the two goes through these helpers.
namespace KVGeometry {

// Mirrors a point, rectangle or path inside an area of the given height. The mirror is its own
// inverse, so the same call converts in both directions.
QPointF flipped(QPointF point, qreal areaHeight);
QRectF flipped(const QRectF &rect, qreal areaHeight);
QPainterPath flipped(const QPainterPath &path, qreal areaHeight);
// A displacement (a shadow offset) only changes the sign of its vertical part.
QPointF flippedOffset(QPointF offset);

// Screen space grows upwards from the bottom-left of the primary screen.
QPointF toScreenSpace(QPointF globalPoint);
QRectF toScreenSpace(const QRectF &globalRect);
QRectF fromScreenSpace(const QRectF &screenRect);

// The part of the screen showing `window` (the primary screen without a window) that windows may
// use, in Qt's global coordinates.
QRect visibleFrame(const QWidget *window);

// Replaces where visibleFrame() gets its answer, so tests can put a control at a screen edge.
// An empty function restores the screens' own available geometry.
using VisibleFrameProvider = std::function<QRect(const QWidget *window)>;
void setVisibleFrameProvider(VisibleFrameProvider provider);

} // namespace KVGeometry
