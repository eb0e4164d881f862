#pragma once

#include <QColor>
#include <QWidget>

// A flat coloured panel behind other views. It swallows presses (so a press on the background
// never drags the window) and scrolling (so it does not reach views behind the panel).
class KVBackgroundView : public QWidget
{
    Q_OBJECT
public:
    // Created in code the panel is clear; panelColor() is the light grey of the screens' panels.
    explicit KVBackgroundView(QWidget *parent = nullptr, const QColor &backgroundColor = Qt::transparent);

    static QColor panelColor() { return {248, 248, 248}; }

    QColor backgroundColor() const { return m_backgroundColor; }
    // Repaints only when the colour changes.
    void setBackgroundColor(const QColor &color);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;

private:
    QColor m_backgroundColor;
};
