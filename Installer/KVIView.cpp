#include "Installer/KVIView.h"

#include <QMouseEvent>
#include <QWindow>

KVIView::KVIView(QWidget *parent)
    : QWidget(parent)
{
    setAutoFillBackground(true);
    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, Qt::white);
    setPalette(palette);
}

void KVIView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !mouseDownCanMoveWindow())
        return QWidget::mousePressEvent(event);
    // Prefer the window system's own move (it snaps and respects the desktop); fall back to
    // moving the window by hand where there is none, as on the offscreen platform.
    QWindow *handle = window()->windowHandle();
    if (handle && handle->startSystemMove())
        return;
    m_dragOffset = event->globalPosition().toPoint() - window()->frameGeometry().topLeft();
}

void KVIView::mouseMoveEvent(QMouseEvent *event)
{
    if (m_dragOffset)
        window()->move(event->globalPosition().toPoint() - *m_dragOffset);
}

void KVIView::mouseReleaseEvent(QMouseEvent *)
{
    m_dragOffset.reset();
}
