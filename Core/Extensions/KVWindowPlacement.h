#pragma once

#include <QPointF>
#include <QSizeF>
#include <QStringList>
#include <optional>

// Where the installer window goes. Origins are bottom-left window corners in screen space
// (y grows upwards from the bottom of the main screen), the way launch arguments carry them.
namespace KVWindowPlacement {

// 24 points from the right edge of the screen and 24 below the menu bar. Missing sizes count as 0.
QPointF topRightOrigin(QSizeF screenSize, QSizeF windowSize, double menuBarHeight);

// The origins named by "-KVWindowOrigin x y" in the arguments, in order; each value is read as
// an integer (fractions cut off, non-numbers 0). `missingValue` is set when a flag lacks its two
// values; the scan then stops there.
struct OriginScan
{
    QList<QPointF> origins;
    bool missingValue = false;
};
OriginScan scanWindowOrigins(const QStringList &arguments);

} // namespace KVWindowPlacement
