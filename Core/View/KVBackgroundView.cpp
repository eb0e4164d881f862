#include "Core/View/KVBackgroundView.h"

#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

KVBackgroundView::KVBackgroundView(QWidget *parent, const QColor &backgroundColor)
    : QWidget(parent)
    , m_backgroundColor(backgroundColor)
{}

void KVBackgroundView::setBackgroundColor(const QColor &color)
{
    if (color == m_backgroundColor)
        return;
    m_backgroundColor = color;
    update();
}

void KVBackgroundView::paintEvent(QPaintEvent *event)
{
    if (m_backgroundColor.alpha() == 0)
        return;
    QPainter painter(this);
    painter.fillRect(event->rect(), m_backgroundColor);
}

void KVBackgroundView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
}

void KVBackgroundView::wheelEvent(QWheelEvent *event)
{
    event->accept();
}
