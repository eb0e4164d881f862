#pragma once

#include <QWidget>
#include <optional>

// The installer window's plain white content view. Its background is a handle: dragging it
// moves the borderless window.
class KVIView : public QWidget
{
public:
    explicit KVIView(QWidget *parent = nullptr);

    bool mouseDownCanMoveWindow() const { return true; }

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    // Where the press grabbed the window, when the window system cannot move it by itself.
    std::optional<QPoint> m_dragOffset;
};
