#include "Installer/KVPopupWindow.h"

#include "Installer/KVMaskView.h"

#include <QApplication>
#include <QEvent>

namespace {
bool isInputEvent(QEvent::Type type)
{
    switch (type) {
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
    case QEvent::ShortcutOverride:
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
    case QEvent::Wheel:
        return true;
    default:
        return false;
    }
}
} // namespace

KVPopupWindow::KVPopupWindow(QWidget *installerWindow, QWidget *card)
    : QWidget(installerWindow)
    , m_installerWindow(installerWindow)
    , m_mask(new KVMaskView(this))
    , m_card(card)
{
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(card->accessibleName());
    m_card->setParent(this);
    m_card->raise();
    setGeometry(installerWindow->rect());
    installerWindow->installEventFilter(this);
}

// Input is held back only while the popup is on screen.
void KVPopupWindow::showEvent(QShowEvent *)
{
    qApp->installEventFilter(this);
}

void KVPopupWindow::hideEvent(QHideEvent *)
{
    qApp->removeEventFilter(this);
}

void KVPopupWindow::releaseCard()
{
    if (!m_card)
        return;
    m_card->hide();
    m_card->setParent(nullptr);
}

bool KVPopupWindow::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_installerWindow && event->type() == QEvent::Resize)
        setGeometry(m_installerWindow->rect());
    // The window's own controls sit under the popup and are out of reach until it ends.
    if (isInputEvent(event->type()) && watched->isWidgetType()) {
        const auto *widget = static_cast<QWidget *>(watched);
        if (widget != this && !isAncestorOf(widget) && m_installerWindow->isAncestorOf(widget))
            return true;
    }
    return QWidget::eventFilter(watched, event);
}

void KVPopupWindow::takeFocus()
{
    if (m_card && m_card->focusProxy())
        m_card->setFocus(Qt::PopupFocusReason);
    else if (!focusNextPrevChild(true))
        setFocus(Qt::PopupFocusReason);
}

bool KVPopupWindow::focusNextPrevChild(bool next)
{
    // The window's focus chain, walked from the focused control, keeping to the card's controls.
    QWidget *const start =
        QApplication::focusWidget() && isAncestorOf(QApplication::focusWidget()) ? QApplication::focusWidget() : this;
    for (QWidget *candidate = start;;) {
        candidate = next ? candidate->nextInFocusChain() : candidate->previousInFocusChain();
        if (candidate == start)
            return false;
        if (m_card && m_card->isAncestorOf(candidate) && (candidate->focusPolicy() & Qt::TabFocus) &&
            candidate->isVisibleTo(this) && candidate->isEnabled()) {
            candidate->setFocus(next ? Qt::TabFocusReason : Qt::BacktabFocusReason);
            return true;
        }
    }
}

void KVPopupWindow::resizeEvent(QResizeEvent *)
{
    m_mask->setGeometry(rect());
    centreCard();
}

void KVPopupWindow::centreCard()
{
    if (!m_card)
        return;
    m_card->move((width() - m_card->width()) / 2, (height() - m_card->height()) / 2);
}
