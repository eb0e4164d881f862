#include "KVTestCompanion.h"

#include "KVTestProcess.h"
#include "KVTestSandbox.h"
#include "Platform/KVPropertyList.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace {
QByteArray processFile(qint64 processIdentifier, const char *name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(processIdentifier).arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QList<qint64> processIdentifiers()
{
    QList<qint64> identifiers;
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool isNumber = false;
        const qint64 identifier = entry.toLongLong(&isNumber);
        if (isNumber && identifier != QCoreApplication::applicationPid())
            identifiers << identifier;
    }
    return identifiers;
}

enum class SandboxProcess { Launcher, Instance };

// Processes of the sandbox: launchers (the scripts and the programs they run, such as setsid,
// before they become the application) mention it on their command line; instances run a program
// that lies in it.
QList<qint64> sandboxProcesses(SandboxProcess kind)
{
    const QByteArray root = QFile::encodeName(KVTestSandbox::current().root());
    QList<qint64> found;
    for (const qint64 identifier : processIdentifiers()) {
        const QByteArray program =
            QFile::encodeName(QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(identifier)));
        const bool isInstance = program.startsWith(root);
        const bool isLauncher = !isInstance && processFile(identifier, "cmdline").contains(root);
        if (kind == SandboxProcess::Instance ? isInstance : isLauncher)
            found << identifier;
    }
    return found;
}
} // namespace

KVTestCompanion::KVTestCompanion()
    : m_recordPath(KVTestSandbox::current().root() + QStringLiteral("/companion-launches.jsonl"))
{
    // Launched instances leave their short-lived parents behind; adopting them lets stopAll()
    // collect them instead of leaving zombies whose names pgrep would still find.
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    qputenv("NESTORA_COMPANION_RECORD", QFile::encodeName(m_recordPath));
}

QString KVTestCompanion::builtBundlePath()
{
    return QStringLiteral(NESTORA_BUILD_DIR "/companion/Nestora.app");
}

bool KVTestCompanion::install(const QString &bundlePath, const QString &executableName, const QString &bundleIdentifier)
{
    QDir().mkpath(QFileInfo(bundlePath).path());
    if (!KVTestProcess::run({QStringLiteral("cp"), QStringLiteral("-R"), builtBundlePath(), bundlePath}).succeeded())
        return false;
    const QString infoPath = bundlePath + QStringLiteral("/Contents/Info.plist");
    QVariantMap info = KVPropertyList::readDictionary(infoPath).valueOr({});
    if (!executableName.isEmpty()) {
        const QString folder = bundlePath + QStringLiteral("/Contents/MacOS/");
        if (!QFile::rename(folder + info.value(QStringLiteral("CFBundleExecutable")).toString(),
                           folder + executableName))
            return false;
        info.insert(QStringLiteral("CFBundleExecutable"), executableName);
    }
    if (!bundleIdentifier.isEmpty())
        info.insert(QStringLiteral("CFBundleIdentifier"), bundleIdentifier);
    return KVPropertyList::writeDictionary(infoPath, info).ok();
}

QList<KVTestCompanion::Start> KVTestCompanion::starts() const
{
    QList<Start> starts;
    QFile record(m_recordPath);
    if (!record.open(QIODevice::ReadOnly))
        return starts;
    for (const QByteArray &line : record.readAll().split('\n')) {
        const QJsonObject start = QJsonDocument::fromJson(line).object();
        if (start.isEmpty())
            continue;
        QStringList arguments;
        for (const QJsonValue &argument : start.value(QStringLiteral("arguments")).toArray())
            arguments << argument.toString();
        starts << Start{start.value(QStringLiteral("pid")).toInteger(), arguments};
    }
    return starts;
}

bool KVTestCompanion::waitForLaunchScripts(int timeoutMilliseconds)
{
    const QDeadlineTimer deadline(timeoutMilliseconds);
    while (!sandboxProcesses(SandboxProcess::Launcher).isEmpty()) {
        if (deadline.hasExpired())
            return false;
        QThread::msleep(20);
    }
    return true;
}

std::optional<QList<KVTestCompanion::Start>> KVTestCompanion::settledStarts(int timeoutMilliseconds) const
{
    // Nothing announces the last start of a script, and a process is briefly neither launcher nor
    // instance while it replaces its program, so the state must hold for a while to count.
    constexpr qint64 kQuietMilliseconds = 300;
    const QDeadlineTimer deadline(timeoutMilliseconds);
    QElapsedTimer quiet;
    quiet.start();
    while (!quiet.hasExpired(kQuietMilliseconds)) {
        if (deadline.hasExpired())
            return std::nullopt;
        if (!sandboxProcesses(SandboxProcess::Launcher).isEmpty() ||
            starts().size() < sandboxProcesses(SandboxProcess::Instance).size())
            quiet.restart();
        QThread::msleep(20);
    }
    return starts();
}

bool KVTestCompanion::isRunning(qint64 processIdentifier)
{
    // A killed process that nobody collected yet is a zombie: "Z" in its stat line.
    const QByteArray stat = processFile(processIdentifier, "stat");
    const qsizetype end = stat.lastIndexOf(')');
    return end > 0 && stat.mid(end + 2, 1) != "Z";
}

void KVTestCompanion::stopAll()
{
    if (!waitForLaunchScripts())
        qWarning("launch scripts still running at clean-up");
    const QList<qint64> running = sandboxProcesses(SandboxProcess::Instance);
    for (const qint64 identifier : running)
        ::kill(pid_t(identifier), SIGKILL);
    for (const qint64 identifier : running)
        ::waitpid(pid_t(identifier), nullptr, 0); // ours, since this process adopts orphans
    // Instances killed by the test itself are zombies now; collect those too.
    for (const Start &start : starts())
        ::waitpid(pid_t(start.processIdentifier), nullptr, WNOHANG);
    QFile::remove(m_recordPath);
}
