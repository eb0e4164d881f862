#include "Core/View/KVButtonCell.h"

#include <QFontMetricsF>
#include <QPainter>

QSizeF KVAttributedTitle::size() const
{
    const QFontMetricsF metrics(font);
    return {metrics.horizontalAdvance(text), metrics.height()};
}

QRectF KVButtonCell::imageRectForBounds(const QRectF &bounds, const KVAttributedTitle &title,
                                        const KVImage &image) const
{
    if (image.isNull())
        return {};
    // Artwork keeps its own size unless the button is too small for it.
    QSizeF size = image.size();
    if (size.width() > bounds.width() || size.height() > bounds.height())
        size.scale(bounds.size(), Qt::KeepAspectRatio);
    const qreal x = title.text.isEmpty() ? bounds.center().x() - size.width() / 2 : bounds.x();
    return {QPointF(x, bounds.center().y() - size.height() / 2), size};
}

QRectF KVButtonCell::titleRectForBounds(const QRectF &bounds, const KVAttributedTitle &title,
                                        const KVImage &image) const
{
    const QRectF imageRect = imageRectForBounds(bounds, title, image);
    if (imageRect.isNull())
        return bounds;
    const qreal left = imageRect.right() + imageTitleSpacing;
    return {left, bounds.y(), bounds.right() - left, bounds.height()};
}

void KVButtonCell::drawWithFrame(QPainter &painter, const QRectF &frame, const KVAttributedTitle &title,
                                 const KVImage &image) const
{
    image.draw(painter, imageRectForBounds(frame, title, image));
    drawTitle(painter, title, titleRectForBounds(frame, title, image));
}

void KVButtonCell::drawTitle(QPainter &painter, const KVAttributedTitle &title, const QRectF &rect) const
{
    if (title.text.isEmpty())
        return;
    const QFontMetricsF metrics(title.font);
    const QString text =
        title.truncatesTail ? metrics.elidedText(title.text, Qt::ElideRight, rect.width()) : title.text;
    painter.save();
    painter.setFont(title.font);
    painter.setPen(title.color);
    painter.drawText(rect, int(title.alignment | Qt::AlignVCenter | Qt::TextSingleLine), text);
    painter.restore();
}

QRectF KVPrimaryButtonCell::titleRectForBounds(const QRectF &bounds, const KVAttributedTitle &title,
                                               const KVImage &) const
{
    // The bounds' origin is deliberately not added: the cell always draws in its button's bounds.
    const qreal height = title.size().height();
    return {18.0, (bounds.height() - height) / 2 - 1.0, bounds.width() - 36.0, height};
}

void KVPrimaryButtonCell::drawWithFrame(QPainter &painter, const QRectF &frame, const KVAttributedTitle &title,
                                        const KVImage &image) const
{
    drawTitle(painter, title, titleRectForBounds(frame, title, image));
}

QRectF KVIAdditinalCheckboxButtonCell::titleRectForBounds(const QRectF &bounds, const KVAttributedTitle &title,
                                                          const KVImage &image) const
{
    QRectF rect = KVButtonCell::titleRectForBounds(bounds, title, image);
    // A minus where centring would add: the title moves to the top of the bounds.
    rect.moveTop(bounds.y() - (bounds.height() - title.size().height()) / 2);
    return rect;
}
