#include "Core/View/KVVAlignTextFieldCell.h"

#include <QFontMetricsF>
#include <QPainter>

#include <cmath>

QRectF KVVAlignTextFieldCell::adjustedFrameToVerticallyCenterText(const QRectF &frame, const QFont &font)
{
    const QFontMetricsF metrics(font);
    const qreal line = metrics.ascent() + metrics.descent();
    const qreal inset = std::trunc(std::floor((frame.height() - line) * 0.5) - 1.0);
    return frame.adjusted(0, inset, 0, -inset);
}

void KVVAlignTextFieldCell::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const QRectF line = adjustedFrameToVerticallyCenterText(contentsRect(), font());
    const Qt::Alignment horizontal = alignment() & Qt::AlignHorizontal_Mask;
    painter.setPen(palette().color(foregroundRole()));
    painter.drawText(line, int(horizontal | Qt::AlignTop | Qt::TextSingleLine), text());
}
