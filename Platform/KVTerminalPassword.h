#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// A secret typed on the terminal, never shown as it is typed.
namespace KVTerminalPassword {

// Writes the prompt on the error output and reads one line from the standard input with echo off.
// Nothing when the standard input is no terminal: nobody could type the answer.
[[nodiscard]] std::optional<QByteArray> read(const QString &prompt);

} // namespace KVTerminalPassword
