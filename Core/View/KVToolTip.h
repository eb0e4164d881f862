#pragma once

#include "Core/View/KVTextMeasure.h"
#include "Core/View/KVToolTipContentView.h"

#include <QObject>
#include <QPointF>
#include <QString>

#include <memory>

class KVToolTipWindow;

// One drawn tool tip: builds the balloon for a text (black, centred, at most 250 points wide),
// chooses on which side of the pointed-at point it fits on the screen, shows it as a child of a
// window and hides it again. It hides by itself when its window loses the keyboard focus or closes,
// or when the application stops being active.
class KVToolTip : public QObject
{
    Q_OBJECT
public:
    // Null for an empty text.
    static std::unique_ptr<KVToolTip> create(const QString &toolTip);
    ~KVToolTip() override;

    // The vertical gap between the pointed-at point and the arrow's tip.
    qreal offset() const { return m_offset; }
    void setOffset(qreal offset) { m_offset = offset; }
    KVToolTipWindow *window() const { return m_window.get(); }

    // Shows the balloon pointing at `point`, given in the coordinates of `parentWindow`. Does
    // nothing without a window or while the balloon is already shown.
    void displayToolTipInWindow(QWidget *parentWindow, QPointF point);
    // Hides the balloon and detaches it from its parent window; the window is kept.
    void closeToolTip();
    // Where the balloon fits around `point` (in `parentWindow`'s coordinates; global ones without a
    // window). Shifted positions also set the window's arrow offset.
    KVToolTipPosition bestPositionInWindow(QWidget *parentWindow, QPointF point);

    // The font, colour and paragraph style of every tip's text.
    static KVTextAttributes textAttributes();
    static constexpr qreal maximumTextWidth = 250.0;

private:
    explicit KVToolTip(const QString &toolTip);

    std::unique_ptr<KVToolTipWindow> m_window;
    qreal m_offset = 0.0;
};
