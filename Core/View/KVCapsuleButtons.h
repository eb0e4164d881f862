#pragma once

#include "Core/View/KVButton.h"

// What a kind of button paints in one state: layer border and fill, and the title colour. An
// invalid colour means "none": the layer paints nothing there and the title keeps its colour.
struct KVButtonStateColors
{
    QColor border;
    QColor fill;
    QColor text;
};

// The capsule-shaped buttons: the corner radius is half the smaller side, a small shadow lies
// under the capsule, and a 3-point focus ring shows 3 points outside it while the button is focused
// but neither hovered nor pressed. The kinds differ in their colours.
class KVCapsuleButton : public KVButton
{
    Q_OBJECT
public:
    explicit KVCapsuleButton(QWidget *parent = nullptr);

protected:
    virtual KVButtonStateColors colorsForState(PaintedState state) const = 0;
    virtual QColor focusRingBorderColor() const = 0;
    void updateLayer() override;
};

// The filled blue capsule of the main action.
class KVPrimaryButton : public KVCapsuleButton
{
    Q_OBJECT
public:
    explicit KVPrimaryButton(QWidget *parent = nullptr);
    ~KVPrimaryButton() override;

protected:
    KVButtonStateColors colorsForState(PaintedState state) const override;
    QColor focusRingBorderColor() const override;
};

// The outlined capsule beside a primary one.
class KVSecondaryButton : public KVCapsuleButton
{
    Q_OBJECT
public:
    explicit KVSecondaryButton(QWidget *parent = nullptr);
    ~KVSecondaryButton() override;

protected:
    KVButtonStateColors colorsForState(PaintedState state) const override;
    QColor focusRingBorderColor() const override;
};
