#include "Installer/KVILinkTextView.h"

#include <QAbstractTextDocumentLayout>
#include <QMouseEvent>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextLayout>

KVILinkTextView::KVILinkTextView(QWidget *parent)
    : KVTextView(parent)
{
    setMouseTracking(true);
}

void KVILinkTextView::setLinks(const QList<Link> &links)
{
    m_links = links;
    relayout();
}

void KVILinkTextView::setLinkColor(const QColor &color)
{
    m_linkColor = color;
    relayout();
}

std::optional<int> KVILinkTextView::characterIndexAt(QPointF point) const
{
    const int index = document().documentLayout()->hitTest(point, Qt::ExactHit);
    return index < 0 ? std::nullopt : std::optional(index);
}

std::optional<KVILinkTextView::Link> KVILinkTextView::linkAt(QPointF point) const
{
    const std::optional<int> index = characterIndexAt(point);
    if (!index)
        return std::nullopt;
    for (const Link &link : m_links) {
        if (*index >= link.location && *index < link.location + link.length)
            return link;
    }
    return std::nullopt;
}

QRectF KVILinkTextView::firstCharacterRect(const Link &link) const
{
    const QTextBlock block = document().findBlock(int(link.location));
    // Asking for the block's place lays the document out, which gives the block its lines.
    const QPointF origin = document().documentLayout()->blockBoundingRect(block).topLeft();
    const QTextLayout *layout = block.layout();
    if (!layout)
        return {};
    const int position = int(link.location) - block.position();
    const QTextLine line = layout->lineForTextPosition(position);
    if (!line.isValid())
        return {};
    const qreal left = line.cursorToX(position);
    const qreal right = line.cursorToX(position + 1);
    return QRectF(origin.x() + left, origin.y() + line.y(), right - left, line.height());
}

void KVILinkTextView::mouseMoveEvent(QMouseEvent *event)
{
    setCursor(linkAt(event->position()) ? Qt::PointingHandCursor : Qt::ArrowCursor);
}

void KVILinkTextView::mousePressEvent(QMouseEvent *event)
{
    m_pressedLink.reset();
    if (event->button() != Qt::LeftButton)
        return QWidget::mousePressEvent(event);
    if (const std::optional<Link> link = linkAt(event->position()))
        m_pressedLink = link->url;
    event->accept();
}

void KVILinkTextView::mouseReleaseEvent(QMouseEvent *event)
{
    const std::optional<QUrl> pressed = std::exchange(m_pressedLink, std::nullopt);
    const std::optional<Link> link = linkAt(event->position());
    if (pressed && link && link->url == *pressed)
        Q_EMIT clickedOnLink(link->url, *characterIndexAt(event->position()));
    event->accept();
}

void KVILinkTextView::decorateDocument(QTextDocument &document)
{
    for (const Link &link : m_links) {
        QTextCursor range(&document);
        range.setPosition(int(link.location));
        range.setPosition(int(link.location + link.length), QTextCursor::KeepAnchor);
        QTextCharFormat format;
        format.setAnchor(true);
        format.setAnchorHref(link.url.toString());
        format.setForeground(m_linkColor);
        range.mergeCharFormat(format);
    }
}
