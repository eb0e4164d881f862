#include "Platform/KVUserDefaults.h"

#include "Platform/KVPropertyList.h"
#include "Platform/KVStandardPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

KVUserDefaults &KVUserDefaults::standardUserDefaults()
{
    static KVUserDefaults defaults(KVStandardPaths::configDirectory() +
                                   QStringLiteral("/com.tovik.nestora.installer.plist"));
    return defaults;
}

KVUserDefaults::KVUserDefaults(QString filePath)
    : m_filePath(std::move(filePath))
{}

// Every write replaces the file (a new inode), and the modification time has nanoseconds: two
// writes in the same millisecond still look different, which a QDateTime would not tell.
KVUserDefaults::FileIdentity KVUserDefaults::identityOnDisk() const
{
    struct stat status
    {};
    if (::stat(QFile::encodeName(m_filePath).constData(), &status) != 0)
        return {};
    return {quint64(status.st_ino), qint64(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec, true};
}

void KVUserDefaults::reloadIfChangedOnDisk() const
{
    const FileIdentity identity = identityOnDisk();
    if (identity == m_loadedIdentity)
        return;
    m_loadedIdentity = identity;
    m_values = identity.exists ? KVPropertyList::readDictionary(m_filePath).valueOr({}) : QVariantMap();
}

QVariant KVUserDefaults::persistentObjectForKey(const QString &key) const
{
    QMutexLocker lock(&m_mutex);
    reloadIfChangedOnDisk();
    return m_values.value(key);
}

QVariant KVUserDefaults::objectForKey(const QString &key) const
{
    QMutexLocker lock(&m_mutex);
    reloadIfChangedOnDisk();
    const auto it = m_values.constFind(key);
    return it != m_values.cend() ? *it : m_registered.value(key);
}

QString KVUserDefaults::stringForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    return value.metaType() == QMetaType::fromType<QString>() ? value.toString() : QString();
}

bool KVUserDefaults::boolForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    switch (value.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::LongLong:
    case QMetaType::Int:
    case QMetaType::Double:
        return value.toBool();
    case QMetaType::QString: // the platform reads "YES"/"true"/"1" strings as true
        return value.toString().compare(QLatin1String("yes"), Qt::CaseInsensitive) == 0 ||
               value.toString().compare(QLatin1String("true"), Qt::CaseInsensitive) == 0 ||
               value.toString().toLongLong() != 0;
    default:
        return false;
    }
}

QDateTime KVUserDefaults::dateForKey(const QString &key) const
{
    const QVariant value = objectForKey(key);
    return value.metaType() == QMetaType::fromType<QDateTime>() ? value.toDateTime() : QDateTime();
}

void KVUserDefaults::setObject(const QString &key, const QVariant &value)
{
    {
        QMutexLocker lock(&m_mutex);
        reloadIfChangedOnDisk();
        m_values.insert(key, value);
    }
    (void)synchronize(); // a value that cannot be written stays in memory; callers who must know synchronize()
}

void KVUserDefaults::removeObjectForKey(const QString &key)
{
    {
        QMutexLocker lock(&m_mutex);
        reloadIfChangedOnDisk();
        if (m_values.remove(key) == 0)
            return;
    }
    (void)synchronize(); // as in setObject()
}

void KVUserDefaults::registerDefaults(const QVariantMap &defaults)
{
    QMutexLocker lock(&m_mutex);
    m_registered.insert(defaults);
}

KVResult<> KVUserDefaults::synchronize()
{
    QMutexLocker lock(&m_mutex);
    QDir().mkpath(QFileInfo(m_filePath).absolutePath());
    if (KVResult<> written = KVPropertyList::writeDictionary(m_filePath, m_values); !written)
        return written;
    m_loadedIdentity = identityOnDisk();
    return {};
}
