#include "App/Model/KVINI.h"
#include "Core/Extensions/KVVersionComparison.h"
#include "KVLogCapture.h"
#include "KVTestSandbox.h"

// The manifest parser and the version comparison that every update decision rests on.
class ManifestParserTest : public QObject
{
    Q_OBJECT

    // Sections render as "name: key=value|key=value", one per entry.
    static QStringList describe(const KVINI &ini)
    {
        QStringList out;
        for (const KVINISectionPtr &section : ini.sections()) {
            QStringList items;
            for (const KVINIItem &item : section->items())
                items << item.description();
            out << section->name() + QStringLiteral(": ") + items.join(QLatin1Char('|'));
        }
        return out;
    }

private Q_SLOTS:
    void parsesSections_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("header and item") << "[A]\nkey=value" << QStringList{"A: key=value"};
        QTest::newRow("null text") << QString() << QStringList{};
        QTest::newRow("blanks around brackets trimmed, inside kept")
            << " \t[ Mac_Application ]  \nk=v" << QStringList{" Mac_Application : k=v"};
        QTest::newRow("empty brackets name the empty string") << "[]\na=b" << QStringList{": a=b"};
        QTest::newRow("item before any header is ignored") << "a=b\n[S]\nc=d" << QStringList{"S: c=d"};
        QTest::newRow("blanks around equals sign are kept") << "[S]\nkey = value" << QStringList{"S: key = value"};
        QTest::newRow("second equals sign stays in the value")
            << "[S]\nURL=http://h/x?a=1&b=2" << QStringList{"S: URL=http://h/x?a=1&b=2"};
        QTest::newRow("empty key and empty value") << "[S]\n=v\nk=" << QStringList{"S: =v|k="};
        QTest::newRow("repeated sections are not merged") << "[S]\na=1\n[S]\na=2" << QStringList{"S: a=1", "S: a=2"};
        QTest::newRow("repeated keys are all kept") << "[S]\na=1\na=2" << QStringList{"S: a=1|a=2"};
        QTest::newRow("comment signs have no meaning") << "[S]\n;x=1\n#y=2" << QStringList{"S: ;x=1|#y=2"};
        QTest::newRow("CRLF line ends") << "[S]\r\na=1\r\nb=2\r\n" << QStringList{"S: a=1|b=2"};
        QTest::newRow("unicode line separators split lines")
            << QStringLiteral("[S]\u2028a=1\u2029b=2\u0085c=3\fd=4") << QStringList{"S: a=1|b=2|c=3|d=4"};
        QTest::newRow("opening bracket alone is not a header") << "[S]\n[T\na=1" << QStringList{"S: a=1"};
        QTest::newRow("binary garbage gives no section")
            << QString::fromLatin1("\x01\x02=\xff\x00", 4) << QStringList{};
    }
    void parsesSections()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, expected);
        QCOMPARE(describe(KVINI(text)), expected);
    }

    void floodOfInvalidLinesIsLoggedInPart()
    {
        // A manifest of long invalid lines must not flood the log: a few lines, each cut short.
        KVLogCapture log;
        (void)KVINI("[S]\n" + QStringList(1000, QString(5000, QLatin1Char('x'))).join('\n'));
        const QStringList lines = log.messages();
        QVERIFY2(lines.size() > 1 && lines.size() <= 20, qPrintable(QString::number(lines.size())));
        for (const QString &line : lines)
            QVERIFY(line.size() < 300);
    }

    void findsFirstSectionAndFirstKey()
    {
        const KVINI ini(QStringLiteral("[S]\n[S]\nk=2\n[Upper]\nKey=1\nKey=2"));
        QVERIFY(ini.sectionWithName(QStringLiteral("S"))->items().isEmpty()); // the first, though empty
        QCOMPARE(ini.sectionWithName(QStringLiteral("upper")), nullptr);
        const KVINISectionPtr upper = ini.sectionWithName(QStringLiteral("Upper"));
        QCOMPARE(upper->valueForKey(QStringLiteral("Key")), QStringLiteral("1"));
        QVERIFY(upper->valueForKey(QStringLiteral("key")).isNull());
        QVERIFY(KVINI::initWithContentOfFile(QStringLiteral("/etc/hostname")).sections().isEmpty());
    }

    void compareVersion_data()
    {
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("offered");
        QTest::addColumn<int>("expected");
        const std::tuple<const char *, const char *, int> rows[] = {
            {"1.2.3", "1.2.4", -1},              // patch lower
            {"1.2.10", "1.2.9", 1},              // numeric, not textual
            {"2", "2.0.0", 0},                   // trailing zeros
            {"1.0.1", "1", 1},                   // longer is higher
            {"", "0.1", -1},                     // empty counts as 0
            {"1.2beta", "1.2", 0},               // letters after digits ignored
            {"-1", "0", -1},                     // negative component
            {"1..2", "1.0.2", 0},                // a double dot is an empty component
            {" 3", "2", 1},                      // leading blanks skipped
            {"99999999999999999999999", "1", 1}, // a huge component saturates, no overflow
        };
        for (const auto &[installed, offered, expected] : rows)
            QTest::addRow("%s vs %s", installed, offered)
                << QString::fromLatin1(installed) << QString::fromLatin1(offered) << expected;
        QTest::newRow("missing receiver counts as same") << QString() << "9.9" << 0;
    }
    void compareVersion()
    {
        QFETCH(QString, installed);
        QFETCH(QString, offered);
        QFETCH(int, expected);
        QCOMPARE(int(::compareVersion(installed, offered)), expected);
    }
};

NESTORA_TEST_MAIN(ManifestParserTest)
#include "tst_manifestparser.moc"
