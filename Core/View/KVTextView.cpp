#include "Core/View/KVTextView.h"

#include <QAccessible>
#include <QPainter>
#include <QTextDocument>

KVTextView::KVTextView(QWidget *parent)
    : QWidget(parent)
{
    relayout();
}

KVTextView::~KVTextView() = default;

void KVTextView::setString(const QString &string)
{
    if (string == m_string)
        return;
    m_string = string;
    relayout();
    // The text is the view's accessible name: a screen reader speaks a changed status text.
    QAccessibleEvent changed(this, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&changed);
}

void KVTextView::setAttributes(const KVTextAttributes &attributes)
{
    m_attributes = attributes;
    relayout();
}

void KVTextView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    m_document->drawContents(&painter, rect());
}

void KVTextView::resizeEvent(QResizeEvent *)
{
    relayout();
}

void KVTextView::relayout()
{
    m_document = KVTextMeasure::layoutDocument(m_string, m_attributes, width());
    decorateDocument(*m_document);
    update();
}
