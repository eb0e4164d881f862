#pragma once

#include <QString>
#include <QStringList>

// Quoting for POSIX shells (sh, bash): a quoted word reaches the program as exactly one argument
// with exactly its text, whatever it contains (blanks, quotes, "$(…)", ";", newlines).
namespace KVShellQuoting {

// The word in single quotes, each single quote inside written as '\''.
QString singleQuoted(const QString &word);

// The word itself when it holds only characters that no shell treats specially, so ordinary
// arguments stay readable ("-a", "300", "/opt/Nestora.app"); otherwise singleQuoted(word).
QString quoted(const QString &word);

// The words quoted one by one and joined with single spaces.
QString joined(const QStringList &words);

} // namespace KVShellQuoting
