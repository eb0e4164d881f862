#include "Core/View/KVFlatButtons.h"

#include "Core/Logging/KVLog.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVLayerEffect.h"
#include "Core/View/KVPalette.h"

using namespace KVPalette;

KVFlatButton::KVFlatButton(QWidget *parent)
    : KVButton(parent)
{}

void KVFlatButton::updateLayer()
{
    const PaintedState state = paintedState();
    const KVButtonStateColors colors = colorsForState(state);
    if (state == PaintedState::Focused)
        layerEffect().setLayerShadow({0.0, 4.0}, 10.0, focusShadowColor(), focusShadowOpacity());
    if (colors.text.isValid())
        setTextColor(colors.text);
    setAttributedTitleWithColor(textColor(), state == PaintedState::Hovered);
    layer().fill = colors.fill;
    layer().border = Qt::transparent;
}

KVTertiaryButton::KVTertiaryButton(QWidget *parent)
    : KVFlatButton(parent)
{
    setFont(KVIFont::medium14());
    setTextColor(brandBlue);
    setNeedsDisplay();
}

KVTertiaryButton::~KVTertiaryButton()
{
    KVLogVerbose("%s", "-[KVTertiaryButton dealloc]");
}

// The blue flat kinds (tertiary and a dialog's default button) share their colours.
static KVButtonStateColors blueFlatColors(KVButton::PaintedState state)
{
    using PaintedState = KVButton::PaintedState;
    switch (state) {
    case PaintedState::Disabled:
        return {Qt::transparent, Qt::transparent, rgb(0, 120, 214, 0.5)};
    case PaintedState::Pressed:
        return {Qt::transparent, Qt::transparent, pressedBlue};
    case PaintedState::Hovered:
        return {Qt::transparent, Qt::transparent, hoveredBlue};
    case PaintedState::Focused:
        return {Qt::transparent, rgb(9, 149, 238, 0.15), brandBlue};
    case PaintedState::Active:
        return {Qt::transparent, Qt::transparent, brandBlue};
    case PaintedState::None:
        break;
    }
    return {Qt::transparent, {}, {}};
}

KVButtonStateColors KVTertiaryButton::colorsForState(PaintedState state) const
{
    return blueFlatColors(state);
}

KVPrimary4DialogButton::KVPrimary4DialogButton(QWidget *parent)
    : KVFlatButton(parent)
{
    setFont(KVIFont::medium14());
    setTextColor(brandBlue);
    setNeedsDisplay();
}

KVButtonStateColors KVPrimary4DialogButton::colorsForState(PaintedState state) const
{
    return blueFlatColors(state);
}

KVPrimary4DialogButton::~KVPrimary4DialogButton()
{
    KVLogVerbose("%s", "-[KVPrimary4DialogButton dealloc]");
}

KVSecondary4DialogButton::KVSecondary4DialogButton(QWidget *parent)
    : KVFlatButton(parent)
{
    setFont(KVIFont::medium14());
    setTextColor(rgb(0, 0, 0, 0.54));
    setNeedsDisplay();
}

KVSecondary4DialogButton::~KVSecondary4DialogButton()
{
    KVLogVerbose("%s", "-[KVSecondary4DialogButton dealloc]");
}

KVButtonStateColors KVSecondary4DialogButton::colorsForState(PaintedState state) const
{
    switch (state) {
    case PaintedState::Disabled:
        return {Qt::transparent, Qt::transparent, rgb(0, 0, 0, 0.27)};
    case PaintedState::Pressed:
        return {Qt::transparent, Qt::transparent, rgb(0, 0, 0, 0.87)};
    case PaintedState::Hovered:
    case PaintedState::Active:
        return {Qt::transparent, Qt::transparent, rgb(0, 0, 0, 0.54)};
    case PaintedState::Focused:
        return {Qt::transparent, rgb(9, 149, 238, 0.15), rgb(0, 0, 0, 0.54)};
    case PaintedState::None:
        break;
    }
    return {Qt::transparent, {}, {}};
}

QColor KVSecondary4DialogButton::focusShadowColor() const
{
    return rgb(196, 221, 237);
}
