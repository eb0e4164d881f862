#pragma once

#include "Core/View/KVTextView.h"

#include <QList>
#include <QUrl>

#include <optional>

// A read-only text laid out exactly as KVTextMeasure measures it, in which some ranges are links:
// they are drawn in the link colour, show the pointing hand, and a click on one is reported
// through clickedOnLink() rather than opened here. Tab and Shift-Tab step through the links one by
// one (a ring shows the focused one) and Return or the space bar follow it.
class KVILinkTextView : public KVTextView
{
    Q_OBJECT
public:
    struct Link
    {
        qsizetype location = 0;
        qsizetype length = 0;
        QUrl url;
    };

    explicit KVILinkTextView(QWidget *parent = nullptr);

    const QList<Link> &links() const { return m_links; }
    void setLinks(const QList<Link> &links);
    QColor linkColor() const { return m_linkColor; }
    void setLinkColor(const QColor &color);

    // The index of the character under a point of the view, or nothing between characters.
    std::optional<int> characterIndexAt(QPointF point) const;
    // The link under a point of the view, if any.
    std::optional<Link> linkAt(QPointF point) const;
    // Where the first character of a link is drawn, in the view's coordinates.
    QRectF firstCharacterRect(const Link &link) const;
    // Where the whole link is drawn, one rectangle per line it spans, in the view's coordinates.
    QList<QRectF> linkRects(const Link &link) const;
    // The link that has the keyboard focus, if any.
    std::optional<qsizetype> focusedLink() const { return m_focusedLink; }
    // Follows the link as a click on it does.
    void activateLink(qsizetype index);

Q_SIGNALS:
    // A click released on the same link it was pressed on. Thread: main.
    void clickedOnLink(const QUrl &link, int characterIndex);

protected:
    void decorateDocument(QTextDocument &document) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    bool focusNextPrevChild(bool next) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void setFocusedLink(std::optional<qsizetype> index);

    QList<Link> m_links;
    QColor m_linkColor = QColor(0, 120, 214);
    std::optional<QUrl> m_pressedLink;
    std::optional<qsizetype> m_focusedLink;
};
