#pragma once

#include "Core/View/KVButton.h"

// A blue link-styled title, underlined while hovered, with the pointing-hand cursor.
class KVLinkButton : public KVButton
{
    Q_OBJECT
public:
    explicit KVLinkButton(QWidget *parent = nullptr);
    ~KVLinkButton() override;

protected:
    void updateLayer() override;
};

// A button drawn from three images: one for rest, one while hovered and one while pressed.
class KVIconButton : public KVButton
{
    Q_OBJECT
public:
    explicit KVIconButton(QWidget *parent = nullptr);
    KVIconButton(const KVImage &defaultImage, const KVImage &hoverImage, const KVImage &pressImage,
                 QWidget *parent = nullptr);

    KVImage defaultImage() const { return m_defaultImage; }
    void setDefaultImage(const KVImage &image);
    KVImage hoveredImage() const { return m_hoveredImage; }
    void setHoveredImage(const KVImage &image);
    KVImage pressedImage() const { return m_pressedImage; }
    void setPressedImage(const KVImage &image);

    QSize sizeHint() const override;

protected:
    void updateLayer() override;

private:
    KVImage m_defaultImage;
    KVImage m_hoveredImage;
    KVImage m_pressedImage;
};

// A row of a menu: grey left-aligned title 12 points in, on a pale blue fill while hovered or
// pressed. It keeps full opacity when disabled and draws its title itself.
class KVMenuButton : public KVButton
{
    Q_OBJECT
public:
    explicit KVMenuButton(QWidget *parent = nullptr);
    ~KVMenuButton() override;

    // The title as the menu row draws it: its text colour, left-aligned, in the button's font.
    KVAttributedTitle attributedTitle() const;

protected:
    void updateLayer() override;
    void drawContent(QPainter &painter) override;
};
