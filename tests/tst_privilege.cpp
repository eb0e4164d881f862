// Running a script as root through the elevating program, and the install script itself.

#include "App/Model/KVPrivilegeHelper.h"
#include "Core/Extensions/KVShellQuoting.h"
#include "KVTestFiles.h"
#include "KVTestSandbox.h"

#include <QProcess>

#include <sys/stat.h>
#include <unistd.h>

using namespace KVTestFiles;

namespace {

const QString kPasswordRequired = QStringLiteral("The administrator password is required to do this.");

QString standInElevator()
{
    return QStringLiteral(NESTORA_TEST_DATA_DIR "/elevator-standin.sh");
}
QString installScript()
{
    return QStringLiteral(NESTORA_SOURCE_DIR "/Resources/Install.sh");
}

// An executable sh script with the given body, in a folder whose name needs quoting too.
QString writeScript(const QString &body)
{
    const QString folder = KVTestSandbox::current().root() + QStringLiteral("/it's a $(folder); ok");
    QDir().mkpath(folder);
    const QString path = folder + QStringLiteral("/script's.sh");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {};
    file.write("#!/bin/sh\n" + body.toUtf8() + '\n');
    file.setPermissions(file.permissions() | QFile::ExeOwner | QFile::ExeUser);
    return path;
}

} // namespace

class PrivilegeTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qputenv("NESTORA_ELEVATOR", standInElevator().toUtf8()); }
    void init()
    {
        KVTestSandbox::current().reset();
        KVPrivilegeHelper::setElevator(QString());
        qunsetenv("NESTORA_STANDIN_DISMISS");
        qunsetenv("NESTORA_STANDIN_RECORD");
    }

    void argumentsRoundTrip_data();
    void argumentsRoundTrip();
    void commandLineHandedToTheElevator_data();
    void commandLineHandedToTheElevator();
    void outcome_data();
    void outcome();

    void installScriptReplaces_data();
    void installScriptReplaces();
    void installScriptRefuses_data();
    void installScriptRefuses();
    void installScriptGivesTheFolderOwner();
};

void PrivilegeTest::argumentsRoundTrip_data()
{
    QTest::addColumn<QString>("argument");

    QTest::newRow("plain") << QStringLiteral("/opt/Nestora.app");
    QTest::newRow("blanks") << QStringLiteral("/opt/My Apps/Nestora.app");
    QTest::newRow("single quote") << QStringLiteral("a'b;touch pwned");
    QTest::newRow("quote at both ends") << QStringLiteral("'x'");
    QTest::newRow("escaped quote text") << QStringLiteral("'\\''");
    QTest::newRow("double quote") << QStringLiteral("say \"hi\"");
    QTest::newRow("dollar and backticks") << QStringLiteral("$HOME $(touch pwned) `touch pwned`");
    QTest::newRow("semicolon and ampersand") << QStringLiteral("x; touch pwned && echo");
    QTest::newRow("newline") << QStringLiteral("first\nsecond\n");
    QTest::newRow("backslashes") << QStringLiteral("C:\\path\\");
    QTest::newRow("empty") << QString();
    QTest::newRow("leading dash") << QStringLiteral("-rf");
    QTest::newRow("non-ASCII") << QStringLiteral("Приложение ✓.app");
}

void PrivilegeTest::argumentsRoundTrip()
{
    QFETCH(QString, argument);

    const QString script = writeScript(QStringLiteral("printf '%s\\0' \"$@\""));
    QString output;
    QString errorDescription;
    QVERIFY(KVPrivilegeHelper::runProcessAsAdministrator(
        script, {KVShellQuoting::singleQuoted(argument), KVShellQuoting::singleQuoted(QStringLiteral("next"))},
        &output, &errorDescription));

    QCOMPARE(output, argument + QChar(0) + QStringLiteral("next") + QChar(0));
    QVERIFY(errorDescription.isNull());
    QVERIFY(!QFileInfo::exists(QStringLiteral("pwned")));
}

void PrivilegeTest::commandLineHandedToTheElevator_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("expectedTail");

    QTest::newRow("three quoted paths") << QStringList{QStringLiteral("'/opt/Nestora.app'"),
                                                       QStringLiteral("'/tmp/X/Nestora.app'"), QStringLiteral("'/opt'")}
                                        << QStringLiteral(" '/opt/Nestora.app' '/tmp/X/Nestora.app' '/opt'");
    QTest::newRow("no arguments") << QStringList() << QStringLiteral(" ");
}

void PrivilegeTest::commandLineHandedToTheElevator()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, expectedTail);

    const QString record = KVTestSandbox::current().root() + QStringLiteral("/elevator-record");
    qputenv("NESTORA_STANDIN_RECORD", record.toUtf8());
    const QString script = writeScript(QStringLiteral("exit 0"));
    QString output;
    QString errorDescription;
    QVERIFY(KVPrivilegeHelper::runProcessAsAdministrator(script, arguments, &output, &errorDescription));

    const QList<QByteArray> recorded = readFile(record).split('\0');
    QCOMPARE(recorded.size(), 4); // three arguments, each ended by a NUL
    QCOMPARE(recorded[0], QByteArray("/bin/sh"));
    QCOMPARE(recorded[1], QByteArray("-c"));
    QCOMPARE(QString::fromUtf8(recorded[2]), KVShellQuoting::singleQuoted(script) + expectedTail);
}

void PrivilegeTest::outcome_data()
{
    QTest::addColumn<QString>("scriptBody");
    QTest::addColumn<bool>("dismiss");
    QTest::addColumn<QString>("elevator");
    QTest::addColumn<bool>("succeeds");
    QTest::addColumn<QString>("expectedOutput");
    QTest::addColumn<QString>("expectedDescription");

    const QString untouched = QStringLiteral("untouched");
    QTest::newRow("success") << QStringLiteral("echo installed") << false << QString() << true
                             << QStringLiteral("installed") << QString();
    QTest::newRow("success with lines") << QStringLiteral("printf 'a\\nb\\n\\n'") << false << QString() << true
                                        << QStringLiteral("a\nb\n") << QString();
    QTest::newRow("script fails with a message")
        << QStringLiteral("echo partial; echo 'Install.sh: cannot copy' >&2; exit 1") << false << QString() << false
        << untouched << QStringLiteral("Install.sh: cannot copy");
    QTest::newRow("script fails silently")
        << QStringLiteral("exit 3") << false << QString() << false << untouched << QString();
    QTest::newRow("prompt dismissed") << QStringLiteral("echo ran") << true << QString() << false << untouched
                                      << kPasswordRequired;
    QTest::newRow("elevator missing") << QStringLiteral("echo ran") << false << QStringLiteral("/nonexistent/pkexec")
                                      << false << untouched << QString();
}

void PrivilegeTest::outcome()
{
    QFETCH(QString, scriptBody);
    QFETCH(bool, dismiss);
    QFETCH(QString, elevator);
    QFETCH(bool, succeeds);
    QFETCH(QString, expectedOutput);
    QFETCH(QString, expectedDescription);

    if (dismiss)
        qputenv("NESTORA_STANDIN_DISMISS", "1");
    KVPrivilegeHelper::setElevator(elevator);
    QString output = QStringLiteral("untouched");
    QString errorDescription = QStringLiteral("stale");
    const bool succeeded =
        KVPrivilegeHelper::runProcessAsAdministrator(writeScript(scriptBody), {}, &output, &errorDescription);

    QCOMPARE(succeeded, succeeds);
    QCOMPARE(output, expectedOutput);
    if (elevator.isEmpty())
        QCOMPARE(errorDescription, expectedDescription);
    else // a program that cannot be started is described by the system, in its own words
        QVERIFY(!errorDescription.isEmpty() && errorDescription != QStringLiteral("stale"));
}

void PrivilegeTest::installScriptReplaces_data()
{
    QTest::addColumn<bool>("installed");

    QTest::newRow("over an installed application") << true;
    QTest::newRow("first installation") << false;
}

void PrivilegeTest::installScriptReplaces()
{
    QFETCH(bool, installed);

    const QString folder = KVTestSandbox::current().applicationsDirectory();
    const QString destination = folder + QStringLiteral("/Nestora.app");
    if (installed)
        QVERIFY(writeFile(destination + QStringLiteral("/Contents/old-only.txt"), "old"));
    const QString newApp = KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/X/Nestora.app");
    QVERIFY(writeFile(newApp + QStringLiteral("/Contents/version.txt"), "2.0"));
    QVERIFY(writeFile(newApp + QStringLiteral("/Contents/MacOS/Nestora"), "#!/bin/sh\n"));
    QVERIFY(QFile::setPermissions(newApp + QStringLiteral("/Contents/MacOS/Nestora"),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::WriteOther));
    QVERIFY(::chmod(QFile::encodeName(newApp + QStringLiteral("/Contents")).constData(), 0777) == 0);

    QProcess script;
    script.start(QStringLiteral("/bin/sh"), {installScript(), destination, newApp, folder});
    QVERIFY(script.waitForFinished());
    QCOMPARE(script.exitCode(), 0);
    QCOMPARE(script.readAllStandardOutput(), ("Install.sh: installed " + destination + "\n").toUtf8());

    QCOMPARE(treeOf(folder), (QStringList{QStringLiteral("Nestora.app"), QStringLiteral("Nestora.app/Contents"),
                                          QStringLiteral("Nestora.app/Contents/MacOS"),
                                          QStringLiteral("Nestora.app/Contents/MacOS/Nestora"),
                                          QStringLiteral("Nestora.app/Contents/version.txt")}));
    QCOMPARE(readFile(destination + QStringLiteral("/Contents/version.txt")), QByteArray("2.0"));
    // Writable by the owner only, readable by all, executables stay executable.
    struct stat status;
    QCOMPARE(::stat(QFile::encodeName(destination + QStringLiteral("/Contents")).constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777, mode_t(0755));
    QCOMPARE(::stat(QFile::encodeName(destination + QStringLiteral("/Contents/MacOS/Nestora")).constData(), &status),
             0);
    QCOMPARE(status.st_mode & 07777, mode_t(0755));
    QCOMPARE(::stat(QFile::encodeName(destination + QStringLiteral("/Contents/version.txt")).constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777, mode_t(0644));
    QVERIFY(QFileInfo::exists(newApp)); // copied, not taken from the user's folder
}

void PrivilegeTest::installScriptRefuses_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");

    const QString folder = KVTestSandbox::current().applicationsDirectory();
    const QString destination = folder + QStringLiteral("/Nestora.app");
    const QString newApp = KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/X/Nestora.app");
    const QString link = KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/X/Link.app");
    QTest::newRow("new application missing")
        << QStringList{destination, newApp + QStringLiteral("-missing"), folder}
        << QStringLiteral("Install.sh: the new application is missing or a link: %1-missing\n").arg(newApp);
    QTest::newRow("new application is a link")
        << QStringList{destination, link, folder}
        << QStringLiteral("Install.sh: the new application is missing or a link: %1\n").arg(link);
    QTest::newRow("destination outside the folder")
        << QStringList{KVTestSandbox::current().home() + QStringLiteral("/Nestora.app"), newApp, folder}
        << QStringLiteral("Install.sh: the application must lie directly in the applications folder: %1\n")
               .arg(KVTestSandbox::current().home() + QStringLiteral("/Nestora.app"));
    QTest::newRow("destination is the folder's parent")
        << QStringList{folder + QStringLiteral("/.."), newApp, folder}
        << QStringLiteral("Install.sh: the application must lie directly in the applications folder: %1/..\n")
               .arg(folder);
    QTest::newRow("folder missing") << QStringList{destination, newApp, folder + QStringLiteral("/missing")}
                                    << QStringLiteral("Install.sh: the applications folder does not exist: "
                                                      "%1/missing\n")
                                           .arg(folder);
    QTest::newRow("arguments missing")
        << QStringList{destination, newApp}
        << QStringLiteral("Install.sh: usage: Install.sh <installed application> <new application> <applications "
                          "folder>\n");
}

void PrivilegeTest::installScriptRefuses()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);

    const QString folder = KVTestSandbox::current().applicationsDirectory();
    QVERIFY(writeFile(folder + QStringLiteral("/Nestora.app/Contents/version.txt"), "1.0"));
    const QString newApp = KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/X/Nestora.app");
    QVERIFY(writeFile(newApp + QStringLiteral("/Contents/version.txt"), "2.0"));
    QVERIFY(QFile::link(newApp, KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/X/Link.app")));
    const QStringList before = treeOf(KVTestSandbox::current().root());

    QProcess script;
    script.start(QStringLiteral("/bin/sh"), QStringList{installScript()} + arguments);
    QVERIFY(script.waitForFinished());
    QCOMPARE(script.exitCode(), 1);
    QCOMPARE(QString::fromUtf8(script.readAllStandardError()), message);
    QCOMPARE(treeOf(KVTestSandbox::current().root()), before); // nothing staged, nothing replaced
    QCOMPARE(readFile(folder + QStringLiteral("/Nestora.app/Contents/version.txt")), QByteArray("1.0"));
}

void PrivilegeTest::installScriptGivesTheFolderOwner()
{
    if (::geteuid() != 0)
        QSKIP("changing owners needs root");
    const QString folder = KVTestSandbox::current().applicationsDirectory();
    QCOMPARE(::chown(QFile::encodeName(folder).constData(), 4321, 4322), 0);
    const QString newApp = KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/X/Nestora.app");
    QVERIFY(writeFile(newApp + QStringLiteral("/Contents/version.txt"), "2.0"));

    QProcess script;
    script.start(QStringLiteral("/bin/sh"), {installScript(), folder + QStringLiteral("/Nestora.app"), newApp, folder});
    QVERIFY(script.waitForFinished());
    QCOMPARE(script.exitCode(), 0);

    for (const QString &entry : treeOf(folder)) {
        struct stat status;
        QCOMPARE(::lstat(QFile::encodeName(folder + QLatin1Char('/') + entry).constData(), &status), 0);
        QCOMPARE(status.st_uid, uid_t(4321));
        QCOMPARE(status.st_gid, gid_t(4322));
    }
}

NESTORA_TEST_MAIN(PrivilegeTest)
#include "tst_privilege.moc"
