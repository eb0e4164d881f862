#pragma once

#include "Core/View/KVButtonCell.h"

#include <QWidget>

#include <memory>

class KVLayerEffect;

// The installer's two-state check box. It draws the artwork named for its state beside its title
// and toggles itself on every completed click (primary button) and on the space bar; a ring around
// the box shows the keyboard focus. checkedChanged() fires on every set, also when the
// value stays the same, so an owner can observe the state instead of wiring an action.
class KVCheckBox : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(bool checked READ checked WRITE setChecked NOTIFY checkedChanged)
public:
    explicit KVCheckBox(QWidget *parent = nullptr);

    bool checked() const { return m_checked; }
    void setChecked(bool checked);
    // True between a press and its release; nothing is drawn differently for it.
    bool pressed() const { return m_pressed; }

    // Names of the artwork for each state, looked up at every repaint.
    QString checkedImage() const { return m_checkedImage; }
    void setCheckedImage(const QString &name) { m_checkedImage = name; }
    QString unCheckedImage() const { return m_unCheckedImage; }
    void setUnCheckedImage(const QString &name) { m_unCheckedImage = name; }

    QString title() const { return m_title; }
    void setTitle(const QString &title);
    void setCell(std::unique_ptr<KVButtonCell> cell);

    // The action of a completed click: sets the opposite state.
    void onHit();
    // What a completed click does (the space bar and assistive technology use it): clicked(),
    // then onHit() when the box toggles itself.
    void performClick();
    // Whether a completed click runs onHit(). An owner that decides the state itself turns this
    // off and answers clicked() instead.
    bool togglesItself() const { return m_togglesItself; }
    void setTogglesItself(bool toggles) { m_togglesItself = toggles; }

    QSize sizeHint() const override;

Q_SIGNALS:
    // Thread: main.
    void checkedChanged(bool checked);
    // A completed click (or the space key), before the box toggles itself. Thread: main.
    void clicked();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    KVAttributedTitle attributedTitle() const;
    KVImage currentImage() const;
    // Around the box while the keyboard focus is here; it lies outside the control.
    void paintFocusRing(QPainter &painter) const;

    bool m_checked = false;
    bool m_pressed = false;
    bool m_togglesItself = true;
    QString m_checkedImage = QStringLiteral("IconCheckmark");
    QString m_unCheckedImage = QStringLiteral("IconCheckbox");
    QString m_title;
    std::unique_ptr<KVButtonCell> m_cell;
    KVLayerEffect *m_effect;
};
