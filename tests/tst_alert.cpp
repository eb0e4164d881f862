#include "Core/View/KVButton.h"
#include "Core/View/KVIFont.h"
#include "Core/View/KVTextView.h"
#include "Installer/Controllers/KVIAlertViewController.h"
#include "Installer/KVIWindow.h"
#include "KVTestSandbox.h"

#include <QLabel>

// The installer's alert: the card shows exactly the elements it was given, each whole and clear of
// the others. What its buttons answer is part of the flow's closing test.
class AlertTest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { KVIFont::setFamilyOverride(QStringLiteral("Inter")); }

    void showsTheGivenElementsApart_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("alternate");
        QTest::addColumn<QString>("checkbox");
        QTest::newRow("body only") << QString() << QString() << QString();
        QTest::newRow("message and alternate") << "Quit?"
                                               << "Quit" << QString();
        QTest::newRow("everything") << "Quit?"
                                    << "Quit"
                                    << "Do not ask again";
    }
    void showsTheGivenElementsApart()
    {
        QFETCH(QString, message);
        QFETCH(QString, alternate);
        QFETCH(QString, checkbox);
        KVIWindow window;
        KVIAlertViewController alert(
            &window, message,
            QStringLiteral("Do you want to stop the installation and quit? Nothing is changed on your computer."),
            QStringLiteral("Resume"), alternate, checkbox);

        QCOMPARE(alert.messageTextField()->isHidden(), message.isNull());
        QCOMPARE(alert.alternateButton()->isHidden(), alternate.isNull());
        QCOMPARE(alert.additionalCheckbox()->isHidden(), checkbox.isNull());
        QList<QWidget *> shown;
        for (QWidget *element :
             QList<QWidget *>{alert.messageTextField(), alert.informativeTextView(), alert.additionalCheckbox(),
                              alert.alternateButton(), alert.defaultButton()})
            if (!element->isHidden())
                shown << element;
        const QRect card = alert.view()->rect();
        for (qsizetype i = 0; i < shown.size(); ++i) {
            QVERIFY2(card.contains(shown[i]->geometry()), shown[i]->metaObject()->className());
            QVERIFY(!shown[i]->geometry().isEmpty());
            for (qsizetype j = i + 1; j < shown.size(); ++j)
                QVERIFY2(!shown[i]->geometry().intersects(shown[j]->geometry()),
                         qPrintable(QString::number(i) + " overlaps " + QString::number(j)));
        }
        // The check box flips with each click.
        alert.additionalCheckboxDidClick();
        QVERIFY(alert.additionalCheckboxChecked());
        alert.additionalCheckboxDidClick();
        QVERIFY(!alert.additionalCheckboxChecked());
        // The body is measured, not cut: it holds its wrapped text.
        const KVTextView *body = alert.informativeTextView();
        QVERIFY(body->height() >=
                KVTextMeasure::heightWithString(body->string(), body->attributes(), body->width()) - 1);
    }
};

NESTORA_TEST_MAIN(AlertTest)
#include "tst_alert.moc"
