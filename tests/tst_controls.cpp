#include "Core/View/KVAccessibleControls.h"
#include "Core/View/KVBackgroundView.h"
#include "Core/View/KVCapsuleButtons.h"
#include "Core/View/KVCheckBox.h"
#include "Core/View/KVFlatButtons.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVPlainButtons.h"
#include "Core/View/KVProgressIndicator.h"
#include "Core/View/KVTextView.h"
#include "KVTestSandbox.h"

#include <QAccessible>

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

} // namespace

Q_DECLARE_METATYPE(ControlFactory)

// The drawn controls as a user meets them, with real mouse and keyboard events and through the
// accessibility interfaces a screen reader uses.
class ControlsTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QWidget> m_stage;

    // Puts the control, 120 × 32, 20 points into a shown white window with nothing focused.
    template <typename Control> Control *stage(Control *control)
    {
        m_stage = std::make_unique<KVBackgroundView>(nullptr, Qt::white);
        m_stage->setGeometry(100, 100, 200, 72);
        control->setParent(m_stage.get());
        control->setGeometry(20, 20, 120, 32);
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
};

NESTORA_TEST_MAIN(ControlsTest)
#include "tst_controls.moc"
