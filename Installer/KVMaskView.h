#pragma once

#include <QWidget>

class KVMaskView;

// Told when the dimmed area around a popup is clicked. The mask swallows the clicks and never
// calls it: a click beside the card does not close the popup.
class KVMaskViewDelegate
{
public:
    virtual ~KVMaskViewDelegate() = default;
    virtual void maskViewDidClick(KVMaskView *maskView) = 0;
};

// The translucent black layer (15 % opacity) behind a popup card; it swallows every click.
class KVMaskView : public QWidget
{
public:
    explicit KVMaskView(QWidget *parent = nullptr);

    KVMaskViewDelegate *delegate() const { return m_delegate; }
    void setDelegate(KVMaskViewDelegate *delegate) { m_delegate = delegate; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    KVMaskViewDelegate *m_delegate = nullptr;
};
