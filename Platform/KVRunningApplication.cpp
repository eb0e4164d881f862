#include "Platform/KVRunningApplication.h"

#include "Platform/KVBundle.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <algorithm>
#include <climits>
#include <csignal>
#include <optional>
#include <unistd.h>

namespace {
const QLatin1String kExecutableFolderSuffix("/Contents/MacOS");
const QLatin1String kDeletedSuffix(" (deleted)");

// The executable of a process, or nothing when it cannot be read (gone, kernel thread, other user).
QString executableOfProcess(qint64 processIdentifier)
{
    const QByteArray link = "/proc/" + QByteArray::number(processIdentifier) + "/exe";
    char target[PATH_MAX];
    const ssize_t length = ::readlink(link.constData(), target, sizeof target);
    if (length <= 0 || length == ssize_t(sizeof target))
        return {};
    QString path = QFile::decodeName(QByteArray(target, length));
    // A process whose program file was replaced while it ran still belongs to its bundle.
    if (path.endsWith(kDeletedSuffix) && !QFileInfo::exists(path))
        path.chop(kDeletedSuffix.size());
    return path;
}

// The real user id of a process, from the first value of its status's "Uid:" line.
std::optional<uid_t> realUserOfProcess(qint64 processIdentifier)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(processIdentifier));
    if (!status.open(QIODevice::ReadOnly))
        return std::nullopt;
    for (QByteArray line = status.readLine(); !line.isEmpty(); line = status.readLine()) {
        if (line.startsWith("Uid:")) {
            bool isNumber = false;
            const uid_t user = line.mid(4).simplified().split(' ').value(0).toUInt(&isNumber);
            return isNumber ? std::optional(user) : std::nullopt;
        }
    }
    return std::nullopt;
}

QList<qint64> processIdentifiers()
{
    QList<qint64> identifiers;
    for (const QString &entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool isNumber = false;
        const qint64 identifier = entry.toLongLong(&isNumber);
        if (isNumber)
            identifiers << identifier;
    }
    std::sort(identifiers.begin(), identifiers.end());
    return identifiers;
}
} // namespace

KVRunningApplication::KVRunningApplication(qint64 processIdentifier, QString bundlePath)
    : m_processIdentifier(processIdentifier)
    , m_bundlePath(std::move(bundlePath))
{}

QList<KVRunningApplication>
KVRunningApplication::runningApplicationsWithBundleIdentifier(const QString &bundleIdentifier)
{
    QList<KVRunningApplication> applications;
    if (bundleIdentifier.isEmpty())
        return applications;
    QHash<QString, QString> identifierOfBundle; // several processes often share one bundle
    const uid_t user = ::getuid();
    for (const qint64 identifier : processIdentifiers()) {
        if (realUserOfProcess(identifier) != user)
            continue;
        const QString folder = QFileInfo(executableOfProcess(identifier)).path();
        if (!folder.endsWith(kExecutableFolderSuffix))
            continue;
        const QString bundlePath = folder.chopped(kExecutableFolderSuffix.size());
        auto known = identifierOfBundle.constFind(bundlePath);
        if (known == identifierOfBundle.constEnd()) {
            const std::optional<KVBundle> bundle = KVBundle::bundleWithPath(bundlePath);
            known = identifierOfBundle.insert(bundlePath, bundle ? bundle->bundleIdentifier() : QString());
        }
        if (*known == bundleIdentifier)
            applications << KVRunningApplication(identifier, bundlePath);
    }
    return applications;
}

bool KVRunningApplication::forceTerminate() const
{
    return ::kill(pid_t(m_processIdentifier), SIGKILL) == 0;
}
