#include "App/Model/KVINI.h"

#include "Core/Logging/KVLog.h"

namespace {

// How many invalid lines are logged, and how much of each.
constexpr qsizetype kLoggedInvalidLines = 10;
constexpr qsizetype kLoggedLineLength = 200;

// Every character of the platform's newline set ends a line on its own, so "\r\n" yields an
// empty line between the two.
bool isNewline(QChar c)
{
    switch (c.unicode()) {
    case 0x000A:
    case 0x000B:
    case 0x000C:
    case 0x000D:
    case 0x0085:
    case 0x2028:
    case 0x2029:
        return true;
    default:
        return false;
    }
}

QStringList splitLines(const QString &text)
{
    QStringList lines;
    qsizetype start = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (isNewline(text[i])) {
            lines << text.mid(start, i - start);
            start = i + 1;
        }
    }
    lines << text.mid(start);
    return lines;
}

// Blanks and tabs (the whitespace set without newlines) from both ends.
QString trimmedBlanks(const QString &line)
{
    const auto isBlank = [](QChar c) { return c.isSpace() && !isNewline(c); };
    qsizetype begin = 0;
    qsizetype end = line.size();
    while (begin < end && isBlank(line[begin]))
        ++begin;
    while (end > begin && isBlank(line[end - 1]))
        --end;
    return line.mid(begin, end - begin);
}

} // namespace

KVINI::KVINI(const QString &text)
{
    if (text.isNull())
        return;
    KVINISectionPtr current;
    qsizetype invalidLines = 0;
    const QStringList lines = splitLines(text);
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString line = trimmedBlanks(lines[i]);
        if (line.isEmpty())
            continue;
        if (line.size() >= 2 && line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char(']'))) {
            current = std::make_shared<KVINISection>(line.mid(1, line.size() - 2));
            m_sections.append(current);
            continue;
        }
        if (!current)
            continue;
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        if (equals < 0) {
            // A damaged or hostile manifest must not flood the log: a few lines, each cut short.
            if (++invalidLines <= kLoggedInvalidLines)
                KVLogError("invalid line in update ini file. line number: %d, content: %@", int(i),
                           line.left(kLoggedLineLength));
            continue;
        }
        current->addItemWithKey(line.left(equals), line.mid(equals + 1));
    }
    if (invalidLines > kLoggedInvalidLines)
        KVLogError("%d more invalid lines in update ini file", int(invalidLines - kLoggedInvalidLines));
}

KVINI KVINI::initWithContentOfFile(const QString & /*ignoredPath*/)
{
    // It would read the document's own path, which is never set, so nothing is ever read.
    return KVINI(QString());
}

KVINISectionPtr KVINI::sectionWithName(const QString &name) const
{
    for (const KVINISectionPtr &section : m_sections)
        if (section->name() == name)
            return section;
    return nullptr;
}
