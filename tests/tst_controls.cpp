#include "Core/View/KVAccessibleControls.h"
#include "Core/View/KVBackgroundView.h"
#include "Core/View/KVCapsuleButtons.h"
#include "Core/View/KVCheckBox.h"
#include "Core/View/KVFlatButtons.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVPlainButtons.h"
#include "Core/View/KVProgressIndicator.h"
#include "Core/View/KVTextView.h"
#include "Core/View/KVToolTip.h"
#include "Core/View/KVToolTipWindow.h"
#include "KVTestSandbox.h"

#include <QAccessible>
#include <QTimer>
#include <QVariantAnimation>

#include <functional>

namespace {

const QColor white(255, 255, 255), blue(0, 120, 214), track(232, 231, 231);

bool near(const QColor &actual, const QColor &expected, int tolerance = 3)
{
    return std::abs(actual.red() - expected.red()) <= tolerance &&
           std::abs(actual.green() - expected.green()) <= tolerance &&
           std::abs(actual.blue() - expected.blue()) <= tolerance;
}

// Fails, naming both colours, unless each channel is within `tolerance`.
#define VERIFY_NEAR(actual, expected, tolerance)                                                                       \
    do {                                                                                                               \
        const QColor seen = (actual), wanted = (expected);                                                             \
        QVERIFY2(near(seen, wanted, tolerance), qPrintable(seen.name() + " instead of " + wanted.name()));             \
    } while (false)

using ButtonFactory = std::function<KVButton *()>;
template <typename Button> ButtonFactory make()
{
    return [] { return new Button; };
}

// A control in one state, as assistive technology is to see it.
using ControlFactory = std::function<QWidget *()>;
template <typename Control> ControlFactory control(std::function<void(Control *)> setUp)
{
    return [setUp] {
        auto *made = new Control;
        setUp(made);
        return made;
    };
}

} // namespace

Q_DECLARE_METATYPE(ButtonFactory)
Q_DECLARE_METATYPE(ControlFactory)

// The drawn controls as a user meets them: real mouse and keyboard events, colours read back from
// rendered pixels.
class ControlsTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QWidget> m_stage;

    // Puts the control, resized, 20 points into a shown white window with nothing focused.
    template <typename Control> Control *stage(Control *control, QSize size)
    {
        m_stage = std::make_unique<KVBackgroundView>(nullptr, Qt::white);
        m_stage->resize(size + QSize(80, 40));
        control->setParent(m_stage.get());
        control->setGeometry(QRect(QPoint(20, 20), size));
        m_stage->show();
        if (QTest::qWaitForWindowActive(m_stage.get()) && QApplication::focusWidget())
            QApplication::focusWidget()->clearFocus();
        QCoreApplication::processEvents();
        return control;
    }
    KVButton *stageButton(KVButton *button, const QString &title = QStringLiteral("Continue"), QSize size = {120, 32})
    {
        button->setTitle(title);
        return stage(button, size);
    }
    QImage shot(const QWidget *control) const
    {
        return m_stage->grab().toImage().copy(QRect(control->pos(), control->size()));
    }
    QColor pixel(const QWidget *control, QPointF at) const
    {
        return m_stage->grab().toImage().pixelColor((QPointF(control->pos()) + at).toPoint());
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
        QCursor::setPos(0, 0); // no hover carried into the next test
    }

    void clickFiresOnlyOnReleaseOverTheButtonAfterTheEvent_data()
    {
        QTest::addColumn<ButtonFactory>("make");
        QTest::newRow("primary") << make<KVPrimaryButton>();
        QTest::newRow("link") << make<KVLinkButton>();
        QTest::newRow("icon") << ButtonFactory([] {
            return new KVIconButton(KVImage::named("installer_window_close"),
                                    KVImage::named("installer_window_close hover"),
                                    KVImage::named("installer_window_close pressed"));
        });
    }
    void clickFiresOnlyOnReleaseOverTheButtonAfterTheEvent()
    {
        QFETCH(ButtonFactory, make);
        KVButton *button = stageButton(make());
        QSignalSpy clicked(button, &KVButton::clicked);
        const QColor idle = pixel(button, {8, 16});

        // Dragged off before the release: nothing fires, and the button looks as before.
        QTest::mousePress(button, Qt::LeftButton, {}, QPoint(60, 16));
        QVERIFY(button->flag() & KVButton::Pressed);
        QMouseEvent drag(QEvent::MouseMove, QPointF(200, 16), button->mapToGlobal(QPointF(200, 16)), Qt::NoButton,
                         Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(button, &drag);
        QTest::mouseRelease(button, Qt::LeftButton, {}, QPoint(200, 16));
        QCoreApplication::processEvents();
        QCOMPARE(clicked.count(), 0);
        QVERIFY(!(button->flag() & KVButton::Pressed));
        QCOMPARE(pixel(button, {8, 16}), idle);

        QTest::mousePress(button, Qt::LeftButton, {}, QPoint(60, 16));
        QTest::mouseRelease(button, Qt::LeftButton, {}, QPoint(60, 16));
        QCOMPARE(clicked.count(), 0); // not while the release is being handled
        QVERIFY(!(button->flag() & KVButton::Pressed));
        QTRY_COMPARE(clicked.count(), 1);
        QCOMPARE(clicked.first().first().value<KVButton *>(), button);
        QCoreApplication::processEvents();
        QCOMPARE(clicked.count(), 1);
    }

    void onlyThePrimaryButtonActs()
    {
        KVButton *button = stageButton(new KVPrimaryButton);
        QSignalSpy clicked(button, &KVButton::clicked);
        auto *box = new KVCheckBox(m_stage.get());
        box->setGeometry(20, 60, 18, 18);
        box->show();
        for (const Qt::MouseButton other : {Qt::RightButton, Qt::MiddleButton}) {
            QTest::mouseClick(button, other, {}, QPoint(60, 16));
            QTest::mouseClick(box, other, {}, QPoint(9, 9));
        }
        QCoreApplication::processEvents();
        QCOMPARE(clicked.count(), 0);
        QVERIFY(!(button->flag() & KVButton::Pressed) && !box->checked());

        // The keyboard presses as the primary button does: Space and Return on a button, Space on a box.
        button->setFocus();
        QTest::keyClick(button, Qt::Key_Space);
        QTest::keyClick(button, Qt::Key_Return);
        QTRY_COMPARE(clicked.count(), 2);
        QTest::keyClick(box, Qt::Key_Space);
        QVERIFY(box->checked());
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
        QWidget *widget = stage(make(), {120, 32});
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

    void focusRingShowsOnlyWhileNeitherHoveredNorPressed()
    {
        KVButton *button = stageButton(new KVPrimaryButton);
        const QPointF aboveTheCapsule(60, -2);
        VERIFY_NEAR(pixel(button, aboveTheCapsule), white, 3);
        button->setFlag(KVButton::Active | KVButton::Focused);
        button->setNeedsDisplay();
        QVERIFY(!near(pixel(button, aboveTheCapsule), white, 12));
        button->setFlag(KVButton::Active | KVButton::Focused | KVButton::Hovered);
        button->setNeedsDisplay();
        VERIFY_NEAR(pixel(button, aboveTheCapsule), white, 3);
    }

    void toolTipPopsAfterRestOnlyWithoutPressNorUnderAnotherWindow()
    {
        KVButton *button = stageButton(new KVPrimaryButton);
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
        QVERIFY(button->shownToolTip());
        QVERIFY(button->shownToolTip()->window()->isVisible());

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
    }

    void checkBoxTogglesOnReleaseInsideAndNotifiesEverySet()
    {
        auto *box = stage(new KVCheckBox, {18, 18});
        QSignalSpy changed(box, &KVCheckBox::checkedChanged);
        const QPointF inBox(4, 4); // inside the box, clear of the tick
        VERIFY_NEAR(pixel(box, inBox), white, 3);

        QTest::mousePress(box, Qt::LeftButton, {}, QPoint(9, 9));
        QVERIFY(box->pressed());
        QTest::mouseRelease(box, Qt::LeftButton, {}, QPoint(40, 9));
        QVERIFY(!box->pressed() && !box->checked());

        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(9, 9));
        QVERIFY(box->checked());
        VERIFY_NEAR(pixel(box, inBox), blue, 3);
        QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(9, 9));
        QVERIFY(!box->checked());
        QCOMPARE(changed.count(), 2);

        box->setChecked(true);
        box->setChecked(true);
        QCOMPARE(changed.count(), 4); // every set is announced, a change or not

        box->setCheckedImage(QStringLiteral("no such artwork")); // draws no image, and does not fail
        VERIFY_NEAR(pixel(box, inBox), white, 3);
    }

    void progressBarFillsToItsValue_data()
    {
        QTest::addColumn<double>("value");
        QTest::newRow("0: only the track") << 0.0;
        QTest::newRow("1: the whole track") << 1.0;
        QTest::newRow("above 1: the whole track") << 1.5;
    }
    void progressBarFillsToItsValue()
    {
        QFETCH(double, value);
        auto *indicator = stage(new KVProgressIndicator, {300, 6});
        indicator->setDoubleValue(value);
        const QColor end = pixel(indicator, {296, 3});
        QVERIFY2(near(end, track) == (value < 1), qPrintable(end.name()));
        QCOMPARE(near(pixel(indicator, {2, 3}), blue, 12), value > 0);
    }

    void sweepRunsWhileVisibleAndRestartsAfterEachPass()
    {
        auto *indicator = stage(new KVProgressIndicator, {300, 6});
        indicator->hide();
        indicator->setIndeterminate(true);
        indicator->startAnimation();
        auto *sweep = indicator->findChild<QVariantAnimation *>();
        QVERIFY(sweep);
        QCOMPARE(sweep->state(), QAbstractAnimation::Stopped);
        indicator->show();
        QCOMPARE(sweep->state(), QAbstractAnimation::Running);
        indicator->hide();
        QCOMPARE(sweep->state(), QAbstractAnimation::Paused);
        indicator->show();
        QCOMPARE(sweep->state(), QAbstractAnimation::Running);

        sweep->setCurrentTime(sweep->duration()); // the pass finishes: a new one starts
        QCOMPARE(sweep->state(), QAbstractAnimation::Running);
        QVERIFY(sweep->currentTime() < sweep->duration());

        // Stopped, the band stays, grey; a determinate bar at 0 shows only the track.
        indicator->stopAnimation();
        QVERIFY(!indicator->findChild<QVariantAnimation *>());
        const auto trackOnly = [&] {
            for (int x = 2; x < 300; x += 4)
                if (!near(pixel(indicator, {qreal(x), 3}), track, 3))
                    return false;
            return true;
        };
        QVERIFY(!trackOnly());
        indicator->setIndeterminate(false);
        QVERIFY(trackOnly());
    }

    void measuredHeightHoldsTheDrawnText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("width");
        QTest::addColumn<qreal>("lineSpacing");
        QTest::addColumn<int>("lines");
        QTest::newRow("one line") << "Checking for updates" << 300 << 8.0 << 1;
        QTest::newRow("wrapped") << "Downloading the device data files takes a moment" << 150 << 8.0 << 3;
        QTest::newRow("no spacing, wrapped inside the padding")
            << "Downloading the device data files" << 120 << 0.0 << 3;
    }
    void measuredHeightHoldsTheDrawnText()
    {
        QFETCH(QString, text);
        QFETCH(int, width);
        QFETCH(qreal, lineSpacing);
        QFETCH(int, lines);
        const KVTextAttributes attributes{
            .font = KVIFont::regular14(), .alignment = Qt::AlignHCenter, .lineSpacing = lineSpacing};
        const double height = KVTextMeasure::heightWithString(text, attributes, width);
        const qreal lineHeight = QFontMetricsF(KVIFont::regular14()).height();
        QVERIFY2(qAbs(height - lines * (lineHeight + lineSpacing)) < lines * 2.0, qPrintable(QString::number(height)));

        // Drawn at that height, the text's lowest ink lies within its last line.
        auto *view = new KVTextView;
        view->setAttributes(attributes);
        view->setString(text);
        const QImage image = shot(stage(view, {width, int(std::ceil(height)) + 40}));
        int lowestInk = -1;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                if (qGray(image.pixel(x, y)) < 128)
                    lowestInk = y;
        QVERIFY(lowestInk < height - lineSpacing);
        QVERIFY(lowestInk > height - lineSpacing - lineHeight);
    }
};

NESTORA_TEST_MAIN(ControlsTest)
#include "tst_controls.moc"
