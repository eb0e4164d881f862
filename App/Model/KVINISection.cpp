#include "App/Model/KVINISection.h"

KVINISection::KVINISection(QString name, QList<KVINIItem> items)
    : m_name(std::move(name))
    , m_items(std::move(items))
{}

QString KVINISection::valueForKey(const QString &key) const
{
    for (const KVINIItem &item : m_items)
        if (item.key() == key)
            return item.value();
    return {};
}

void KVINISection::addItemWithKey(const QString &key, const QString &value)
{
    m_items.append(KVINIItem(key, value));
}

QString KVINISection::releaseVersion(const QString &sectionName)
{
    return sectionName.section(QLatin1Char('_'), -1);
}
