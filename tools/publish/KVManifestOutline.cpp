#include "KVManifestOutline.h"

#include <algorithm>

KVManifestOutline::KVManifestOutline(const QString &text)
{
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (qsizetype index = 0; index < lines.size(); ++index) {
        const int number = int(index) + 1;
        const QString line = lines.at(index).trimmed();
        if (line.isEmpty())
            continue;
        if (line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']')) && line.size() > 1) {
            m_sections.append({number, line.mid(1, line.size() - 2), {}});
            continue;
        }
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (m_sections.isEmpty() || equals < 0)
            m_strayLines.append({number, line, m_sections.isEmpty()});
        else
            m_sections.last().items.append({number, line.left(equals), line.mid(equals + 1)});
    }
}

const KVManifestOutline::Item *KVManifestOutline::Section::item(const QString &key) const
{
    const auto found = std::find_if(items.cbegin(), items.cend(), [&](const Item &item) { return item.key == key; });
    return found == items.cend() ? nullptr : &*found;
}

const KVManifestOutline::Section *KVManifestOutline::section(const QString &name) const
{
    const auto found = std::find_if(m_sections.cbegin(), m_sections.cend(),
                                    [&](const Section &section) { return section.name == name; });
    return found == m_sections.cend() ? nullptr : &*found;
}
