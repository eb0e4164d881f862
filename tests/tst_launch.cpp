#include "App/Model/KVUpdateHelper.h"
#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestSandbox.h"
#include "Platform/KVDetachedProcess.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <fcntl.h>
#include <unistd.h>

namespace {

const QUrl kManifestURL(QStringLiteral("http://127.0.0.1:9/manifest.ini"));

QString applicationsFolder()
{
    return KVTestSandbox::current().applicationsDirectory();
}
QString companionPath()
{
    return applicationsFolder() + QStringLiteral("/Nestora.app");
}
QString pwnedPath()
{
    return KVTestSandbox::current().root() + QStringLiteral("/pwned");
}
QString procLink(qint64 processIdentifier, const QString &entry)
{
    return QFile::symLinkTarget(QStringLiteral("/proc/%1/%2").arg(processIdentifier).arg(entry));
}

} // namespace

// The hand-over to the companion application: the detached, retrying launch script (real launches
// of the sample application in the sandbox), and stopping every running instance of a bundle.
class LaunchTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<KVTestCompanion> m_companion;

private Q_SLOTS:
    void init()
    {
        KVTestSandbox::current().reset();
        m_companion = std::make_unique<KVTestCompanion>();
        // A launch script that ran a command hidden in a name would create this file.
        qputenv("NESTORA_PWNED", QFile::encodeName(pwnedPath()));
    }
    void cleanup() { m_companion.reset(); }

    void launchScriptStartsTheRightProgramOnce_data()
    {
        QTest::addColumn<QString>("bundleName");
        QTest::addColumn<QString>("programName"); // empty: the built one, "Nestora"
        QTest::addColumn<bool>("alreadyRunning");
        QTest::addColumn<float>("delay");
        QTest::addColumn<bool>("wrapped"); // the program is a script that execs the real one under another name

        QTest::newRow("already running: first attempt only") << "Nestora.app" << QString() << true << 0.0f << false;
        QTest::newRow("name longer than Linux keeps") << "NestoraCompanionApp.app"
                                                      << "NestoraCompanionApp" << false << 0.0f << false;
        // Linux cuts the name in the middle of the last character.
        QTest::newRow("name cut inside a character") << "Nestora.app"
                                                     << "NestoraCompañía" << false << 0.0f << false;
        QTest::newRow("bundle renamed, program not") << "Nestora 2.app" << QString() << false << 0.0f << false;
        QTest::newRow("wrapper script") << "Nestora.app" << QString() << false << 0.0f << true;
        QTest::newRow("wrapper script, already running") << "Nestora.app" << QString() << true << 0.0f << true;
        QTest::newRow("delay comes first") << "Nestora.app" << QString() << false << 0.6f << false;
        // Quotes, blanks and everything a shell would act on, in the names of bundle and program.
        const QString hostile = QStringLiteral("Nest \"o'ra\"  $(touch ${NESTORA_PWNED}) `touch ${NESTORA_PWNED}`;"
                                               "a&touch ${NESTORA_PWNED}|b>${NESTORA_PWNED}");
        QTest::newRow("shell syntax") << hostile + ".app" << hostile << false << 0.0f << false;
        const QString patterns = QStringLiteral("N.e*s[t](o)|r^a$\\ %1 %2 %@");
        QTest::newRow("pattern and format characters") << patterns + ".app" << patterns << false << 0.0f << false;
        QTest::newRow("leading dash and tilde") << "-~n.app"
                                                << "-~n" << false << 0.0f << false;
    }

    void launchScriptStartsTheRightProgramOnce()
    {
        QFETCH(QString, bundleName);
        QFETCH(QString, programName);
        QFETCH(bool, alreadyRunning);
        QFETCH(float, delay);
        QFETCH(bool, wrapped);

        const QString bundle = applicationsFolder() + QLatin1Char('/') + bundleName;
        QString program =
            bundle + QStringLiteral("/Contents/MacOS/") + (programName.isEmpty() ? "Nestora" : programName);
        QVERIFY(KVTestCompanion::install(bundle, programName));
        if (wrapped) {
            QVERIFY(QFile::rename(program, program + QStringLiteral("-bin")));
            QVERIFY(KVTestFiles::writeFile(program, "#!/bin/sh\nexec \"$0-bin\" \"$@\"\n"));
            QVERIFY(QFile::setPermissions(program, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
            program += QStringLiteral("-bin");
        }
        if (alreadyRunning)
            KVUpdateHelper::launchWithBundlePath(bundle, {QStringLiteral("first")}, 0);
        const int before = alreadyRunning ? 1 : 0;
        QCOMPARE(m_companion->settledStarts().value_or(QList<KVTestCompanion::Start>()).size(), before);
        QElapsedTimer clock;
        clock.start();
        const QStringList arguments{"$(touch ${NESTORA_PWNED})", "a b", "'",  "\"",
                                    ";touch ${NESTORA_PWNED};",  "",    "%1", "*"};
        KVUpdateHelper::launchWithBundlePath(bundle, arguments, delay);
        QTRY_COMPARE(m_companion->starts().size(), before + 1);
        QVERIFY2(clock.elapsed() >= qint64(delay * 1000), qPrintable(QString::number(clock.elapsed())));

        const std::optional<QList<KVTestCompanion::Start>> starts = m_companion->settledStarts();
        QVERIFY(starts);
        QCOMPARE(starts->size(), before + 1);
        QCOMPARE(starts->last().arguments, arguments);
        QCOMPARE(procLink(starts->last().processIdentifier, "exe"), program);
        QVERIFY(!QFileInfo::exists(pwnedPath()));
    }

    void launchedProgramIsDetached()
    {
        QVERIFY(KVTestCompanion::install(companionPath()));
        // A descriptor the launched program must not inherit (no close-on-exec flag).
        const QString markerPath = KVTestSandbox::current().root() + QStringLiteral("/inherited-marker");
        const int marker = ::open(QFile::encodeName(markerPath).constData(), O_WRONLY | O_CREAT, 0600);
        QVERIFY(marker >= 0);
        KVUpdateHelper::launchWithBundlePath(companionPath(), {}, 0);
        QTRY_COMPARE(m_companion->starts().size(), 1);
        ::close(marker);
        const qint64 process = m_companion->starts().first().processIdentifier;

        for (const QString &descriptor : QStringList{"0", "1", "2"})
            QCOMPARE(procLink(process, "fd/" + descriptor), QStringLiteral("/dev/null"));
        for (const QString &descriptor :
             QDir(QStringLiteral("/proc/%1/fd").arg(process)).entryList(QDir::Files | QDir::System))
            QVERIFY(procLink(process, "fd/" + descriptor) != markerPath);
        QCOMPARE(::getsid(pid_t(process)), pid_t(process)); // leads a session of its own
        QCOMPARE(procLink(process, "cwd"), QStringLiteral("/"));
        QFile status(QStringLiteral("/proc/%1/status").arg(process));
        QVERIFY(status.open(QIODevice::ReadOnly));
        const QByteArray statusText = status.readAll();
        const qsizetype ignored = statusText.indexOf("SigIgn:");
        QVERIFY(ignored >= 0);
        // None of the standard signals 1 to 31 ignored (the runtime may set aside its own above them).
        const quint64 ignoredSignals = statusText.mid(ignored + 7, 17).trimmed().toULongLong(nullptr, 16);
        QCOMPARE(ignoredSignals & 0x7fffffffULL, 0ULL);
    }

    void terminatesEveryInstanceOfTheBundle()
    {
        // Identifiers of this test process alone, so that no other test's instances are touched.
        const QString identifier = QStringLiteral("com.keldran.nestora.test%1").arg(QCoreApplication::applicationPid());
        const QString bystanderIdentifier = identifier + QStringLiteral(".bystander");
        const QString bystander = applicationsFolder() + QStringLiteral("/Bystander.app");
        QVERIFY(KVTestCompanion::install(companionPath(), {}, identifier));
        QVERIFY(KVTestCompanion::install(bystander, {}, bystanderIdentifier));

        KVUpdateHelper engine(kManifestURL);
        QVERIFY(!engine.terminateWithBundleId(identifier)); // none running
        const QString program = companionPath() + QStringLiteral("/Contents/MacOS/Nestora");
        for (const QString &bundle : {companionPath(), companionPath(), bystander}) {
            QVERIFY(KVDetachedProcess::start(bundle + QStringLiteral("/Contents/MacOS/Nestora"), {}));
        }
        // Another user's instance (by real user id; root may still read and signal it): a program
        // that, unlike a Qt one, runs with real and effective user ids apart.
        std::optional<qint64> othersInstance;
        if (::getuid() == 0) {
            const QString foreign = applicationsFolder() + QStringLiteral("/Foreign.app");
            const QString sleeper = foreign + QStringLiteral("/Contents/MacOS/Nestora");
            QVERIFY(KVTestCompanion::install(foreign, {}, identifier));
            QVERIFY(QFile::remove(sleeper) && QFile::copy(QStringLiteral("/usr/bin/sleep"), sleeper));
            const KVResult<qint64> started = KVDetachedProcess::start(
                QStringLiteral("/usr/bin/setpriv"), {QStringLiteral("--ruid=65534"), sleeper, QStringLiteral("600")});
            QVERIFY(started);
            othersInstance = *started;
            QTRY_COMPARE(procLink(*othersInstance, "exe"), sleeper);
        }
        QTRY_COMPARE(m_companion->starts().size(), 3);
        const QList<KVTestCompanion::Start> starts = m_companion->starts();

        QVERIFY(engine.terminateWithBundleId(identifier));
        QVERIFY(!engine.terminateWithBundleId(QString()));
        const auto runningInstances = [&] {
            return std::count_if(starts.cbegin(), starts.cend(), [](const KVTestCompanion::Start &start) {
                return KVTestCompanion::isRunning(start.processIdentifier);
            });
        };
        QTRY_COMPARE(runningInstances(), 1);
        QVERIFY(!engine.terminateWithBundleId(identifier));
        QVERIFY(!othersInstance || KVTestCompanion::isRunning(*othersInstance));
        QVERIFY(engine.terminateWithBundleId(bystanderIdentifier)); // the bystander was left alone
    }
};

NESTORA_TEST_MAIN(LaunchTest)
#include "tst_launch.moc"
