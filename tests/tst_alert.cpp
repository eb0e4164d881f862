#include "Core/View/KVButton.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVTextView.h"
#include "Installer/Controllers/KVIAlertViewController.h"
#include "Installer/KVIWindow.h"
#include "Installer/KVPopupWindow.h"
#include "KVTestSandbox.h"

#include <QFontMetricsF>
#include <QLabel>

// The installer's alert: how its card is laid out for each combination of elements, and what its
// buttons and check box do.
class AlertTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { KVIFont::setFamilyOverride(QStringLiteral("Inter")); }

    void layout_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("alternate");
        QTest::addColumn<QString>("checkbox");
        QTest::newRow("body only") << QString() << QString() << QString();
        QTest::newRow("message") << "Quit?" << QString() << QString();
        QTest::newRow("alternate") << QString() << "Quit" << QString();
        QTest::newRow("check box") << QString() << QString() << "Do not ask again";
        QTest::newRow("everything") << "Quit?"
                                    << "Quit"
                                    << "Do not ask again";
    }
    void layout()
    {
        QFETCH(QString, message);
        QFETCH(QString, alternate);
        QFETCH(QString, checkbox);
        KVIWindow window;
        KVIAlertViewController alert(
            &window, message,
            QStringLiteral("Do you want to stop the installation and quit? Nothing is changed on your computer."),
            QStringLiteral("Resume"), alternate, checkbox);
        const int W = alert.view()->width(), H = alert.view()->height();

        const double bodyHeight = alert.informativeTextView()->height();
        QVERIFY(bodyHeight > 14); // the measured text, at least one line
        const double buttonHeight = alert.defaultButton()->height();
        QCOMPARE(buttonHeight, qRound(QFontMetricsF(KVIFont::medium14()).lineSpacing() + 2));
        double expectedHeight = bodyHeight + buttonHeight + 75;
        if (!message.isNull())
            expectedHeight += QFontMetricsF(KVIFont::medium15()).lineSpacing() + 5 + 15;
        if (!checkbox.isNull())
            expectedHeight += QFontMetricsF(KVIFont::regular14()).lineSpacing() + 5 + 15;
        QVERIFY2(qAbs(H - expectedHeight) <= 2.0, qPrintable(QString::number(H - expectedHeight))); // whole pixels

        // Body: 30 from the left, 30 below the message or the card's top edge.
        const QRect bodyFrame = alert.informativeTextView()->geometry();
        QCOMPARE(bodyFrame.x(), 30);
        QCOMPARE(bodyFrame.width(), W - 60);
        QCOMPARE(alert.messageTextField()->isHidden(), message.isNull());
        if (message.isNull()) {
            QCOMPARE(bodyFrame.y(), 30);
        } else {
            QCOMPARE(alert.messageTextField()->geometry().y(), 15);
            QVERIFY(qAbs(bodyFrame.y() - (alert.messageTextField()->geometry().bottom() + 1 + 30)) <= 1);
        }

        // Default button: 30 from the right and bottom edges; the alternate one 30 to its left.
        const QRect defaultFrame = alert.defaultButton()->geometry();
        QCOMPARE(W - (defaultFrame.x() + defaultFrame.width()), 30);
        QCOMPARE(H - (defaultFrame.y() + defaultFrame.height()), 30);
        QCOMPARE(alert.alternateButton()->isHidden(), alternate.isNull());
        if (!alternate.isNull()) // widths are fractional
            QVERIFY(qAbs(defaultFrame.x() - (alert.alternateButton()->geometry().right() + 1) - 30) <= 1);

        QCOMPARE(alert.additionalCheckbox()->isHidden(), checkbox.isNull());
        if (!checkbox.isNull()) {
            QCOMPARE(alert.additionalCheckbox()->title(), "   " + checkbox);
            QVERIFY(qAbs(alert.additionalCheckbox()->geometry().y() - (bodyFrame.bottom() + 1 + 15)) <= 1);
        }
    }

    void buttonsEndThePopupWithTheirResponse_data()
    {
        QTest::addColumn<bool>("defaultButton");
        QTest::addColumn<QString>("response");
        QTest::newRow("default") << true << "DefaultButtonClicked";
        QTest::newRow("alternate") << false << "AlternateButtonClicked";
    }
    void buttonsEndThePopupWithTheirResponse()
    {
        QFETCH(bool, defaultButton);
        QFETCH(QString, response);
        KVIWindow window;
        window.resize(520, 360);
        window.show();
        KVIAlertViewController alert(&window, {}, QStringLiteral("Quit?"), QStringLiteral("Resume"),
                                     QStringLiteral("Quit"), {});
        QList<QVariantMap> responses;
        window.beginPopupView(alert.view(), [&](const QVariantMap &info) { responses << info; });
        QVERIFY(QTest::qWaitForWindowExposed(&window));

        KVButton *button = defaultButton ? alert.defaultButton() : alert.alternateButton();
        QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {}, button->mapTo(&window, button->rect().center()));
        QTRY_COMPARE(responses.size(), 1);
        QCOMPARE(responses.first(), (QVariantMap{{"Response", response}}));
        QCOMPARE(window.popupView(), nullptr);
    }

    void checkboxFlips()
    {
        KVIWindow window;
        KVIAlertViewController alert(&window, {}, QStringLiteral("Body"), {}, {}, QStringLiteral("Remember"));
        QCOMPARE(alert.defaultButton()->title(), QStringLiteral("OK"));
        alert.additionalCheckboxDidClick();
        QVERIFY(alert.additionalCheckboxChecked());
        QCOMPARE(alert.additionalCheckbox()->image().name(), QStringLiteral("CheckboxChecked"));
        alert.additionalCheckboxDidClick();
        QVERIFY(!alert.additionalCheckboxChecked());
        QCOMPARE(alert.additionalCheckbox()->image().name(), QStringLiteral("CheckboxUnchecked"));
    }
};

NESTORA_TEST_MAIN(AlertTest)
#include "tst_alert.moc"
