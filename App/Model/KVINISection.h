#pragma once

#include "App/Model/KVINIItem.h"

#include <QList>
#include <QMetaType>

#include <memory>

// A named manifest section: its items in text order. Repeated keys are all kept; look-ups
// return the first. Sections are shared by pointer, and the update run tells them apart by
// identity, not by name.
class KVINISection
{
public:
    KVINISection(QString name, QList<KVINIItem> items = {});

    const QString &name() const { return m_name; }
    const QList<KVINIItem> &items() const { return m_items; }

    // The value of the first item with exactly this key (case-sensitive), or a null string.
    QString valueForKey(const QString &key) const;
    // Appends, even when the key is already there.
    void addItemWithKey(const QString &key, const QString &value);

    QString description() const { return m_name; }

    // The version a release section carries: the last "_"-part of its name ("2.2.0" of
    // "Mac_Application_2.2.0").
    QString releaseVersion() const { return releaseVersion(m_name); }
    static QString releaseVersion(const QString &sectionName);

private:
    QString m_name;
    QList<KVINIItem> m_items;
};

using KVINISectionPtr = std::shared_ptr<KVINISection>;

Q_DECLARE_METATYPE(KVINISectionPtr)
Q_DECLARE_METATYPE(QList<KVINISectionPtr>)
