#pragma once

#include "Core/View/KVToolTipContentView.h"

#include <QPointer>
#include <QWidget>

// The borderless, translucent window of a tool tip. Its frame view (a KVToolTipContentView) draws
// the balloon; the caller's content view sits inside the balloon's content rectangle. The window
// keeps the arrow's tip in place on the screen when the arrow moves to another edge.
class KVToolTipWindow : public QWidget
{
    Q_OBJECT
public:
    explicit KVToolTipWindow(const QRectF &contentRect);

    QWidget *contentView() const { return m_contentView; }
    // Sizes the window around the view's frame and puts the view inside the balloon.
    void setContentView(QWidget *view);
    KVToolTipContentView *toolTipContentView() const { return m_frameView; }

    QRectF contentRectForFrameRect(const QRectF &frameRect) const;
    QRectF frameRectForContentRect(const QRectF &contentRect) const;

    KVToolTipPosition toolTipPosition() const { return m_frameView->toolTipPosition(); }
    // Moves the arrow to the edge the position names, keeping its tip where it was on the screen.
    void setToolTipPosition(KVToolTipPosition position);
    void setArrowOffset(qreal offset);

    // The window's frame in screen space (y growing upwards).
    QRectF screenFrame() const;
    void setScreenFrame(const QRectF &frame);

Q_SIGNALS:
    // The window lost the keyboard focus it had, or is about to close. Thread: main.
    void windowDidResignKey();
    void windowWillClose();

protected:
    bool event(QEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void layoutContent();

    KVToolTipContentView *m_frameView;
    QPointer<QWidget> m_contentView;
};
