#pragma once

#include <QColor>

// The palette the drawn controls share, as 8-bit components.
namespace KVPalette {

inline QColor rgb(int red, int green, int blue, qreal alpha = 1.0)
{
    QColor color(red, green, blue);
    color.setAlphaF(float(alpha));
    return color;
}

inline const QColor brandBlue = rgb(0, 120, 214);
inline const QColor pressedBlue = rgb(0, 88, 156);
inline const QColor hoveredBlue = rgb(26, 153, 253);
inline const QColor textGrey = rgb(74, 74, 74);
inline const QColor disabledGrey = rgb(155, 155, 155);
// The ring around the focused control of a kind that has no focus look of its own.
inline const QColor keyboardFocus = rgb(9, 149, 238, 0.6);

} // namespace KVPalette
