#pragma once

#include <QColor>
#include <QFont>
#include <QSizeF>
#include <QString>

#include <memory>
#include <optional>

class QTextDocument;

// How a text is laid out and drawn: the installer's counterpart of an attribute dictionary.
struct KVTextAttributes
{
    std::optional<QFont> font; // none: the application's default font
    QColor foregroundColor = Qt::black;
    Qt::Alignment alignment = Qt::AlignLeft;
    qreal lineSpacing = 0.0; // extra space below every line
    bool wordWrap = true;
};

// Tells how tall a text becomes when wrapped to a width. The measured document is the one that
// KVTextView draws, so a measured height is exactly the height the text takes on screen.
class KVTextMeasure
{
public:
    KVTextMeasure() = delete;

    // Space kept free at the left and right of every line, inside the width.
    static constexpr qreal lineFragmentPadding = 5.0;

    // 0 for a null string, no font or a negative width.
    static double heightWithString(const QString &string, const std::optional<QFont> &font, double width);
    // 0 for a null string or a negative width.
    static double heightWithString(const QString &string, const KVTextAttributes &attributes, double width);
    // The size of the text on one line per paragraph, without padding.
    static QSizeF sizeWithString(const QString &string, const KVTextAttributes &attributes);

    // The text laid out at that width (with the line padding), ready to measure or draw.
    static std::unique_ptr<QTextDocument> layoutDocument(const QString &string, const KVTextAttributes &attributes,
                                                         double width);
};
