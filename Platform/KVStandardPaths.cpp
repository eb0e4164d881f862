#include "Platform/KVStandardPaths.h"

#include <QDir>
#include <QFileInfo>

#include <unistd.h>

namespace {
QString environmentFolder(const char *name, const QString &fallback)
{
    const QString value = qEnvironmentVariable(name);
    // XDG says relative values are invalid and must be ignored.
    return !value.isEmpty() && QDir::isAbsolutePath(value) ? QDir::cleanPath(value) : fallback;
}
} // namespace

namespace KVStandardPaths {

QString homeDirectory()
{
    return QDir::homePath();
}

QString applicationSupportDirectory()
{
    return environmentFolder("XDG_DATA_HOME", homeDirectory() + QStringLiteral("/.local/share"));
}

QString configDirectory()
{
    return environmentFolder("XDG_CONFIG_HOME", homeDirectory() + QStringLiteral("/.config"));
}

QString cacheDirectory()
{
    return environmentFolder("XDG_CACHE_HOME", homeDirectory() + QStringLiteral("/.cache"));
}

QString temporaryDirectory()
{
    // A TMPDIR that names no usable folder must not turn temporary paths into paths below "/".
    const QString path = QDir::tempPath();
    return !path.isEmpty() && QDir(path).exists() ? path : QStringLiteral("/tmp");
}

QString runtimeDirectory()
{
    QString runtime = environmentFolder("XDG_RUNTIME_DIR", QString());
    // A runtime folder inherited from another user (su, sudo) is not this user's to use.
    if (const QFileInfo folder(runtime); !runtime.isEmpty() && folder.isDir() && folder.ownerId() == ::getuid())
        return runtime;
    QString fallback = cacheDirectory() + QStringLiteral("/Nestora/Runtime");
    if (!QDir().mkpath(fallback) ||
        !QFile::setPermissions(fallback, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner))
        return {};
    return fallback;
}

QString applicationsDirectory()
{
    return environmentFolder("NESTORA_APPLICATIONS_DIR", QStringLiteral("/opt"));
}

QString expandTilde(const QString &path)
{
    return path.startsWith(QLatin1String("~/")) ? homeDirectory() + path.mid(1) : path;
}

} // namespace KVStandardPaths
