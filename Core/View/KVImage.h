#pragma once

#include <QPixmap>
#include <QRectF>
#include <QSizeF>
#include <QString>

#include <memory>

class QPainter;
class QSvgRenderer;

// A piece of the installer's vector artwork, looked up by its name ("IconCheckbox",
// "installer progress  1"). Resources/Artwork.qrc maps each name to its SVG file; a name without
// artwork gives a null image, which draws nothing.
class KVImage
{
public:
    KVImage() = default;

    static KVImage named(const QString &name);
    // Where the artwork of that name lives in the resources, whether or not it exists.
    static QString resourcePath(const QString &name);

    bool isNull() const { return !m_renderer; }
    QString name() const { return m_name; }
    // The size the artwork was drawn for, in points.
    QSizeF size() const;

    // Draws the artwork scaled to fill the rectangle (crisp at any scale).
    void draw(QPainter &painter, const QRectF &rect) const;
    // The artwork at its own size, rendered for a device pixel ratio.
    QPixmap pixmap(qreal devicePixelRatio = 1.0) const;

private:
    QString m_name;
    std::shared_ptr<QSvgRenderer> m_renderer;
};
