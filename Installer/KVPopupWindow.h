#pragma once

#include <QPointer>
#include <QWidget>

class KVMaskView;

// The layer that carries a popup over the whole installer window: a dimming mask and the card
// centred on it. It lies inside the window rather than in a translucent window of its own, so it
// looks the same with or without a compositing window manager. While it exists, the installer
// window's own controls get no input: the mask covers them, and keys meant for them are dropped.
class KVPopupWindow : public QWidget
{
public:
    KVPopupWindow(QWidget *installerWindow, QWidget *card);

    QWidget *card() const { return m_card; }
    KVMaskView *maskView() const { return m_mask; }
    // Gives the card back to its owner before the popup goes away.
    void releaseCard();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    void centreCard();

    QWidget *m_installerWindow;
    KVMaskView *m_mask;
    QPointer<QWidget> m_card;
};
