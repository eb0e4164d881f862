#include "Installer/KVPopupWindow.h"

#include "Installer/KVMaskView.h"

KVPopupWindow::KVPopupWindow(QWidget *installerWindow, QWidget *card)
    : QWidget(installerWindow, Qt::Tool | Qt::FramelessWindowHint)
    , m_mask(new KVMaskView(this))
    , m_card(card) {
    setAttribute(Qt::WA_TranslucentBackground);
    setWindowModality(Qt::WindowModal);
    setFocusPolicy(Qt::StrongFocus);
    m_card->setParent(this);
    m_card->raise();
    setGeometry(installerWindow->geometry());
}

void KVPopupWindow::releaseCard() {
    if (!m_card)
        return;
    m_card->hide();
    m_card->setParent(nullptr);
}

void KVPopupWindow::resizeEvent(QResizeEvent *) {
    m_mask->setGeometry(rect());
    centreCard();
}

void KVPopupWindow::centreCard() {
    if (!m_card)
        return;
    m_card->move((width() - m_card->width()) / 2, (height() - m_card->height()) / 2);
}
