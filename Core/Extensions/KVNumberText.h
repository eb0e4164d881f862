#pragma once

#include <QString>

#include <charconv>

// A number's ordinary text, the way launch arguments carry numbers: as few digits as read back to
// the same value, never an exponent, so 300, 871.5 and 1700000000.5. Pass a float to print a value
// at single precision.
template <typename Number> QString KVNumberText(Number value)
{
    char text[400];
    const std::to_chars_result result = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed);
    return QString::fromLatin1(text, result.ptr - text);
}
