#include "Core/View/KVImage.h"

#include <QFile>
#include <QHash>
#include <QPainter>
#include <QSvgRenderer>

// The artwork's resources live in a static library: referring to their initialiser keeps them linked.
static void initArtworkResources()
{
    Q_INIT_RESOURCE(Artwork);
}

KVImage KVImage::named(const QString &name)
{
    static const bool resourcesReady = (initArtworkResources(), true);
    Q_UNUSED(resourcesReady);
    // Artwork is drawn on the main thread only; parsed renderers are kept for the next look-up,
    // because the checking indicator asks for a frame every few hundredths of a second.
    static QHash<QString, std::shared_ptr<QSvgRenderer>> renderers;
    KVImage image;
    image.m_name = name;
    auto cached = renderers.constFind(name);
    if (cached != renderers.constEnd()) {
        image.m_renderer = *cached;
        return image;
    }
    const QString path = resourcePath(name);
    if (name.isEmpty() || !QFile::exists(path))
        return image;
    auto renderer = std::make_shared<QSvgRenderer>(path);
    if (!renderer->isValid())
        return image;
    renderers.insert(name, renderer);
    image.m_renderer = std::move(renderer);
    return image;
}

QString KVImage::resourcePath(const QString &name)
{
    return QStringLiteral(":/Artwork/%1.svg").arg(name);
}

QSizeF KVImage::size() const
{
    return m_renderer ? m_renderer->viewBoxF().size() : QSizeF();
}

void KVImage::draw(QPainter &painter, const QRectF &rect) const
{
    if (m_renderer)
        m_renderer->render(&painter, rect);
}

QPixmap KVImage::pixmap(qreal devicePixelRatio) const
{
    if (!m_renderer)
        return {};
    const QSizeF logical = size();
    QPixmap pixmap((logical * devicePixelRatio).toSize());
    pixmap.setDevicePixelRatio(devicePixelRatio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    draw(painter, QRectF(QPointF(0, 0), logical));
    return pixmap;
}
