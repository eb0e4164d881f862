#include "Core/View/KVTextMeasure.h"

#include <QAbstractTextDocumentLayout>
#include <QTextBlockFormat>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextOption>

namespace {

std::unique_ptr<QTextDocument> makeDocument(const QString &string, const KVTextAttributes &attributes,
                                            qreal horizontalPadding)
{
    auto document = std::make_unique<QTextDocument>();
    document->setUndoRedoEnabled(false);
    if (attributes.font)
        document->setDefaultFont(*attributes.font);
    QTextOption option(attributes.alignment);
    option.setWrapMode(attributes.wordWrap ? QTextOption::WrapAtWordBoundaryOrAnywhere : QTextOption::NoWrap);
    document->setDefaultTextOption(option);
    // Setting the text resets the root frame's format, so the padding comes after it.
    document->setPlainText(string);
    document->setDocumentMargin(0.0);
    QTextFrameFormat frame = document->rootFrame()->frameFormat();
    frame.setLeftMargin(horizontalPadding);
    frame.setRightMargin(horizontalPadding);
    document->rootFrame()->setFrameFormat(frame);

    QTextCursor everything(document.get());
    everything.select(QTextCursor::Document);
    QTextBlockFormat block;
    block.setLineHeight(attributes.lineSpacing, QTextBlockFormat::LineDistanceHeight);
    everything.mergeBlockFormat(block);
    QTextCharFormat characters;
    characters.setForeground(attributes.foregroundColor);
    everything.mergeCharFormat(characters);
    return document;
}

} // namespace

double KVTextMeasure::heightWithString(const QString &string, const std::optional<QFont> &font, double width)
{
    if (!font)
        return 0.0;
    return heightWithString(string, KVTextAttributes{.font = font}, width);
}

double KVTextMeasure::heightWithString(const QString &string, const KVTextAttributes &attributes, double width)
{
    if (string.isNull() || width < 0.0)
        return 0.0;
    return layoutDocument(string, attributes, width)->size().height();
}

QSizeF KVTextMeasure::sizeWithString(const QString &string, const KVTextAttributes &attributes)
{
    KVTextAttributes unwrapped = attributes;
    unwrapped.wordWrap = false;
    const std::unique_ptr<QTextDocument> document = makeDocument(string, unwrapped, 0.0);
    return {document->idealWidth(), document->size().height()};
}

std::unique_ptr<QTextDocument> KVTextMeasure::layoutDocument(const QString &string, const KVTextAttributes &attributes,
                                                             double width)
{
    std::unique_ptr<QTextDocument> document = makeDocument(string, attributes, lineFragmentPadding);
    document->setTextWidth(width);
    return document;
}
