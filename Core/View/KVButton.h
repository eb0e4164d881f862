#pragma once

#include "Core/View/KVButtonCell.h"
#include "Core/View/KVImage.h"

#include <QColor>
#include <QWidget>

#include <memory>

class KVLayerEffect;
class QTimer;
class KVToolTip;

// A push button whose look is drawn entirely by the installer. It keeps a bit set of interaction
// states, fires clicked() only when the mouse is released over it (after that mouse event has
// been handled), shows a drawn tool tip after the pointer has rested on it for a second, and is
// drawn at 40 % opacity while disabled. Each kind of button (the subclasses) decides how its
// states are painted; the base draws its cell (image and title) on a plain layer.
class KVButton : public QWidget
{
    Q_OBJECT
public:
    // Interaction states; several may be set, painting picks one by priority:
    // Disabled > Pressed > Hovered > Focused > Active.
    enum Flag : unsigned { Active = 1, Hovered = 2, Disabled = 4, Pressed = 8, Focused = 16 };
    // The state that painting shows, by that priority; none when no bit is set.
    enum class PaintedState { Disabled, Pressed, Hovered, Focused, Active, None };

    explicit KVButton(QWidget *parent = nullptr);
    ~KVButton() override;

    QString title() const { return m_title; }
    void setTitle(const QString &title);
    KVImage image() const { return m_image; }
    void setImage(const KVImage &image);
    const KVButtonCell &cell() const { return *m_cell; }
    void setCell(std::unique_ptr<KVButtonCell> cell);

    // Setting the bits does not repaint; callers that change them ask for a repaint.
    unsigned flag() const { return m_flag; }
    void setFlag(unsigned flag) { m_flag = flag; }
    PaintedState paintedState() const;
    QColor textColor() const { return m_textColor; }
    void setTextColor(const QColor &color) { m_textColor = color; }
    // The fill inside the focus ring of the capsule kinds; none unless someone sets it.
    QColor focusRingColor() const { return m_focusRingColor; }
    void setFocusRingColor(const QColor &color) { m_focusRingColor = color; }

    // The tool-tip text (hides QWidget's: Qt's own tool tips never show on these buttons).
    // Setting a text while the stored one equals the title appends it on a second line; a null
    // text closes any shown tip and clears the text.
    QString toolTip() const { return m_toolTipString; }
    void setToolTip(const QString &toolTip);
    // Shows the tool tip if the pointer still rests on the button and it was not pressed during
    // this hover. Runs from the one-second rest timer.
    void popToolTip();
    void closeToolTip();
    // The tool tip while one is shown, else null.
    KVToolTip *shownToolTip() const { return m_toolTip.get(); }

    // The look of the current state: asks the kind to pick its colours and repaints.
    void setNeedsDisplay();
    // Presses the button as a completed click does (the keyboard and assistive technology use
    // it): clicked() fires once the current event has been handled. Nothing happens while disabled.
    void performClick();

    QSize sizeHint() const override;

Q_SIGNALS:
    // Fired from the event loop once the release over the button has been handled. Thread: main.
    void clicked(KVButton *button);

protected:
    // What the backing layer paints beneath the cell. An invalid colour paints nothing.
    struct Layer
    {
        QColor fill;
        QColor border;
        bool capsule = false; // corner radius half the smaller side
    };

    // Picks the current state's colours: sets the layer, the text colour and the title's style.
    // The base keeps the layer plain.
    virtual void updateLayer() {}
    // Paints the content above the layer: by default the cell with the image and the title.
    virtual void drawContent(QPainter &painter);

    // Styles the title (centred, truncated at the tail) and, when asked, underlines the button
    // with a line that runs past its right edge by one point per title character.
    void setAttributedTitleWithColor(const QColor &color, bool underlined);
    const KVAttributedTitle &attributedTitle() const { return m_attributedTitle; }
    Layer &layer() { return m_layer; }
    KVLayerEffect &layerEffect() const { return *m_effect; }
    // Shows a ring of the given colour 3 points outside the capsule, or hides it.
    void setFocusRingShown(bool shown, const QColor &borderColor = {});
    // The ring of the kinds without a focus look of their own: shown while focused, not pressed.
    void showKeyboardFocus();
    // The menu kind keeps full opacity when disabled.
    void setDimsWhenDisabled(bool dims) { m_dimsWhenDisabled = dims; }

    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void changeEvent(QEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    bool event(QEvent *event) override;

private:
    void paintOutside(QPainter &painter) const;

    QString m_title;
    KVImage m_image;
    std::unique_ptr<KVButtonCell> m_cell;
    unsigned m_flag = Active;
    QColor m_textColor = Qt::black;
    QColor m_focusRingColor;
    QColor m_focusRingBorderColor;
    bool m_focusRingShown = false;
    bool m_underlined = false;
    bool m_dimsWhenDisabled = true;
    KVAttributedTitle m_attributedTitle;
    Layer m_layer;
    KVLayerEffect *m_effect = nullptr;

    QString m_toolTipString;
    std::unique_ptr<KVToolTip> m_toolTip;
    // Exists from entering the button until leaving it, so one hover pops the tip at most once.
    QTimer *m_toolTipTimer = nullptr;
    bool m_hasPressed = false;
};
