#include "Core/Extensions/KVShellQuoting.h"

#include <algorithm>

namespace {
bool isPlainCharacter(QChar character)
{
    static const QString plainPunctuation = QStringLiteral("@%+=:,./-_");
    return (character.unicode() < 0x80 && character.isLetterOrNumber()) || plainPunctuation.contains(character);
}
} // namespace

namespace KVShellQuoting {

QString singleQuoted(const QString &word)
{
    QString result = word;
    result.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + result + QLatin1Char('\'');
}

QString quoted(const QString &word)
{
    if (!word.isEmpty() && std::all_of(word.cbegin(), word.cend(), isPlainCharacter))
        return word;
    return singleQuoted(word);
}

QString joined(const QStringList &words)
{
    QStringList quotedWords;
    quotedWords.reserve(words.size());
    for (const QString &word : words)
        quotedWords << quoted(word);
    return quotedWords.join(QLatin1Char(' '));
}

} // namespace KVShellQuoting
