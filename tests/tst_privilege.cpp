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

QString installScript()
{
    return QStringLiteral(NESTORA_SOURCE_DIR "/Resources/Install.sh");
}
QString applications()
{
    return KVTestSandbox::current().applicationsDirectory();
}
QString newApp()
{
    return KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/X/Nestora.app");
}

// An executable sh script with the given body, in a folder whose name needs quoting too.
QString writeScript(const QString &body)
{
    const QString path = KVTestSandbox::current().root() + QStringLiteral("/it's a $(folder); ok/script's.sh");
    if (!writeFile(path, "#!/bin/sh\n" + body.toUtf8() + '\n'))
        return {};
    QFile::setPermissions(path, QFile::permissions(path) | QFile::ExeOwner | QFile::ExeUser);
    return path;
}

// Runs the install script with the arguments; its exit code, and its output in the given channel.
// With closeOutput, nobody reads its standard output, as when the installer was killed.
std::pair<int, QString> runInstallScript(const QStringList &arguments, QProcess::ProcessChannel channel,
                                         bool closeOutput = false)
{
    QProcess script;
    script.setReadChannel(channel);
    script.start(QStringLiteral("/bin/sh"), QStringList{installScript()} + arguments);
    if (closeOutput && script.waitForStarted())
        script.closeReadChannel(QProcess::StandardOutput);
    if (!script.waitForFinished())
        return {-1, QString()};
    return {script.exitCode(), QString::fromUtf8(script.readAll())};
}

struct stat statusOf(const QString &path)
{
    struct stat status = {};
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        status.st_mode = mode_t(-1);
    return status;
}

} // namespace

class PrivilegeTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        qputenv("NESTORA_ELEVATOR", NESTORA_TEST_DATA_DIR "/elevator-standin.sh");
        QDir::setCurrent(KVTestSandbox::current().root()); // where an injected "touch pwned" would land
    }
    void init()
    {
        KVTestSandbox::current().reset();
        QFile::remove(QStringLiteral("pwned"));
        KVPrivilegeHelper::setElevator(QString());
    }

    void outcome_data()
    {
        QTest::addColumn<QString>("scriptBody");
        QTest::addColumn<QStringList>("arguments"); // each passed single-quoted, as the engine passes them
        QTest::addColumn<QString>("elevator");
        QTest::addColumn<bool>("succeeds");
        QTest::addColumn<QString>("expectedOutput");
        QTest::addColumn<QString>("expectedDescription");

        const QString none;
        const QStringList hostile{"/opt/My Apps/Nestora.app",
                                  "'a'b;touch pwned' '\\'' \"hi\" C:\\path\\",
                                  "$HOME $(touch pwned) `touch pwned`; touch pwned && echo",
                                  "first\nsecond\n",
                                  QString(),
                                  "-rf",
                                  "Приложение ✓.app"};
        QTest::newRow("arguments arrive as given")
            << "printf '%s\\0' \"$@\"" << hostile << none << true << hostile.join(QChar(0)) + QChar(0) << none;
        QTest::newRow("success with lines") << "printf 'a\\nb\\n\\n'" << QStringList() << none << true << "a\nb\n"
                                            << none;
        QTest::newRow("script fails with a message") << "echo partial; echo 'Install.sh: cannot copy' >&2; exit 1"
                                                     << QStringList() << none << false << "untouched"
                                                     << "Install.sh: cannot copy";
        QTest::newRow("script fails silently") << "exit 3" << QStringList() << none << false << "untouched" << none;
        QTest::newRow("elevator missing")
            << "echo ran" << QStringList() << "/nonexistent/pkexec" << false << "untouched" << none;
    }

    void outcome()
    {
        QFETCH(QString, scriptBody);
        QFETCH(QStringList, arguments);
        QFETCH(QString, elevator);
        QFETCH(bool, succeeds);
        QFETCH(QString, expectedOutput);
        QFETCH(QString, expectedDescription);

        KVPrivilegeHelper::setElevator(elevator);
        QStringList quoted;
        for (const QString &argument : arguments)
            quoted << KVShellQuoting::singleQuoted(argument);
        QString output = QStringLiteral("untouched");
        QString errorDescription = QStringLiteral("stale");
        QCOMPARE(
            KVPrivilegeHelper::runProcessAsAdministrator(writeScript(scriptBody), quoted, &output, &errorDescription),
            succeeds);

        QCOMPARE(output, expectedOutput);
        if (elevator.isEmpty())
            QCOMPARE(errorDescription, expectedDescription);
        else // a program that cannot be started is described by the system, in its own words
            QVERIFY(!errorDescription.isEmpty() && errorDescription != QStringLiteral("stale"));
        QVERIFY(!QFileInfo::exists(QStringLiteral("pwned")));
    }

    void installScriptReplaces_data()
    {
        QTest::addColumn<bool>("installed");
        QTest::addColumn<bool>("afterKilledRun"); // a staging folder left, and nobody reads the output

        QTest::newRow("over an installed application") << true << false;
        QTest::newRow("first installation") << false << false;
        QTest::newRow("after a killed run, output closed") << true << true;
    }

    void installScriptReplaces()
    {
        QFETCH(bool, installed);
        QFETCH(bool, afterKilledRun);

        const QString destination = applications() + QStringLiteral("/Nestora.app");
        if (installed)
            QVERIFY(writeFile(destination + QStringLiteral("/Contents/old-only.txt"), "old"));
        QVERIFY(writeFile(newApp() + QStringLiteral("/Contents/version.txt"), "2.0"));
        QVERIFY(writeFile(newApp() + QStringLiteral("/Contents/MacOS/Nestora"), "#!/bin/sh\n"));
        QVERIFY(::chmod(QFile::encodeName(newApp() + QStringLiteral("/Contents/MacOS/Nestora")).constData(), 0702) ==
                0);
        QVERIFY(::chmod(QFile::encodeName(newApp() + QStringLiteral("/Contents")).constData(), 0777) == 0);
        // As root, the copy takes the applications folder's owner.
        const bool changesOwner = ::geteuid() == 0;
        if (changesOwner)
            QCOMPARE(::chown(QFile::encodeName(applications()).constData(), 4321, 4322), 0);

        // The killed run's staging folder goes; a folder of the same pattern without its marker stays.
        const QString usersOwn = QStringLiteral(".install-mine/notes.txt");
        if (afterKilledRun) {
            QVERIFY(writeFile(applications() + QStringLiteral("/.install-AbC123/.nestora-install-staging"), ""));
            QVERIFY(writeFile(applications() + QStringLiteral("/.install-AbC123/app/Contents/old.txt"), "old"));
            QVERIFY(writeFile(applications() + QLatin1Char('/') + usersOwn, "mine"));
        }

        QCOMPARE(runInstallScript({destination, newApp(), applications()}, QProcess::StandardOutput, afterKilledRun),
                 std::make_pair(0, afterKilledRun ? QString() : "Install.sh: installed " + destination + "\n"));

        QStringList tree{"Nestora.app", "Nestora.app/Contents", "Nestora.app/Contents/MacOS",
                         "Nestora.app/Contents/MacOS/Nestora", "Nestora.app/Contents/version.txt"};
        if (afterKilledRun)
            tree = QStringList{".install-mine", usersOwn} + tree;
        QCOMPARE(treeOf(applications()), tree);
        QCOMPARE(readFile(destination + QStringLiteral("/Contents/version.txt")), QByteArray("2.0"));
        // Writable by the owner only, readable by all, executables stay executable.
        QCOMPARE(statusOf(destination + QStringLiteral("/Contents")).st_mode & 07777, mode_t(0755));
        QCOMPARE(statusOf(destination + QStringLiteral("/Contents/MacOS/Nestora")).st_mode & 07777, mode_t(0755));
        QCOMPARE(statusOf(destination + QStringLiteral("/Contents/version.txt")).st_mode & 07777, mode_t(0644));
        for (const QString &entry : tree) {
            const struct stat status = statusOf(applications() + QLatin1Char('/') + entry);
            if (changesOwner && entry.startsWith(QLatin1String("Nestora.app")))
                QCOMPARE(std::make_pair(status.st_uid, status.st_gid), std::make_pair(uid_t(4321), gid_t(4322)));
        }
        QVERIFY(QFileInfo::exists(newApp())); // copied, not taken from the user's folder
    }

    void installScriptRefuses_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");

        const QString folder = applications();
        const QString destination = folder + QStringLiteral("/Nestora.app");
        const QString link = KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/X/Link.app");
        const QString outside = KVTestSandbox::current().home() + QStringLiteral("/Nestora.app");
        const QString missing = QStringLiteral("Install.sh: the new application is missing or a link: ");
        const QString notDirectly =
            QStringLiteral("Install.sh: the application must lie directly in the applications folder: ");
        QTest::newRow("new application missing")
            << QStringList{destination, newApp() + "-missing", folder} << missing + newApp() + "-missing\n";
        QTest::newRow("new application is a link") << QStringList{destination, link, folder} << missing + link + "\n";
        QTest::newRow("destination outside the folder")
            << QStringList{outside, newApp(), folder} << notDirectly + outside + "\n";
        QTest::newRow("destination is the folder's parent")
            << QStringList{folder + "/..", newApp(), folder} << notDirectly + folder + "/..\n";
        QTest::newRow("folder missing") << QStringList{destination, newApp(), folder + "/missing"}
                                        << "Install.sh: the applications folder does not exist: " + folder +
                                               "/missing\n";
        QTest::newRow("arguments missing")
            << QStringList{destination, newApp()}
            << "Install.sh: usage: Install.sh <installed application> <new application> <applications folder>\n";
    }

    void installScriptRefuses()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);

        QVERIFY(writeFile(applications() + QStringLiteral("/Nestora.app/Contents/version.txt"), "1.0"));
        QVERIFY(writeFile(newApp() + QStringLiteral("/Contents/version.txt"), "2.0"));
        QVERIFY(QFile::link(newApp(), KVTestSandbox::current().temporaryDirectory() + QStringLiteral("/X/Link.app")));
        const QStringList before = treeOf(KVTestSandbox::current().root());

        QCOMPARE(runInstallScript(arguments, QProcess::StandardError), std::make_pair(1, message));
        QCOMPARE(treeOf(KVTestSandbox::current().root()), before); // nothing staged, nothing replaced
        QCOMPARE(readFile(applications() + QStringLiteral("/Nestora.app/Contents/version.txt")), QByteArray("1.0"));
    }
};

NESTORA_TEST_MAIN(PrivilegeTest)
#include "tst_privilege.moc"
