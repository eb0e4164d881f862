#pragma once

#include "Core/Extensions/KVResult.h"

#include <QDateTime>
#include <QMutex>
#include <QVariantMap>

// The user-defaults store: typed values kept as an XML property list in the user's configuration
// folder, over an in-memory registration domain that supplies defaults without persisting them.
// Thread-safe; a change made by another process is picked up on the next read.
class KVUserDefaults
{
public:
    // The store of this installer, at $XDG_CONFIG_HOME/com.tovik.nestora.installer.plist.
    static KVUserDefaults &standardUserDefaults();

    explicit KVUserDefaults(QString filePath);

    QString filePath() const { return m_filePath; }

    // The user's value, else the registered default, else an invalid QVariant.
    QVariant objectForKey(const QString &key) const;
    // Only the user's own value, ignoring registered defaults.
    QVariant persistentObjectForKey(const QString &key) const;
    // Typed views: a value of another type reads as absent (null string, false, invalid date).
    QString stringForKey(const QString &key) const;
    bool boolForKey(const QString &key) const;
    QDateTime dateForKey(const QString &key) const;

    void setObject(const QString &key, const QVariant &value);
    void removeObjectForKey(const QString &key);
    void registerDefaults(const QVariantMap &defaults);

    // Writes pending changes; an error when the file could not be written (the values stay in memory).
    KVResult<> synchronize();

private:
    struct FileIdentity
    {
        quint64 inode = 0;
        qint64 modifiedNanoseconds = 0;
        bool exists = false;
        bool operator==(const FileIdentity &) const = default;
    };
    FileIdentity identityOnDisk() const;
    void reloadIfChangedOnDisk() const;

    const QString m_filePath;
    mutable QMutex m_mutex;
    mutable QVariantMap m_values;
    mutable FileIdentity m_loadedIdentity;
    QVariantMap m_registered;
};
