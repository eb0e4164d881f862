#include "Core/View/KVToolTip.h"

#include "Core/View/KVGeometry.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVTextView.h"
#include "Core/View/KVToolTipWindow.h"

#include <QGuiApplication>
#include <QWindow>

#include <cmath>

std::unique_ptr<KVToolTip> KVToolTip::create(const QString &toolTip)
{
    if (toolTip.isEmpty())
        return nullptr;
    return std::unique_ptr<KVToolTip>(new KVToolTip(toolTip));
}

KVTextAttributes KVToolTip::textAttributes()
{
    return {.font = KVIFont::regular12(),
            .foregroundColor = Qt::black,
            .alignment = Qt::AlignHCenter,
            .lineSpacing = 5.0,
            .wordWrap = true};
}

KVToolTip::KVToolTip(const QString &toolTip)
{
    const KVTextAttributes attributes = textAttributes();
    // Whole points, so the window's whole-pixel size leaves the text exactly the width it was measured at.
    const qreal textWidth = std::ceil(KVTextMeasure::sizeWithString(toolTip, attributes).width());
    const qreal width = std::min(textWidth + 2 * KVTextMeasure::lineFragmentPadding, maximumTextWidth);
    const qreal height = std::ceil(KVTextMeasure::heightWithString(toolTip, attributes, width));

    auto *container = new QWidget;
    container->resize(int(width + 6.0), int(height + 20.0));
    auto *text = new KVTextView(container);
    text->setAttributes(attributes);
    text->setString(toolTip);
    // Ten points above and below the text: the same from either edge.
    text->setGeometry(3, 10, int(width), int(height));

    m_window = std::make_unique<KVToolTipWindow>(QRectF(QPointF(0, 0), container->size()));
    m_window->setContentView(container);

    connect(m_window.get(), &KVToolTipWindow::windowDidResignKey, this, &KVToolTip::closeToolTip);
    connect(m_window.get(), &KVToolTipWindow::windowWillClose, this, &KVToolTip::closeToolTip);
    connect(qApp, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
        if (state != Qt::ApplicationActive)
            closeToolTip();
    });
}

KVToolTip::~KVToolTip()
{
    m_window->disconnect(this);
    m_window->hide();
}

void KVToolTip::displayToolTipInWindow(QWidget *parentWindow, QPointF point)
{
    if (!parentWindow || m_window->isVisible())
        return;
    const KVToolTipPosition position = bestPositionInWindow(parentWindow, point);
    m_window->setToolTipPosition(position);
    const QPointF anchor = m_window->toolTipContentView()->anchorPoint();
    const QPointF screenPoint = KVGeometry::toScreenSpace(parentWindow->mapToGlobal(point));
    QPointF origin(screenPoint.x() - anchor.x(), screenPoint.y());
    if (hasTopArrow(position))
        origin.setY(screenPoint.y() - (anchor.y() + m_offset));
    else if (hasBottomArrow(position))
        origin.setY(screenPoint.y() - (anchor.y() - m_offset));
    QRectF frame = m_window->screenFrame();
    frame.moveTo(origin);
    m_window->setScreenFrame(frame);
    // A transient parent keeps the balloon above its window, as a child window would.
    m_window->winId();
    m_window->windowHandle()->setTransientParent(parentWindow->window()->windowHandle());
    m_window->show();
}

void KVToolTip::closeToolTip()
{
    if (m_window->windowHandle())
        m_window->windowHandle()->setTransientParent(nullptr);
    if (m_window->isVisible())
        m_window->hide();
}

KVToolTipPosition KVToolTip::bestPositionInWindow(QWidget *parentWindow, QPointF point)
{
    // Screen space grows upwards: a rectangle's y is its bottom edge.
    const auto minY = [](const QRectF &rect) { return rect.y(); };
    const auto maxY = [](const QRectF &rect) { return rect.y() + rect.height(); };
    QWidget *window = parentWindow ? parentWindow->window() : nullptr;
    const QRectF visible = KVGeometry::toScreenSpace(QRectF(KVGeometry::visibleFrame(window)));
    const QPointF screenPoint = KVGeometry::toScreenSpace(parentWindow ? parentWindow->mapToGlobal(point) : point);
    const qreal sx = screenPoint.x(), sy = screenPoint.y();
    const QSizeF size = m_window->screenFrame().size();
    const qreal half = size.width() * 0.5;

    // Below unless there is no room below but room above.
    const bool below = !(sy - size.height() < minY(visible) && sy + size.height() < maxY(visible));

    const QRectF area = window ? KVGeometry::toScreenSpace(QRectF(window->frameGeometry())) & visible : visible;
    if (!area.isEmpty()) {
        if (area.left() > sx - half) {
            m_window->setArrowOffset((sx - area.left()) - half);
            return below ? KVToolTipPosition::BelowShiftedRight : KVToolTipPosition::AboveShiftedRight;
        }
        if (area.right() <= sx + half) {
            m_window->setArrowOffset(half - (area.right() - sx));
            return below ? KVToolTipPosition::BelowShiftedLeft : KVToolTipPosition::AboveShiftedLeft;
        }
        return below ? KVToolTipPosition::Below : KVToolTipPosition::Above;
    }
    // The window lies wholly off the visible screen: the empty area's zero edges are used as they are.
    const QRectF empty;
    if (visible.left() > sx - size.width()) {
        m_window->setArrowOffset((sx - empty.left()) - half);
        return KVToolTipPosition::AboveShiftedRight;
    }
    if (visible.right() < sx + size.width()) {
        m_window->setArrowOffset(half - (empty.right() - sx));
        return KVToolTipPosition::AboveShiftedLeft;
    }
    return below ? KVToolTipPosition::Below : KVToolTipPosition::Above;
}
