#include "Installer/KVMaskView.h"

#include <QMouseEvent>
#include <QPainter>

KVMaskView::KVMaskView(QWidget *parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_NoSystemBackground);
}

void KVMaskView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), QColor(0, 0, 0, qRound(0.15 * 255)));
}

void KVMaskView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
}

void KVMaskView::mouseReleaseEvent(QMouseEvent *event)
{
    event->accept();
}
