#include "Core/View/KVAccessibleControls.h"
#include "Core/View/KVBackgroundView.h"
#include "Core/View/KVCapsuleButtons.h"
#include "Core/View/KVCheckBox.h"
#include "Core/View/KVFlatButtons.h"
#include "Core/View/KVGeometry.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVPlainButtons.h"
#include "Core/View/KVProgressIndicator.h"
#include "Core/View/KVTextView.h"
#include "Core/View/KVToolTip.h"
#include "Core/View/KVToolTipWindow.h"
#include "KVTestSandbox.h"

#include <QAccessible>
#include <QTimer>

#include <functional>

namespace {

// A control in one state, as the test meets it.
using ControlFactory = std::function<QWidget *()>;
template <typename Control> ControlFactory control(std::function<void(Control *)> setUp = [](Control *) {})
{
    return [setUp] {
        auto *made = new Control;
        setUp(made);
        return made;
    };
}

// The tool tip arrow's tip in Qt's global coordinates.
QPointF arrowTip(const KVToolTipWindow &window)
{
    const QPointF anchor = window.toolTipContentView()->anchorPoint();
    return QPointF(window.geometry().topLeft()) + KVGeometry::flipped(anchor, window.height());
}

} // namespace

Q_DECLARE_METATYPE(ControlFactory)

// The drawn controls as a user meets them, with real mouse and keyboard events, and where the
// drawn tool tip goes on screens injected by the test.
class ControlsTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QWidget> m_stage;

    // Puts the control, resized, 20 points into a shown white window at (100, 100) with nothing focused.
    template <typename Control> Control *stage(Control *control, QSize size = {120, 32})
    {
        m_stage = std::make_unique<KVBackgroundView>(nullptr, Qt::white);
        m_stage->setGeometry(QRect(QPoint(100, 100), size + QSize(80, 40)));
        control->setParent(m_stage.get());
        control->setGeometry(QRect(QPoint(20, 20), size));
        m_stage->show();
        if (QTest::qWaitForWindowActive(m_stage.get()) && QApplication::focusWidget())
            QApplication::focusWidget()->clearFocus();
        QCoreApplication::processEvents();
        return control;
    }

private Q_SLOTS:
    void initTestCase()
    {
        KVIFont::setFamilyOverride(QStringLiteral("Inter"));
        KVAccessibleControls::install();
    }
    void cleanup()
    {
        m_stage.reset();
        KVGeometry::setVisibleFrameProvider({});
        QCursor::setPos(0, 0); // no hover carried into the next test
    }

    void clickFiresOnlyOnReleaseOverTheButtonAfterTheEvent_data()
    {
        QTest::addColumn<ControlFactory>("make");
        QTest::newRow("primary") << control<KVPrimaryButton>();
        QTest::newRow("link") << control<KVLinkButton>();
        QTest::newRow("icon") << ControlFactory([] {
            return new KVIconButton(KVImage::named("installer_window_close"),
                                    KVImage::named("installer_window_close hover"),
                                    KVImage::named("installer_window_close pressed"));
        });
    }
    void clickFiresOnlyOnReleaseOverTheButtonAfterTheEvent()
    {
        QFETCH(ControlFactory, make);
        auto *button = stage(static_cast<KVButton *>(make()));
        QSignalSpy clicked(button, &KVButton::clicked);

        // Dragged off before the release: nothing fires. Other mouse buttons do nothing.
        QTest::mousePress(button, Qt::LeftButton, {}, QPoint(60, 16));
        QVERIFY(button->flag() & KVButton::Pressed);
        QMouseEvent drag(QEvent::MouseMove, QPointF(200, 16), button->mapToGlobal(QPointF(200, 16)), Qt::NoButton,
                         Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(button, &drag);
        QTest::mouseRelease(button, Qt::LeftButton, {}, QPoint(200, 16));
        for (const Qt::MouseButton other : {Qt::RightButton, Qt::MiddleButton})
            QTest::mouseClick(button, other, {}, QPoint(60, 16));
        QCoreApplication::processEvents();
        QCOMPARE(clicked.count(), 0);
        QVERIFY(!(button->flag() & KVButton::Pressed));

        QTest::mousePress(button, Qt::LeftButton, {}, QPoint(60, 16));
        QTest::mouseRelease(button, Qt::LeftButton, {}, QPoint(60, 16));
        QCOMPARE(clicked.count(), 0); // not while the release is being handled
        QVERIFY(!(button->flag() & KVButton::Pressed));
        QTRY_COMPARE(clicked.count(), 1);
        QCOMPARE(clicked.first().first().value<KVButton *>(), button);

        // The keyboard presses as the primary mouse button does.
        button->setFocus();
        QTest::keyClick(button, Qt::Key_Space);
        QTest::keyClick(button, Qt::Key_Return);
        QTRY_COMPARE(clicked.count(), 3);
    }

    void accessibleInterfaces_data()
    {
        QTest::addColumn<ControlFactory>("make");
        QTest::addColumn<QAccessible::Role>("role");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("states"); // of disabled, checkable, checked, busy
        QTest::addColumn<QVariant>("value");
        const auto title = [](const QString &text) { return [text](KVButton *button) { button->setTitle(text); }; };
        QTest::newRow("primary disabled") << control<KVPrimaryButton>([](KVButton *button) {
            button->setTitle(QStringLiteral("Continue"));
            button->setEnabled(false);
        }) << QAccessible::Button << "Continue"
                                          << QStringList{"disabled"} << QVariant();
        QTest::newRow("link") << control<KVLinkButton>(title("Details")) << QAccessible::Link << "Details"
                              << QStringList{} << QVariant();
        QTest::newRow("icon, named by its tool tip")
            << control<KVIconButton>([](KVIconButton *button) { button->setToolTip(QStringLiteral("Minimize")); })
            << QAccessible::Button << "Minimize" << QStringList{} << QVariant();
        QTest::newRow("check box ticked") << control<KVCheckBox>([](KVCheckBox *box) {
            box->setTitle(QStringLiteral("Remember"));
            box->setChecked(true);
        }) << QAccessible::CheckBox << "Remember"
                                          << QStringList{"checkable", "checked"} << QVariant();
        QTest::newRow("progress sweeping") << control<KVProgressIndicator>([](KVProgressIndicator *bar) {
            bar->resize(300, 6);
            bar->setIndeterminate(true);
            bar->startAnimation();
        }) << QAccessible::ProgressBar << ""
                                           << QStringList{"busy"} << QVariant(0.0);
        QTest::newRow("status text") << control<KVTextView>([](KVTextView *view) {
            view->setStatus(true);
            view->setString(QStringLiteral("Downloading"));
        }) << QAccessible::StatusBar << "Downloading"
                                     << QStringList{} << QVariant();
    }
    void accessibleInterfaces()
    {
        QFETCH(ControlFactory, make);
        QFETCH(QAccessible::Role, role);
        QFETCH(QString, name);
        QFETCH(QStringList, states);
        QFETCH(QVariant, value);
        QWidget *widget = stage(make());
        QAccessibleInterface *accessible = QAccessible::queryAccessibleInterface(widget);
        QVERIFY(accessible);
        QCOMPARE(accessible->role(), role);
        QCOMPARE(accessible->text(QAccessible::Name), name);
        const QAccessible::State state = accessible->state();
        QStringList shown;
        for (const auto &[has, label] : {std::pair{bool(state.disabled), "disabled"},
                                         {bool(state.checkable), "checkable"},
                                         {bool(state.checked), "checked"},
                                         {bool(state.busy), "busy"}})
            if (has)
                shown << QString::fromLatin1(label);
        QCOMPARE(shown, states);
        QAccessibleValueInterface *valueInterface = accessible->valueInterface();
        QCOMPARE(valueInterface ? valueInterface->currentValue() : QVariant(), value);

        // What it can do, done as a screen reader does it.
        QAccessibleActionInterface *actions = accessible->actionInterface();
        if (auto *button = qobject_cast<KVButton *>(widget)) {
            QSignalSpy clicked(button, &KVButton::clicked);
            actions->doAction(QAccessibleActionInterface::pressAction());
            QCoreApplication::processEvents();
            QCOMPARE(clicked.count(), button->isEnabled() ? 1 : 0);
        } else if (auto *box = qobject_cast<KVCheckBox *>(widget)) {
            const bool wasChecked = box->checked();
            actions->doAction(QAccessibleActionInterface::toggleAction());
            QCOMPARE(box->checked(), !wasChecked);
            QCOMPARE(accessible->state().checked, !wasChecked);
        } else {
            QVERIFY(!actions || actions->actionNames().isEmpty());
        }
    }

    void checkBoxTogglesOnReleaseInsideAndNotifiesEverySet()
    {
        auto *box = stage(new KVCheckBox, {18, 18});
        QSignalSpy changed(box, &KVCheckBox::checkedChanged);
        QTest::mousePress(box, Qt::LeftButton, {}, QPoint(9, 9));
        QVERIFY(box->pressed());
        QTest::mouseRelease(box, Qt::LeftButton, {}, QPoint(40, 9));
        QVERIFY(!box->pressed() && !box->checked());

        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(9, 9));
        QVERIFY(box->checked());
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(9, 9));
        QVERIFY(!box->checked());
        QCOMPARE(changed.count(), 2);
        box->setChecked(true);
        box->setChecked(true);
        QCOMPARE(changed.count(), 4); // every set is announced, a change or not
    }

    void toolTipPopsAfterRestOnlyWithoutPressNorUnderAnotherWindow()
    {
        auto *button = stage(new KVPrimaryButton);
        button->setToolTip(QStringLiteral("Install the update"));
        QTest::mouseMove(button, QPoint(60, 16));
        QTRY_VERIFY(button->findChild<QTimer *>());
        QVERIFY(!button->shownToolTip());
        {
            QWidget cover;
            cover.setGeometry(QRect(button->mapToGlobal(QPoint(0, 0)), QSize(200, 100)));
            cover.show();
            QVERIFY(QTest::qWaitForWindowExposed(&cover));
            button->popToolTip(); // what the timer runs when it fires
            QVERIFY(!button->shownToolTip());
        }
        button->popToolTip();
        QVERIFY(button->shownToolTip() && button->shownToolTip()->window()->isVisible());

        // A press closes the tip, and no tip pops again during this hover.
        QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(60, 16));
        QVERIFY(!button->shownToolTip());
        button->popToolTip();
        QVERIFY(!button->shownToolTip());

        // Leaving drops the timer; the next hover arms a new one.
        QTest::mouseMove(m_stage.get(), QPoint(2, 2));
        QTRY_VERIFY(!button->findChild<QTimer *>());
        QTest::mouseMove(button, QPoint(60, 16));
        QTRY_VERIFY(button->findChild<QTimer *>());
        button->popToolTip();
        QVERIFY(button->shownToolTip());
        button->setToolTip(QString());
        QVERIFY(!button->shownToolTip());

        // Long text wraps, whole; empty text makes no tip.
        const QString longText =
            QStringLiteral("Read the licence agreement before you continue with the installation of the application");
        const auto longTip = KVToolTip::create(longText);
        const auto *text = longTip->window()->findChild<KVTextView *>();
        const QSizeF unwrapped = KVTextMeasure::sizeWithString(longText, KVToolTip::textAttributes());
        QVERIFY(text->width() < unwrapped.width());
        QVERIFY(text->height() > 2 * unwrapped.height());
        QVERIFY(!KVToolTip::create(QString()));
    }

    void toolTipKeepsTheBalloonOnScreen_data()
    {
        QTest::addColumn<QRect>("visibleFrame");
        QTest::addColumn<QPoint>("point"); // in the 400 × 200 window
        QTest::addColumn<unsigned>("position");
        const QRect wholeScreen(0, 0, 1200, 900), shortScreen(0, 0, 1200, 260);
        QTest::newRow("room everywhere: below") << wholeScreen << QPoint(200, 50) << 1u;
        QTest::newRow("right edge of the window: below, shifted left") << wholeScreen << QPoint(385, 50) << 10u;
        QTest::newRow("bottom of the screen: above") << shortScreen << QPoint(200, 150) << 3u;
        QTest::newRow("bottom left: above, shifted right") << shortScreen << QPoint(15, 150) << 9u;
        QTest::newRow("no room above either: stays below") << QRect(0, 230, 1200, 40) << QPoint(200, 150) << 1u;
        QTest::newRow("right edge of the screen cuts the window") << QRect(0, 0, 420, 900) << QPoint(310, 50) << 10u;
    }
    void toolTipKeepsTheBalloonOnScreen()
    {
        QFETCH(QRect, visibleFrame);
        QFETCH(QPoint, point);
        QFETCH(unsigned, position);
        KVGeometry::setVisibleFrameProvider([visibleFrame](const QWidget *) { return visibleFrame; });
        stage(new QWidget, {320, 160});
        auto tip = KVToolTip::create(QStringLiteral("Read the licence agreement first"));
        const qreal offset = 16.0;
        tip->setOffset(offset);
        tip->displayToolTipInWindow(m_stage.get(), point);
        KVToolTipWindow *balloon = tip->window();
        QVERIFY(balloon->isVisible());
        QCOMPARE(balloon->windowHandle()->transientParent(), m_stage->windowHandle());
        QCOMPARE(unsigned(balloon->toolTipPosition()), position);

        // The arrow points at the point, `offset` away from it, whichever way the balloon lies.
        const QPointF target = m_stage->mapToGlobal(QPointF(point));
        const QPointF tipPoint = arrowTip(*balloon);
        const bool above = hasBottomArrow(balloon->toolTipPosition());
        QVERIFY2(qAbs(tipPoint.x() - target.x()) <= 1.0, qPrintable(QString::number(tipPoint.x())));
        QVERIFY2(qAbs(tipPoint.y() - (above ? target.y() - offset : target.y() + offset)) <= 1.0,
                 qPrintable(QString::number(tipPoint.y())));
        if (position >= 8) {
            // Shifted balloons stay inside the window and the visible frame; only the shadow margin may reach past.
            const QRect area = m_stage->frameGeometry() & visibleFrame;
            const int margin = int(balloon->toolTipContentView()->viewMargin());
            const QRect body = balloon->geometry().adjusted(margin, 0, -margin, 0);
            QVERIFY2(body.left() >= area.left() - 1, qPrintable(QString::number(body.left())));
            QVERIFY2(body.right() <= area.right() + 1, qPrintable(QString::number(body.right())));
            const qreal arrowOffset = balloon->toolTipContentView()->arrowOffset();
            QVERIFY(position == 8 || position == 10 ? arrowOffset > 0 : arrowOffset < 0);

        } else {
            // Turned the other way, the arrow's tip stays.
            const QSize size = balloon->size();
            balloon->setToolTipPosition(above ? KVToolTipPosition::Below : KVToolTipPosition::Above);
            QCOMPARE(balloon->size(), size);
            QCOMPARE(arrowTip(*balloon), tipPoint);
        }
        tip->displayToolTipInWindow(m_stage.get(), QPointF(50, 50)); // already shown: stays where it is
        QCOMPARE(arrowTip(*balloon), tipPoint);

        // Closing hides and detaches it; the window closing closes it too.
        tip->closeToolTip();
        QVERIFY(!balloon->isVisible() && !balloon->windowHandle()->transientParent());
        tip->displayToolTipInWindow(m_stage.get(), point);
        QVERIFY(balloon->isVisible());
        balloon->close();
        QVERIFY(!balloon->isVisible());
    }
};

NESTORA_TEST_MAIN(ControlsTest)
#include "tst_controls.moc"
