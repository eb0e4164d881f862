#pragma once

#include <QList>
#include <QString>

// A manifest's text read line by line as the installer reads it, keeping the line of every section
// and item, so that a check can name the line a release engineer has to change.
class KVManifestOutline
{
public:
    struct Item
    {
        int line = 0; // from 1, as an editor counts
        QString key;
        QString value;
    };
    struct Section
    {
        int line = 0;
        QString name;
        QList<Item> items;

        // The first item with exactly this key, as the installer looks it up; null when none has it.
        const Item *item(const QString &key) const;
    };
    // A line the installer skips: one before the first section header, or one without "=".
    struct StrayLine
    {
        int line = 0;
        QString text;
        bool beforeFirstSection = false;
    };

    explicit KVManifestOutline(const QString &text);

    const QList<Section> &sections() const { return m_sections; }
    const QList<StrayLine> &strayLines() const { return m_strayLines; }
    // The first section with exactly this name, as the installer looks it up; null when none has it.
    const Section *section(const QString &name) const;

private:
    QList<Section> m_sections;
    QList<StrayLine> m_strayLines;
};
