#include "Installer/KVIWindow.h"

#include "Core/View/KVGeometry.h"
#include "Installer/KVPopupWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QVBoxLayout>

KVIWindow::KVIWindow(QWidget *parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint)
{
    setAttribute(Qt::WA_StyledBackground);
    setAutoFillBackground(true);
    QPalette palette = this->palette();
    palette.setColor(QPalette::Window, Qt::white);
    setPalette(palette);
    // A click on the background takes the focus from the controls; Tab never stops on the window.
    setFocusPolicy(Qt::ClickFocus);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
}

KVIWindow::~KVIWindow()
{
    if (m_popupWindow)
        m_popupWindow->releaseCard(); // the card belongs to whoever asked for the popup
}

void KVIWindow::setContentView(QWidget *view)
{
    if (m_contentView)
        m_contentView->deleteLater();
    m_contentView = view;
    layout()->addWidget(view);
}

QPointF KVIWindow::frameOrigin() const
{
    return KVGeometry::toScreenSpace(QRectF(frameGeometry())).topLeft();
}

void KVIWindow::setFrameOrigin(QPointF origin)
{
    // The bottom-left corner in screen space is the top-left corner in Qt's global space once the
    // frame's height is accounted for.
    const QRectF frame(origin, QSizeF(frameGeometry().size()));
    move(KVGeometry::fromScreenSpace(frame).topLeft().toPoint());
}

QWidget *KVIWindow::popupView() const
{
    return m_popupWindow ? m_popupWindow->card() : nullptr;
}

void KVIWindow::beginPopupView(QWidget *card, PopupCompletionHandler handler)
{
    m_pendingPopups.push_back({card, std::move(handler)});
    if (!m_popupWindow)
        presentNextPopup();
}

void KVIWindow::presentNextPopup()
{
    while (!m_pendingPopups.empty() && !m_popupWindow) {
        PendingPopup next = std::move(m_pendingPopups.front());
        m_pendingPopups.pop_front();
        if (!next.card)
            continue; // its owner deleted the card while it waited
        m_popupCompletionHandler = std::move(next.handler);
        if (!m_focusBeforePopup)
            m_focusBeforePopup = QApplication::focusWidget();
        m_popupWindow = new KVPopupWindow(this, next.card);
        m_popupWindow->maskView()->setDelegate(this);
        next.card->show();
        m_popupWindow->show();
        m_popupWindow->raise();
        m_popupWindow->takeFocus();
    }
}

void KVIWindow::endPopupView(QWidget *card, const QVariantMap &userInfo)
{
    if (!m_popupWindow || card != m_popupWindow->card())
        return;
    // Taken first, so that a handler that ends or begins popups itself finds this one gone.
    KVPopupWindow *closing = std::exchange(m_popupWindow, nullptr);
    if (PopupCompletionHandler handler = std::exchange(m_popupCompletionHandler, {}))
        handler(userInfo);
    closing->releaseCard();
    closing->hide();
    closing->deleteLater();
    presentNextPopup();
    if (!m_popupWindow && m_focusBeforePopup) {
        if (m_focusBeforePopup->isVisible() && m_focusBeforePopup->isEnabled())
            m_focusBeforePopup->setFocus(Qt::PopupFocusReason);
        m_focusBeforePopup.clear();
    }
}

void KVIWindow::closeEvent(QCloseEvent *event)
{
    // Only the window system's own request is turned into a question; a close the program makes
    // (the application quitting) goes through.
    if (!event->spontaneous())
        return QWidget::closeEvent(event);
    event->ignore();
    Q_EMIT closeRequested();
}
