#pragma once

#include <QLabel>

// A one-line text label that centres its line vertically the way the installer's text fields do:
// by the font's ascender and descender, one point higher than plain centring would put it.
class KVVAlignTextFieldCell : public QLabel
{
    Q_OBJECT
public:
    using QLabel::QLabel;

    // The frame shrunk (or, when it is less than a line tall, grown) equally at the top and the
    // bottom around one line of the font.
    static QRectF adjustedFrameToVerticallyCenterText(const QRectF &frame, const QFont &font);

protected:
    void paintEvent(QPaintEvent *event) override;
};
