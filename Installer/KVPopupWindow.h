#pragma once

#include <QPointer>
#include <QWidget>

class KVMaskView;

// The transparent child window that carries a popup: a dimming mask over the whole installer
// window and the card centred on it. It is window-modal, so the installer window's own controls
// get no input while it is shown.
class KVPopupWindow : public QWidget {
public:
    KVPopupWindow(QWidget *installerWindow, QWidget *card);

    QWidget *card() const { return m_card; }
    KVMaskView *maskView() const { return m_mask; }
    // Gives the card back to its owner before the popup window goes away.
    void releaseCard();

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void centreCard();

    KVMaskView *m_mask;
    QPointer<QWidget> m_card;
};
