#include "Core/View/KVGeometry.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVTextView.h"
#include "Core/View/KVToolTip.h"
#include "Core/View/KVToolTipWindow.h"
#include "KVTestSandbox.h"

#include <cmath>

namespace {

// The arrow's tip in Qt's global coordinates.
QPointF arrowTip(const KVToolTipWindow &window)
{
    const QPointF anchor = window.toolTipContentView()->anchorPoint();
    return QPointF(window.geometry().topLeft()) + KVGeometry::flipped(anchor, window.height());
}

} // namespace

// Where the drawn tool tip goes and how its balloon is shaped, on screens injected by the test.
class ToolTipTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QWidget> m_window; // at (100, 100), 400 × 200

    std::unique_ptr<KVToolTip> showTip(QPointF point, const QString &text = QStringLiteral("Install"))
    {
        auto tip = KVToolTip::create(text);
        tip->displayToolTipInWindow(m_window.get(), point);
        return tip;
    }

private Q_SLOTS:
    void initTestCase() { KVIFont::setFamilyOverride(QStringLiteral("Inter")); }
    void init()
    {
        m_window = std::make_unique<QWidget>();
        m_window->setGeometry(100, 100, 400, 200);
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }
    void cleanup()
    {
        m_window.reset();
        KVGeometry::setVisibleFrameProvider({});
    }

    void longTextWrapsAndEmptyTextMakesNoTip()
    {
        const QString longText =
            QStringLiteral("Read the licence agreement before you continue with the installation of the application");
        auto tip = KVToolTip::create(longText);
        const auto *text = tip->window()->findChild<KVTextView *>();
        const QSizeF unwrapped = KVTextMeasure::sizeWithString(longText, KVToolTip::textAttributes());
        QVERIFY(text->width() < unwrapped.width());
        QVERIFY(text->height() > 2 * unwrapped.height()); // three lines at least, none cut
        QVERIFY(!KVToolTip::create(QString()));
    }

    void positionKeepsTheBalloonOnScreen_data()
    {
        QTest::addColumn<QRect>("visibleFrame");
        QTest::addColumn<QPoint>("point"); // in the window
        QTest::addColumn<unsigned>("position");
        const QRect wholeScreen(0, 0, 1200, 900), shortScreen(0, 0, 1200, 260);
        QTest::newRow("room everywhere: below") << wholeScreen << QPoint(200, 50) << 1u;
        QTest::newRow("right edge of the window: below, shifted left") << wholeScreen << QPoint(385, 50) << 10u;
        QTest::newRow("bottom of the screen: above") << shortScreen << QPoint(200, 150) << 3u;
        QTest::newRow("bottom left: above, shifted right") << shortScreen << QPoint(15, 150) << 9u;
        QTest::newRow("no room above either: stays below") << QRect(0, 230, 1200, 40) << QPoint(200, 150) << 1u;
        QTest::newRow("right edge of the screen cuts the window") << QRect(0, 0, 420, 900) << QPoint(310, 50) << 10u;
    }
    void positionKeepsTheBalloonOnScreen()
    {
        QFETCH(QRect, visibleFrame);
        QFETCH(QPoint, point);
        QFETCH(unsigned, position);
        KVGeometry::setVisibleFrameProvider([visibleFrame](const QWidget *) { return visibleFrame; });
        auto tip = KVToolTip::create(QStringLiteral("Read the licence agreement first"));
        const qreal offset = 16.0;
        tip->setOffset(offset);
        tip->displayToolTipInWindow(m_window.get(), point);
        KVToolTipWindow *balloon = tip->window();
        QVERIFY(balloon->isVisible());
        QCOMPARE(unsigned(balloon->toolTipPosition()), position);

        // The arrow points at the point, `offset` away from it, whichever way the balloon lies.
        const QPointF target = m_window->mapToGlobal(QPointF(point));
        const QPointF tipPoint = arrowTip(*balloon);
        const bool above = hasBottomArrow(balloon->toolTipPosition());
        QVERIFY2(qAbs(tipPoint.x() - target.x()) <= 1.0, qPrintable(QString::number(tipPoint.x())));
        QVERIFY2(qAbs(tipPoint.y() - (above ? target.y() - offset : target.y() + offset)) <= 1.0,
                 qPrintable(QString::number(tipPoint.y())));
        if (position < 8)
            return;
        // Shifted balloons stay inside the window and the visible frame; only the shadow margin may reach past.
        const QRect area = m_window->frameGeometry() & visibleFrame;
        const int margin = int(balloon->toolTipContentView()->viewMargin());
        const QRect body = balloon->geometry().adjusted(margin, 0, -margin, 0);
        QVERIFY2(body.left() >= area.left() - 1, qPrintable(QString::number(body.left())));
        QVERIFY2(body.right() <= area.right() + 1, qPrintable(QString::number(body.right())));
        const qreal arrowOffset = balloon->toolTipContentView()->arrowOffset();
        QVERIFY(position == 8 || position == 10 ? arrowOffset > 0 : arrowOffset < 0);
    }

    void changingPositionKeepsTheArrowTipInPlace()
    {
        auto tip = showTip(QPointF(200, 100));
        KVToolTipWindow *balloon = tip->window();
        QCOMPARE(balloon->toolTipPosition(), KVToolTipPosition::Below);
        const QPointF before = arrowTip(*balloon);
        const QSize size = balloon->size();

        balloon->setToolTipPosition(KVToolTipPosition::Above);
        QVERIFY(balloon->isVisible());
        QCOMPARE(balloon->size(), size);
        QCOMPARE(arrowTip(*balloon), before);
    }

    void closingHidesAndDetaches()
    {
        auto tip = showTip(QPointF(200, 100));
        QVERIFY(tip->window()->isVisible());
        QCOMPARE(tip->window()->windowHandle()->transientParent(), m_window->windowHandle());
        tip->displayToolTipInWindow(m_window.get(), QPointF(50, 50)); // already shown: stays where it is
        tip->closeToolTip();
        QVERIFY(!tip->window()->isVisible());
        QVERIFY(!tip->window()->windowHandle()->transientParent());

        tip->displayToolTipInWindow(m_window.get(), QPointF(200, 100));
        QVERIFY(tip->window()->isVisible());
        tip->window()->close(); // the window closing closes the tip
        QVERIFY(!tip->window()->isVisible());
    }
};

NESTORA_TEST_MAIN(ToolTipTest)
#include "tst_tooltip.moc"
