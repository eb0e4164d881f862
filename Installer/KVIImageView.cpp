#include "Installer/KVIImageView.h"

#include <QPainter>

KVIImageView::KVIImageView(QWidget *parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void KVIImageView::setImage(const KVImage &image)
{
    m_image = image;
    update();
}

void KVIImageView::paintEvent(QPaintEvent *)
{
    if (m_image.isNull())
        return;
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QRectF target(QPointF(), m_image.size());
    target.moveCenter(QRectF(rect()).center());
    m_image.draw(painter, target);
}
