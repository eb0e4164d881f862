#pragma once

#include "Core/View/KVImage.h"

#include <QWidget>

// Shows one piece of artwork, centred at its own size; without one it shows nothing. The image
// keeps its name, so an owner can tell which frame of an animation is up.
class KVIImageView : public QWidget
{
    Q_OBJECT
public:
    explicit KVIImageView(QWidget *parent = nullptr);

    const KVImage &image() const { return m_image; }
    void setImage(const KVImage &image);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    KVImage m_image;
};
