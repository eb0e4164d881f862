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
#include "Core/View/KVVAlignTextFieldCell.h"
#include "KVTestSandbox.h"

#include <QFontInfo>
#include <QTimer>
#include <QVariantAnimation>

#include <functional>

// The drawn controls as a user meets them: real mouse and keyboard events, colours read back from
// rendered pixels.
class ControlsTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void releaseOverButtonFiresOnceAfterTheEvent_data();
    void releaseOverButtonFiresOnceAfterTheEvent();
    void dragOffBeforeReleaseFiresNothing();
    void disabledButtonIgnoresHoverPressAndFocus();
    void statesPaintTheirColours_data();
    void statesPaintTheirColours();
    void focusRingShowsOnlyWhenFocusedAlone_data();
    void focusRingShowsOnlyWhenFocusedAlone();
    void underlineOvershootsByOnePointPerCharacter();
    void menuButtonKeepsFullOpacityWhenDisabled();
    void toolTipPopsAfterRestOnlyWithoutPress();
    void toolTipNeverPopsUnderAnotherWindow();
    void toolTipTextAppendsToTitle_data();
    void toolTipTextAppendsToTitle();
    void checkBoxTogglesAndNotifiesEverySet();
    void checkBoxReleaseOutsideDoesNotToggle();
    void progressBarWidth_data();
    void progressBarWidth();
    void sweepDurationFollowsTrackWidth_data();
    void sweepDurationFollowsTrackWidth();
    void sweepRestartsOnlyAfterAFinishedPassWhenRunning();
    void sweepRunsOnlyWhileVisible();
    void textHeightOfMissingInputIsZero();
    void measuredHeightHoldsTheDrawnText_data();
    void measuredHeightHoldsTheDrawnText();
    void verticalCentringInset_data();
    void verticalCentringInset();
    void backgroundViewColour();

private:
    // A white window holding the control 20 points in from its edges, shown.
    QWidget *stage(QWidget *control, QSize size);
    QColor pixel(QWidget *control, QPointF at) const;

    std::unique_ptr<QWidget> m_stage;
};

namespace {

const QColor white(255, 255, 255);

// A colour seen through the given opacity over white.
QColor overWhite(const QColor &color, qreal opacity)
{
    const auto mix = [opacity](int component) { return qRound(255 - opacity * (255 - component)); };
    return QColor(mix(color.red()), mix(color.green()), mix(color.blue()));
}

bool near(const QColor &actual, const QColor &expected, int tolerance = 3)
{
    return std::abs(actual.red() - expected.red()) <= tolerance &&
           std::abs(actual.green() - expected.green()) <= tolerance &&
           std::abs(actual.blue() - expected.blue()) <= tolerance;
}

QString describe(const QColor &color)
{
    return QStringLiteral("(%1, %2, %3)").arg(color.red()).arg(color.green()).arg(color.blue());
}

using ButtonFactory = std::function<KVButton *()>;

} // namespace

Q_DECLARE_METATYPE(ButtonFactory)

QWidget *ControlsTest::stage(QWidget *control, QSize size)
{
    m_stage = std::make_unique<KVBackgroundView>(nullptr, Qt::white);
    m_stage->resize(size + QSize(80, 40));
    control->setParent(m_stage.get());
    control->move(20, 20);
    m_stage->show();
    // Nothing starts focused: the tests that want focus give it.
    if (QTest::qWaitForWindowActive(m_stage.get()) && QApplication::focusWidget())
        QApplication::focusWidget()->clearFocus();
    QCoreApplication::processEvents();
    return control;
}

QColor ControlsTest::pixel(QWidget *control, QPointF at) const
{
    const QImage image = m_stage->grab().toImage();
    return image.pixelColor((QPointF(control->pos()) + at).toPoint());
}

void ControlsTest::initTestCase()
{
    KVIFont::setFamilyOverride(QStringLiteral("Inter"));
}

void ControlsTest::cleanup()
{
    m_stage.reset();
    QCursor::setPos(0, 0); // no hover carried into the next test
}

void ControlsTest::releaseOverButtonFiresOnceAfterTheEvent_data()
{
    QTest::addColumn<ButtonFactory>("make");
    QTest::newRow("primary") << ButtonFactory([] { return new KVPrimaryButton; });
    QTest::newRow("secondary") << ButtonFactory([] { return new KVSecondaryButton; });
    QTest::newRow("tertiary") << ButtonFactory([] { return new KVTertiaryButton; });
    QTest::newRow("dialog default") << ButtonFactory([] { return new KVPrimary4DialogButton; });
    QTest::newRow("dialog alternate") << ButtonFactory([] { return new KVSecondary4DialogButton; });
    QTest::newRow("link") << ButtonFactory([] { return new KVLinkButton; });
    QTest::newRow("menu") << ButtonFactory([] { return new KVMenuButton; });
    QTest::newRow("icon") << ButtonFactory([] {
        return new KVIconButton(KVImage::named("installer_window_close"),
                                KVImage::named("installer_window_close hover"),
                                KVImage::named("installer_window_close pressed"));
    });
}

void ControlsTest::releaseOverButtonFiresOnceAfterTheEvent()
{
    QFETCH(ButtonFactory, make);
    KVButton *button = make();
    button->setTitle(QStringLiteral("Continue"));
    stage(button, {120, 32})->resize(120, 32);
    QSignalSpy clicked(button, &KVButton::clicked);

    QTest::mousePress(button, Qt::LeftButton, {}, QPoint(60, 16));
    QVERIFY(button->flag() & KVButton::Pressed);
    QTest::mouseRelease(button, Qt::LeftButton, {}, QPoint(60, 16));
    QCOMPARE(clicked.count(), 0); // not while the release is being handled
    QVERIFY(!(button->flag() & KVButton::Pressed));
    QTRY_COMPARE(clicked.count(), 1);
    QCOMPARE(clicked.first().first().value<KVButton *>(), button);
    QCoreApplication::processEvents();
    QCOMPARE(clicked.count(), 1);
}

void ControlsTest::dragOffBeforeReleaseFiresNothing()
{
    auto *button = new KVPrimaryButton;
    button->setTitle(QStringLiteral("Continue"));
    stage(button, {120, 32})->resize(120, 32);
    QSignalSpy clicked(button, &KVButton::clicked);
    const QColor active = pixel(button, {8, 16});

    QTest::mousePress(button, Qt::LeftButton, {}, QPoint(60, 16));
    QVERIFY2(near(pixel(button, {8, 16}), QColor(0, 88, 156)), qPrintable(describe(pixel(button, {8, 16}))));
    QMouseEvent drag(QEvent::MouseMove, QPointF(200, 16), button->mapToGlobal(QPointF(200, 16)), Qt::NoButton,
                     Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(button, &drag);
    QTest::mouseRelease(button, Qt::LeftButton, {}, QPoint(200, 16));
    QCoreApplication::processEvents();

    QCOMPARE(clicked.count(), 0);
    QVERIFY(!(button->flag() & KVButton::Pressed));
    QCOMPARE(pixel(button, {8, 16}), active);
}

void ControlsTest::disabledButtonIgnoresHoverPressAndFocus()
{
    auto *button = new KVSecondaryButton;
    button->setTitle(QStringLiteral("Cancel"));
    stage(button, {120, 32})->resize(120, 32);
    button->setEnabled(false);
    QSignalSpy clicked(button, &KVButton::clicked);

    QTest::mouseMove(button, QPoint(60, 16));
    QTest::mouseClick(button, Qt::LeftButton, {}, QPoint(60, 16));
    button->setFocus();
    QCoreApplication::processEvents();

    QCOMPARE(clicked.count(), 0);
    QVERIFY(!button->hasFocus());
    QCOMPARE(button->flag(), unsigned(KVButton::Active | KVButton::Disabled));
    // Its disabled colours at 40 %: the blue border fades towards white.
    QVERIFY2(near(pixel(button, {60, 0}), overWhite(QColor(0, 120, 214), 0.4), 6),
             qPrintable(describe(pixel(button, {60, 0}))));
}

void ControlsTest::statesPaintTheirColours_data()
{
    QTest::addColumn<ButtonFactory>("make");
    QTest::addColumn<unsigned>("flag");
    QTest::addColumn<QPointF>("at");
    QTest::addColumn<QColor>("expected");
    QTest::addColumn<int>("tolerance");

    const ButtonFactory primary = [] { return new KVPrimaryButton; };
    const ButtonFactory secondary = [] { return new KVSecondaryButton; };
    const ButtonFactory tertiary = [] { return new KVTertiaryButton; };
    const ButtonFactory menu = [] { return new KVMenuButton; };
    // A focused fill is translucent: the layer's shadow darkens it a little, as a layer's would.
    const QPointF fill(8, 16), border(60, 0);
    QTest::newRow("primary active") << primary << 1u << fill << QColor(0, 120, 214) << 3;
    QTest::newRow("primary hovered") << primary << 3u << fill << QColor(26, 153, 253) << 3;
    QTest::newRow("primary pressed over hovered") << primary << 11u << fill << QColor(0, 88, 156) << 3;
    QTest::newRow("primary disabled over pressed")
        << primary << 13u << fill << overWhite(QColor(0, 120, 214), 0.4) << 3;
    QTest::newRow("secondary active border") << secondary << 1u << border << QColor(0, 120, 214) << 3;
    QTest::newRow("secondary hovered border") << secondary << 3u << border << QColor(26, 153, 253) << 3;
    QTest::newRow("secondary focused fill") << secondary << 17u << fill << overWhite(QColor(26, 153, 253), 0.15) << 12;
    QTest::newRow("secondary pressed fill stays white") << secondary << 9u << fill << white << 3;
    QTest::newRow("tertiary focused fill")
        << tertiary << 17u << QPointF(2, 16) << overWhite(QColor(9, 149, 238), 0.15) << 12;
    QTest::newRow("tertiary hovered has no fill") << tertiary << 19u << QPointF(2, 16) << white << 3;
    QTest::newRow("menu hovered fill") << menu << 3u << QPointF(4, 16) << QColor(210, 226, 241) << 3;
    QTest::newRow("menu pressed fill") << menu << 9u << QPointF(4, 16) << QColor(210, 226, 241) << 3;
}

void ControlsTest::statesPaintTheirColours()
{
    QFETCH(ButtonFactory, make);
    QFETCH(unsigned, flag);
    QFETCH(QPointF, at);
    QFETCH(QColor, expected);
    QFETCH(int, tolerance);
    KVButton *button = make();
    button->setTitle(QStringLiteral("OK"));
    stage(button, {120, 32})->resize(120, 32);
    if (flag & KVButton::Disabled)
        button->setEnabled(false);
    button->setFlag(flag);
    button->setNeedsDisplay();
    const QColor actual = pixel(button, at);
    QVERIFY2(near(actual, expected, tolerance), qPrintable(describe(actual) + " instead of " + describe(expected)));
}

void ControlsTest::focusRingShowsOnlyWhenFocusedAlone_data()
{
    QTest::addColumn<bool>("hover");
    QTest::addColumn<bool>("ringShown");
    QTest::newRow("focused") << false << true;
    QTest::newRow("focused and hovered") << true << false;
}

void ControlsTest::focusRingShowsOnlyWhenFocusedAlone()
{
    QFETCH(bool, hover);
    QFETCH(bool, ringShown);
    auto *button = new KVPrimaryButton;
    button->setTitle(QStringLiteral("Continue"));
    stage(button, {120, 32})->resize(120, 32);
    m_stage->activateWindow();
    button->setFocus(Qt::TabFocusReason);
    QTRY_VERIFY(button->hasFocus());
    if (hover)
        QTest::mouseMove(button, QPoint(60, 16));

    // Two points outside the capsule's bottom edge lies the middle of the 3-point ring.
    const QColor outside = pixel(button, {60, 32 + 2});
    const bool bluish = outside.blue() - outside.red() > 40;
    QVERIFY2(bluish == ringShown, qPrintable(describe(outside)));
    // The ring's inner fill stays empty: the capsule's own colour shows.
    QVERIFY(near(pixel(button, {60, 2}), QColor(0, 120, 214)) || hover);
}

void ControlsTest::underlineOvershootsByOnePointPerCharacter()
{
    auto *button = new KVTertiaryButton;
    const QString title = QStringLiteral("Details"); // 7 characters
    button->setTitle(title);
    stage(button, {100, 28})->resize(100, 28);
    QTest::mouseMove(button, QPoint(50, 14));
    QTRY_VERIFY(button->flag() & KVButton::Hovered);

    const qreal row = 27; // the button's last row
    QVERIFY(near(pixel(button, {10, row}), QColor(0, 120, 214)));
    QVERIFY(near(pixel(button, {100 + 6, row}), QColor(0, 120, 214)));
    QVERIFY(near(pixel(button, {100 + 8, row}), white));

    QTest::mouseMove(m_stage.get(), QPoint(2, 2));
    QTRY_VERIFY(!(button->flag() & KVButton::Hovered));
    QVERIFY2(near(pixel(button, {10, row}), white), qPrintable(describe(pixel(button, {10, row}))));
}

void ControlsTest::menuButtonKeepsFullOpacityWhenDisabled()
{
    const auto darkest = [this](KVButton *button) {
        const QImage image = m_stage->grab().toImage().copy(QRect(button->pos(), button->size()));
        int value = 255;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                value = std::min(value, qGray(image.pixel(x, y)));
        return value;
    };
    auto *menu = new KVMenuButton;
    menu->setTitle(QStringLiteral("Check for updates"));
    stage(menu, {180, 32})->resize(180, 32);
    menu->setEnabled(false);
    QVERIFY2(darkest(menu) <= 165, qPrintable(QString::number(darkest(menu)))); // grey 155 text

    auto *link = new KVLinkButton;
    link->setTitle(QStringLiteral("Check for updates"));
    link->setTextColor(QColor(74, 74, 74));
    stage(link, {180, 32})->resize(180, 32);
    link->setEnabled(false);
    QVERIFY2(darkest(link) >= 150, qPrintable(QString::number(darkest(link)))); // 74 at 40 % is 183
}

void ControlsTest::toolTipPopsAfterRestOnlyWithoutPress()
{
    auto *button = new KVPrimaryButton;
    button->setTitle(QStringLiteral("Continue"));
    button->setToolTip(QStringLiteral("Install the update"));
    stage(button, {120, 32})->resize(120, 32);

    QTest::mouseMove(button, QPoint(60, 16));
    auto *timer = button->findChild<QTimer *>();
    QVERIFY(timer);
    QVERIFY(timer->isActive() && timer->isSingleShot());
    QCOMPARE(timer->interval(), 1000);
    QVERIFY(!button->shownToolTip());
    button->popToolTip(); // what the timer runs when it fires
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

void ControlsTest::toolTipNeverPopsUnderAnotherWindow()
{
    auto *button = new KVPrimaryButton;
    button->setTitle(QStringLiteral("Continue"));
    button->setToolTip(QStringLiteral("Install the update"));
    stage(button, {120, 32})->resize(120, 32);
    QTest::mouseMove(button, QPoint(60, 16));
    QVERIFY(button->findChild<QTimer *>());

    QWidget cover;
    cover.setGeometry(QRect(button->mapToGlobal(QPoint(0, 0)), QSize(200, 100)));
    cover.show();
    QVERIFY(QTest::qWaitForWindowExposed(&cover));
    button->popToolTip();
    QVERIFY(!button->shownToolTip());
}

void ControlsTest::toolTipTextAppendsToTitle_data()
{
    QTest::addColumn<QStringList>("texts");
    QTest::addColumn<QString>("expected");
    QTest::newRow("title then another text")
        << QStringList{"Continue", "Installs the update"} << "Continue\nInstalls the update";
    QTest::newRow("title twice") << QStringList{"Continue", "Continue"} << "Continue";
    QTest::newRow("two texts") << QStringList{"First", "Second"} << "Second";
    QTest::newRow("title, other, another") << QStringList{"Continue", "A", "B"} << "B";
    QTest::newRow("cleared") << QStringList{"Continue", QString()} << "";
}

void ControlsTest::toolTipTextAppendsToTitle()
{
    QFETCH(QStringList, texts);
    QFETCH(QString, expected);
    KVPrimaryButton button;
    button.setTitle(QStringLiteral("Continue"));
    for (const QString &text : texts)
        button.setToolTip(text);
    QCOMPARE(button.toolTip(), expected);
}

void ControlsTest::checkBoxTogglesAndNotifiesEverySet()
{
    auto *box = new KVCheckBox;
    stage(box, {18, 18})->resize(18, 18);
    QSignalSpy changed(box, &KVCheckBox::checkedChanged);
    QVERIFY(!box->checked());
    const QPointF inBox(4, 4); // inside the box, clear of the tick
    QVERIFY(near(pixel(box, inBox), white));

    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(9, 9));
    QVERIFY(box->checked());
    QVERIFY2(near(pixel(box, inBox), QColor(0, 120, 214)), qPrintable(describe(pixel(box, inBox))));
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(9, 9));
    QVERIFY(!box->checked());
    QCOMPARE(changed.count(), 2);

    box->setChecked(true);
    box->setChecked(true);
    QCOMPARE(changed.count(), 4);
    QCOMPARE(changed.last().first().toBool(), true);

    box->setCheckedImage(QStringLiteral("no such artwork")); // draws no image, and does not fail
    QVERIFY(near(pixel(box, inBox), white));
}

void ControlsTest::checkBoxReleaseOutsideDoesNotToggle()
{
    auto *box = new KVCheckBox;
    stage(box, {18, 18})->resize(18, 18);
    QTest::mousePress(box, Qt::LeftButton, {}, QPoint(9, 9));
    QVERIFY(box->pressed());
    QTest::mouseRelease(box, Qt::LeftButton, {}, QPoint(40, 9));
    QVERIFY(!box->pressed());
    QVERIFY(!box->checked());
}

void ControlsTest::progressBarWidth_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<double>("barWidth");
    QTest::addColumn<bool>("filledAtRightEnd");
    QTest::newRow("0: only the track") << 0.0 << 0.0 << false;
    QTest::newRow("0.5") << 0.5 << 150.0 << false;
    QTest::newRow("1: the whole track") << 1.0 << 300.0 << true;
    QTest::newRow("above 1: wider than the track") << 1.5 << 450.0 << true;
}

void ControlsTest::progressBarWidth()
{
    QFETCH(double, value);
    QFETCH(double, barWidth);
    QFETCH(bool, filledAtRightEnd);
    auto *indicator = new KVProgressIndicator;
    stage(indicator, {300, 6})->resize(300, 6);
    indicator->setDoubleValue(value);
    QCOMPARE(indicator->barRect().width(), barWidth);

    const QColor track(232, 231, 231);
    const QColor end = pixel(indicator, {296, 3});
    QVERIFY2(near(end, track) != filledAtRightEnd, qPrintable(describe(end)));
    if (value > 0)
        QVERIFY(near(pixel(indicator, {2, 3}), QColor(0, 120, 214), 12));
}

void ControlsTest::sweepDurationFollowsTrackWidth_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("milliseconds");
    QTest::newRow("300") << 300 << 4000; // 2 × 400 / 200
    QTest::newRow("500") << 500 << 3000;
    QTest::newRow("150: narrow tracks sweep slowly") << 150 << 10000;
}

void ControlsTest::sweepDurationFollowsTrackWidth()
{
    QFETCH(int, width);
    QFETCH(int, milliseconds);
    auto *indicator = new KVProgressIndicator;
    stage(indicator, {width, 6})->resize(width, 6);
    indicator->setIndeterminate(true);
    indicator->startAnimation();
    auto *sweep = indicator->findChild<QVariantAnimation *>();
    QVERIFY(sweep);
    QCOMPARE(sweep->duration(), milliseconds);
    QCOMPARE(sweep->startValue().toPointF(), QPointF(-100, 0));
    QCOMPARE(sweep->endValue().toPointF(), QPointF(width, 0));
}

void ControlsTest::sweepRestartsOnlyAfterAFinishedPassWhenRunning()
{
    auto *indicator = new KVProgressIndicator;
    stage(indicator, {300, 6})->resize(300, 6);
    indicator->setIndeterminate(true);
    indicator->startAnimation();
    auto *sweep = indicator->findChild<QVariantAnimation *>();
    QVERIFY(sweep);

    sweep->setCurrentTime(sweep->duration()); // the pass finishes: a new one starts
    QCOMPARE(sweep->state(), QAbstractAnimation::Running);
    QVERIFY(sweep->currentTime() < sweep->duration());

    sweep->setCurrentTime(sweep->duration() * 3 / 10); // a band at x = 20 … 120
    QVERIFY(near(pixel(indicator, {60, 3}), QColor(0, 120, 214), 40));

    indicator->stopAnimation();
    QVERIFY(!indicator->findChild<QVariantAnimation *>());
    // Grey and parked 40 points in: 40 … 140.
    const QColor band = pixel(indicator, {90, 3});
    QVERIFY2(band.red() == band.blue() && band.red() >= 109 && band.red() <= 155, qPrintable(describe(band)));
    QVERIFY(near(pixel(indicator, {20, 3}), QColor(232, 231, 231)));
    QVERIFY(near(pixel(indicator, {200, 3}), QColor(232, 231, 231)));

    indicator->setIndeterminate(false);
    QVERIFY(near(pixel(indicator, {90, 3}), QColor(232, 231, 231)));
}

void ControlsTest::sweepRunsOnlyWhileVisible()
{
    auto *indicator = new KVProgressIndicator;
    stage(indicator, {300, 6})->resize(300, 6);
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
}

void ControlsTest::textHeightOfMissingInputIsZero()
{
    QVERIFY(QFontInfo(KVIFont::regular14()).family().startsWith(QStringLiteral("Inter")));
    QCOMPARE(KVTextMeasure::heightWithString(QString(), KVIFont::regular14(), 100), 0.0);
    QCOMPARE(KVTextMeasure::heightWithString(QStringLiteral("text"), std::nullopt, 100), 0.0);
    QCOMPARE(KVTextMeasure::heightWithString(QStringLiteral("text"), KVIFont::regular14(), -1), 0.0);
    QCOMPARE(KVTextMeasure::heightWithString(QStringLiteral("text"), KVTextAttributes{}, -1), 0.0);
    QVERIFY(KVTextMeasure::heightWithString(QStringLiteral("text"), KVTextAttributes{}, 100) > 0);
}

void ControlsTest::measuredHeightHoldsTheDrawnText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("width");
    QTest::addColumn<qreal>("lineSpacing");
    QTest::addColumn<int>("lines");
    QTest::newRow("one line") << "Checking for updates" << 300 << 8.0 << 1;
    QTest::newRow("wrapped") << "Downloading the device data files takes a moment" << 150 << 8.0 << 3;
    QTest::newRow("two paragraphs") << "First line\nSecond line" << 300 << 5.0 << 2;
    QTest::newRow("no spacing, wrapped") << "Downloading the device data files" << 120 << 0.0 << 2;
}

void ControlsTest::measuredHeightHoldsTheDrawnText()
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
    stage(view, {width, int(std::ceil(height)) + 40})->resize(width, int(std::ceil(height)) + 40);
    const QImage image = m_stage->grab().toImage().copy(QRect(view->pos(), view->size()));
    int lowestInk = -1;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (qGray(image.pixel(x, y)) < 128)
                lowestInk = y;
    QVERIFY(lowestInk < height - lineSpacing);
    QVERIFY(lowestInk > height - lineSpacing - lineHeight);
}

void ControlsTest::verticalCentringInset_data()
{
    QTest::addColumn<qreal>("extra"); // frame height beyond one line
    QTest::addColumn<qreal>("inset");
    QTest::newRow("exactly one line: grown by 1") << 0.0 << -1.0;
    QTest::newRow("10 taller") << 10.0 << 4.0;
    QTest::newRow("11 taller: rounded down") << 11.0 << 4.0;
    QTest::newRow("3 shorter") << -3.0 << -3.0;
}

void ControlsTest::verticalCentringInset()
{
    QFETCH(qreal, extra);
    QFETCH(qreal, inset);
    const QFont font = KVIFont::medium15();
    const QFontMetricsF metrics(font);
    const qreal line = metrics.ascent() + metrics.descent();
    const QRectF frame(5, 7, 200, line + extra);
    const QRectF adjusted = KVVAlignTextFieldCell::adjustedFrameToVerticallyCenterText(frame, font);
    QCOMPARE(adjusted, frame.adjusted(0, inset, 0, -inset));
}

void ControlsTest::backgroundViewColour()
{
    auto *panel = new KVBackgroundView;
    stage(panel, {40, 40})->resize(40, 40);
    m_stage->setStyleSheet({});
    static_cast<KVBackgroundView *>(m_stage.get())->setBackgroundColor(QColor(229, 76, 85));
    QCOMPARE(pixel(panel, {20, 20}), QColor(229, 76, 85)); // a panel made in code is clear
    panel->setBackgroundColor(KVBackgroundView::panelColor());
    QCOMPARE(pixel(panel, {20, 20}), QColor(248, 248, 248));
}

NESTORA_TEST_MAIN(ControlsTest)
#include "tst_controls.moc"
