#include "Core/View/KVCapsuleButtons.h"

#include "Core/Logging/KVLog.h"
#include "Core/View/KVLayerEffect.h"
#include "Core/View/KVPalette.h"

using namespace KVPalette;

KVCapsuleButton::KVCapsuleButton(QWidget *parent)
    : KVButton(parent)
{
    layer().capsule = true;
    layerEffect().setLayerShadow({0.0, 1.0}, 2.0, Qt::black, 0.25);
}

void KVCapsuleButton::updateLayer()
{
    const KVButtonStateColors colors = colorsForState(paintedState());
    if (colors.text.isValid())
        setTextColor(colors.text);
    setAttributedTitleWithColor(textColor(), false);
    layer().border = colors.border;
    layer().fill = colors.fill;
    const bool ringShown = (flag() & Focused) && !(flag() & (Pressed | Hovered));
    setFocusRingShown(ringShown, focusRingBorderColor());
}

KVPrimaryButton::KVPrimaryButton(QWidget *parent)
    : KVCapsuleButton(parent)
{
    setTextColor(Qt::white);
    setCell(std::make_unique<KVPrimaryButtonCell>());
    setNeedsDisplay();
}

KVPrimaryButton::~KVPrimaryButton()
{
    KVLogVerbose("%s", "-[KVPrimaryButton dealloc]");
}

KVButtonStateColors KVPrimaryButton::colorsForState(PaintedState state) const
{
    switch (state) {
    case PaintedState::Disabled:
        return {brandBlue, brandBlue, rgb(255, 255, 255, 0.7)};
    case PaintedState::Pressed:
        return {pressedBlue, pressedBlue, Qt::white};
    case PaintedState::Hovered:
        return {hoveredBlue, hoveredBlue, Qt::white};
    case PaintedState::Focused:
    case PaintedState::Active:
        return {brandBlue, brandBlue, Qt::white};
    case PaintedState::None:
        break;
    }
    return {};
}

QColor KVPrimaryButton::focusRingBorderColor() const
{
    return rgb(9, 149, 238, 0.3);
}

KVSecondaryButton::KVSecondaryButton(QWidget *parent)
    : KVCapsuleButton(parent)
{
    setTextColor(brandBlue);
    setCell(std::make_unique<KVSecondaryButtonCell>());
    setNeedsDisplay();
}

KVSecondaryButton::~KVSecondaryButton()
{
    KVLogVerbose("%s", "-[KVSecondaryButton dealloc]");
}

KVButtonStateColors KVSecondaryButton::colorsForState(PaintedState state) const
{
    switch (state) {
    case PaintedState::Disabled:
        return {brandBlue, Qt::white, rgb(0, 120, 214, 0.5)};
    case PaintedState::Pressed:
        return {pressedBlue, Qt::white, pressedBlue};
    case PaintedState::Hovered:
        return {hoveredBlue, Qt::white, hoveredBlue};
    case PaintedState::Focused:
        return {hoveredBlue, rgb(26, 153, 253, 0.15), hoveredBlue};
    case PaintedState::Active:
        return {brandBlue, Qt::white, brandBlue};
    case PaintedState::None:
        break;
    }
    return {};
}

QColor KVSecondaryButton::focusRingBorderColor() const
{
    return rgb(9, 149, 238, 0.15);
}
