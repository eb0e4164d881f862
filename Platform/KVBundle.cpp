#include "Platform/KVBundle.h"

#include "Platform/KVPropertyList.h"

#include <QDir>
#include <QFileInfo>
#include <QMutex>

namespace {
QMutex mainBundleMutex;
QString mainBundleOverride;

QString stringValue(const QVariant &value)
{
    return value.metaType() == QMetaType::fromType<QString>() ? value.toString() : QString();
}
} // namespace

KVBundle::KVBundle(QString path)
    : m_path(std::move(path))
    , m_info(KVPropertyList::readDictionary(m_path + QStringLiteral("/Contents/Info.plist")).valueOr({}))
{}

std::optional<KVBundle> KVBundle::bundleWithPath(const QString &path)
{
    if (path.isEmpty() || !QFileInfo(path).isDir())
        return std::nullopt;
    return KVBundle(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
}

void KVBundle::setMainBundlePath(const QString &path)
{
    QMutexLocker lock(&mainBundleMutex);
    mainBundleOverride = path;
}

KVBundle KVBundle::mainBundle()
{
    {
        QMutexLocker lock(&mainBundleMutex);
        if (!mainBundleOverride.isEmpty())
            return KVBundle(mainBundleOverride);
    }
    // Read from the process itself rather than QCoreApplication, so that it also answers before
    // the application object exists (--version); and only once, since a self-update moves the
    // running bundle away while the process must go on naming the place it was started from.
    static const QString startedFrom = QDir::cleanPath(
        QFileInfo(QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath()).path() + QStringLiteral("/../.."));
    return KVBundle(startedFrom);
}

QString KVBundle::bundleIdentifier() const
{
    return stringValue(m_info.value(QStringLiteral("CFBundleIdentifier")));
}

QString KVBundle::bundleVersion() const
{
    return stringValue(m_info.value(QStringLiteral("CFBundleVersion")));
}

QString KVBundle::executablePath() const
{
    const QString name = stringValue(m_info.value(QStringLiteral("CFBundleExecutable")));
    return name.isEmpty() ? QString() : m_path + QStringLiteral("/Contents/MacOS/") + name;
}

QString KVBundle::resourcePath() const
{
    return m_path + QStringLiteral("/Contents/Resources");
}

QString KVBundle::pathForResource(const QString &name, const QString &type) const
{
    const QString path =
        resourcePath() + QLatin1Char('/') + name + (type.isEmpty() ? QString() : QLatin1Char('.') + type);
    return QFileInfo::exists(path) ? path : QString();
}
