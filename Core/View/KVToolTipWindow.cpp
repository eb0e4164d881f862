#include "Core/View/KVToolTipWindow.h"

#include "Core/View/KVGeometry.h"

#include <QCloseEvent>

KVToolTipWindow::KVToolTipWindow(const QRectF &contentRect)
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint)
    , m_frameView(new KVToolTipContentView(this))
{
    // The balloon draws its own shadow on a clear window.
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setWindowOpacity(1.0);
    resize(frameRectForContentRect(QRectF(QPointF(0, 0), contentRect.size())).size().toSize());
}

void KVToolTipWindow::setContentView(QWidget *view)
{
    if (view == m_contentView)
        return;
    const QRectF frame = frameRectForContentRect(QRectF(QPointF(0, 0), view->size()));
    resize(frame.size().toSize());
    if (m_contentView)
        m_contentView->setParent(nullptr);
    m_contentView = view;
    view->setParent(m_frameView);
    layoutContent();
    view->show();
}

QRectF KVToolTipWindow::contentRectForFrameRect(const QRectF &frameRect) const
{
    return m_frameView->contentRectForFrameRect(frameRect);
}

QRectF KVToolTipWindow::frameRectForContentRect(const QRectF &contentRect) const
{
    return m_frameView->frameRectForContentRect(contentRect);
}

void KVToolTipWindow::setToolTipPosition(KVToolTipPosition position)
{
    const KVToolTipPosition oldPosition = m_frameView->toolTipPosition();
    if (position == oldPosition)
        return;
    QRectF frame = screenFrame();
    const QPointF oldAnchor = m_frameView->anchorPoint();
    QSizeF size = frame.size();
    if (hasArrow(oldPosition))
        size.rheight() -= m_frameView->arrowHeight();
    m_frameView->setToolTipPosition(position);
    if (hasArrow(position))
        size.rheight() += m_frameView->arrowHeight();
    const QPointF newAnchor = m_frameView->anchorPointForRect(QRectF(QPointF(0, 0), size));

    const bool wasVisible = isVisible();
    if (wasVisible)
        hide();
    frame.setSize(size);
    frame.translate(oldAnchor - newAnchor);
    setScreenFrame(frame);
    if (wasVisible)
        show();
}

void KVToolTipWindow::setArrowOffset(qreal offset)
{
    m_frameView->setArrowOffset(offset);
    m_frameView->update();
}

QRectF KVToolTipWindow::screenFrame() const
{
    return KVGeometry::toScreenSpace(QRectF(geometry()));
}

void KVToolTipWindow::setScreenFrame(const QRectF &frame)
{
    setGeometry(KVGeometry::fromScreenSpace(frame).toRect());
    layoutContent();
}

bool KVToolTipWindow::event(QEvent *event)
{
    if (event->type() == QEvent::WindowDeactivate)
        Q_EMIT windowDidResignKey();
    return QWidget::event(event);
}

void KVToolTipWindow::closeEvent(QCloseEvent *event)
{
    Q_EMIT windowWillClose();
    event->accept();
}

void KVToolTipWindow::resizeEvent(QResizeEvent *)
{
    layoutContent();
}

void KVToolTipWindow::layoutContent()
{
    m_frameView->setGeometry(rect());
    if (m_contentView) {
        const QRectF content = m_frameView->contentRectForFrameRect(m_frameView->bounds());
        m_contentView->setGeometry(KVGeometry::flipped(content, height()).toRect());
    }
    m_frameView->update();
}
