#pragma once

#include "Installer/KVMaskView.h"

#include <QPointer>
#include <QVariantMap>
#include <QWidget>
#include <deque>
#include <functional>

class KVPopupWindow;

// The installer's one window: borderless and white, dragged by its background, and able to show
// one popup card at a time over a dimmed copy of itself. Popups requested while one is shown wait
// their turn and are served in order. A popup takes the keyboard focus (its card's focus proxy, else
// its first control) and gives it back when it ends.
class KVIWindow : public QWidget, public KVMaskViewDelegate
{
    Q_OBJECT
public:
    // Thread: main. Receives the user info the popup was ended with.
    using PopupCompletionHandler = std::function<void(const QVariantMap &userInfo)>;

    explicit KVIWindow(QWidget *parent = nullptr);
    ~KVIWindow() override;

    void setContentView(QWidget *view);
    QWidget *contentView() const { return m_contentView; }

    // The frame's bottom-left corner in screen space (y grows upwards from the screen's bottom).
    QPointF frameOrigin() const;
    void setFrameOrigin(QPointF origin);

    // Thread: main. Queues the card and returns at once; it is shown when every earlier popup has
    // ended. The window keeps no ownership of the card.
    void beginPopupView(QWidget *card, PopupCompletionHandler handler);
    // Ends the popup of that card (nothing happens for any other card): the handler runs with
    // the user info, then the popup closes and the next queued one is shown.
    void endPopupView(QWidget *card) { endPopupView(card, {}); }
    void endPopupView(QWidget *card, const QVariantMap &userInfo);
    QWidget *popupView() const;
    KVPopupWindow *popupWindow() const { return m_popupWindow; }

    void maskViewDidClick(KVMaskView *) override {}

Q_SIGNALS:
    // The window manager asked to close the window (Alt+F4, a task bar's close): the window stays,
    // and whoever owns the close button decides, as for a click on it.
    void closeRequested();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    struct PendingPopup
    {
        QPointer<QWidget> card;
        PopupCompletionHandler handler;
    };

    void presentNextPopup();

    QWidget *m_contentView = nullptr;
    // Where the keyboard focus was when the popup came, to give it back when the popup ends.
    QPointer<QWidget> m_focusBeforePopup;
    std::deque<PendingPopup> m_pendingPopups;
    KVPopupWindow *m_popupWindow = nullptr;
    PopupCompletionHandler m_popupCompletionHandler;
};
