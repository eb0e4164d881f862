#pragma once

#include <QPointer>
#include <QWidget>

class KVMaskView;

// The layer that carries a popup over the whole installer window: a dimming mask and the card
// centred on it. It lies inside the window rather than in a translucent window of its own, so it
// looks the same with or without a compositing window manager. While it exists, the installer
// window's own controls get no input: the mask covers them, and keys meant for them are dropped.
// Tab and Shift-Tab go round the card's controls and never leave it. Assistive technology sees a
// dialog named as the card is.
class KVPopupWindow : public QWidget
{
    Q_OBJECT
public:
    KVPopupWindow(QWidget *installerWindow, QWidget *card);

    QWidget *card() const { return m_card; }
    KVMaskView *maskView() const { return m_mask; }
    // Gives the card back to its owner before the popup goes away.
    void releaseCard();
    // Gives the keyboard focus to the card: its focus proxy, else its first control.
    void takeFocus();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    bool focusNextPrevChild(bool next) override;

private:
    void centreCard();

    QWidget *m_installerWindow;
    KVMaskView *m_mask;
    QPointer<QWidget> m_card;
};
