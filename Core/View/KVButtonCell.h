#pragma once

#include "Core/View/KVImage.h"

#include <QColor>
#include <QFont>
#include <QRectF>
#include <QString>

class QPainter;

// A button's title as it is drawn: text, font, colour and placement on its line.
struct KVAttributedTitle
{
    QString text;
    QFont font;
    QColor color = Qt::black;
    Qt::Alignment alignment = Qt::AlignHCenter;
    bool truncatesTail = true;

    // Width of the text on one line and the height of one line of the font.
    QSizeF size() const;
};

// Places and draws a button's image and title. This base cell is the plain one: the image at the
// left (or centred when there is no title) and the title on one line in the remaining space,
// centred vertically. Subclasses move the title.
class KVButtonCell
{
public:
    virtual ~KVButtonCell() = default;

    // The rectangle the title is centred in, for a button of these bounds.
    virtual QRectF titleRectForBounds(const QRectF &bounds, const KVAttributedTitle &title, const KVImage &image) const;
    QRectF imageRectForBounds(const QRectF &bounds, const KVAttributedTitle &title, const KVImage &image) const;
    virtual void drawWithFrame(QPainter &painter, const QRectF &frame, const KVAttributedTitle &title,
                               const KVImage &image) const;
    // Draws the title on one line, vertically centred in the rectangle.
    void drawTitle(QPainter &painter, const KVAttributedTitle &title, const QRectF &rect) const;

    // Space between an image and the title.
    static constexpr qreal imageTitleSpacing = 4.0;
};

// The title of a capsule button: 18 points in from either side and one point above centre. No
// image or bezel: fill and border come from the button's layer.
class KVPrimaryButtonCell : public KVButtonCell
{
public:
    QRectF titleRectForBounds(const QRectF &bounds, const KVAttributedTitle &title,
                              const KVImage &image) const override;
    void drawWithFrame(QPainter &painter, const QRectF &frame, const KVAttributedTitle &title,
                       const KVImage &image) const override;
};

// The secondary capsule places its title exactly as the primary one.
class KVSecondaryButtonCell : public KVPrimaryButtonCell
{};

// The cell of a dialog's additional check box: the plain cell's title rectangle moved up by half
// the space the title leaves free, so the title sits at the top of the button beside its box.
class KVIAdditinalCheckboxButtonCell : public KVButtonCell
{
public:
    QRectF titleRectForBounds(const QRectF &bounds, const KVAttributedTitle &title,
                              const KVImage &image) const override;
};
