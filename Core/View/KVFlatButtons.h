#pragma once

#include "Core/View/KVCapsuleButtons.h"

// The flat buttons: a title without border or corner radius, underlined while hovered, on a pale
// blue fill with a soft shadow while focused. The shadow is set on the first focus and stays on
// the layer afterwards (it then falls only under the title).
class KVFlatButton : public KVButton
{
    Q_OBJECT
public:
    explicit KVFlatButton(QWidget *parent = nullptr);

protected:
    virtual KVButtonStateColors colorsForState(PaintedState state) const = 0;
    virtual QColor focusShadowColor() const = 0;
    virtual qreal focusShadowOpacity() const = 0;
    void updateLayer() override;
};

// A blue text button.
class KVTertiaryButton : public KVFlatButton
{
    Q_OBJECT
public:
    explicit KVTertiaryButton(QWidget *parent = nullptr);
    ~KVTertiaryButton() override;

protected:
    KVButtonStateColors colorsForState(PaintedState state) const override;
    QColor focusShadowColor() const override { return Qt::black; }
    qreal focusShadowOpacity() const override { return 0.25; }
};

// A dialog's default button: looks like the tertiary one.
class KVPrimary4DialogButton : public KVFlatButton
{
    Q_OBJECT
public:
    explicit KVPrimary4DialogButton(QWidget *parent = nullptr);
    ~KVPrimary4DialogButton() override;

protected:
    KVButtonStateColors colorsForState(PaintedState state) const override;
    QColor focusShadowColor() const override { return Qt::black; }
    qreal focusShadowOpacity() const override { return 0.25; }
};

// A dialog's alternate button: grey text.
class KVSecondary4DialogButton : public KVFlatButton
{
    Q_OBJECT
public:
    explicit KVSecondary4DialogButton(QWidget *parent = nullptr);
    ~KVSecondary4DialogButton() override;

protected:
    KVButtonStateColors colorsForState(PaintedState state) const override;
    QColor focusShadowColor() const override;
    qreal focusShadowOpacity() const override { return 1.0; }
};
