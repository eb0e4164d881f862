#include "Installer/KVILinkTextView.h"

#include "Core/View/KVPalette.h"

#include <QAbstractTextDocumentLayout>
#include <QAccessible>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
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
    setFocusPolicy(links.isEmpty() ? Qt::NoFocus : Qt::TabFocus);
    if (m_focusedLink)
        setFocusedLink(links.isEmpty() ? std::nullopt : std::optional<qsizetype>(0));
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

QList<QRectF> KVILinkTextView::linkRects(const Link &link) const
{
    QList<QRectF> rects;
    const int start = int(link.location), end = int(link.location + link.length);
    for (QTextBlock block = document().findBlock(start); block.isValid() && block.position() < end;
         block = block.next()) {
        const QPointF origin = document().documentLayout()->blockBoundingRect(block).topLeft();
        const QTextLayout *layout = block.layout();
        for (int i = 0; layout && i < layout->lineCount(); ++i) {
            const QTextLine line = layout->lineAt(i);
            const int from = std::max(start - block.position(), line.textStart());
            const int to = std::min(end - block.position(), line.textStart() + line.textLength());
            if (from >= to)
                continue;
            const qreal left = line.cursorToX(from), right = line.cursorToX(to);
            rects.append(QRectF(origin.x() + left, origin.y() + line.y(), right - left, line.height()));
        }
    }
    return rects;
}

void KVILinkTextView::activateLink(qsizetype index)
{
    if (index >= 0 && index < m_links.size())
        Q_EMIT clickedOnLink(m_links[index].url, int(m_links[index].location));
}

void KVILinkTextView::setFocusedLink(std::optional<qsizetype> index)
{
    m_focusedLink = index;
    update();
    if (index) {
        // The links are the view's accessible children: the screen reader follows the focus there.
        QAccessibleEvent focused(this, QAccessible::Focus);
        focused.setChild(int(*index));
        QAccessible::updateAccessibility(&focused);
    }
}

void KVILinkTextView::keyPressEvent(QKeyEvent *event)
{
    const bool follows =
        event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter || event->key() == Qt::Key_Space;
    if (follows && m_focusedLink && !event->isAutoRepeat())
        activateLink(*m_focusedLink);
    else
        KVTextView::keyPressEvent(event);
}

void KVILinkTextView::focusInEvent(QFocusEvent *event)
{
    KVTextView::focusInEvent(event);
    if (!m_links.isEmpty())
        setFocusedLink(event->reason() == Qt::BacktabFocusReason ? m_links.size() - 1 : 0);
}

void KVILinkTextView::focusOutEvent(QFocusEvent *event)
{
    KVTextView::focusOutEvent(event);
    setFocusedLink(std::nullopt);
}

bool KVILinkTextView::focusNextPrevChild(bool next)
{
    // Tab moves from link to link; past the first or the last it leaves the view.
    if (hasFocus() && m_focusedLink) {
        const qsizetype target = *m_focusedLink + (next ? 1 : -1);
        if (target >= 0 && target < m_links.size()) {
            setFocusedLink(target);
            return true;
        }
    }
    return KVTextView::focusNextPrevChild(next);
}

void KVILinkTextView::paintEvent(QPaintEvent *event)
{
    KVTextView::paintEvent(event);
    if (!m_focusedLink || *m_focusedLink >= m_links.size())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(KVPalette::keyboardFocus, 1.5));
    // The ring stays inside the link's lines, so the view's edges never clip it.
    for (const QRectF &rect : linkRects(m_links[*m_focusedLink]))
        painter.drawRoundedRect(rect.adjusted(0.75, 0.75, -0.75, -0.75), 2, 2);
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
