#include "Core/Extensions/KVVersionComparison.h"

#include <QStringList>

#include <limits>

long long leadingIntegerValue(const QString &text)
{
    qsizetype i = 0;
    while (i < text.size() && text[i].isSpace())
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == QLatin1Char('+') || text[i] == QLatin1Char('-'))) {
        negative = text[i] == QLatin1Char('-');
        ++i;
    }
    long long value = 0;
    for (; i < text.size() && text[i] >= QLatin1Char('0') && text[i] <= QLatin1Char('9'); ++i) {
        const int digit = text[i].unicode() - '0';
        if (value > (std::numeric_limits<long long>::max() - digit) / 10)
            return negative ? std::numeric_limits<long long>::min() : std::numeric_limits<long long>::max();
        value = value * 10 + digit;
    }
    return negative ? -value : value;
}

KVComparisonResult compareVersion(const QString &receiver, const QString &other)
{
    if (receiver.isNull())
        return KVOrderedSame;
    const QStringList a = receiver.split(QLatin1Char('.'));
    const QStringList b = other.split(QLatin1Char('.'));
    for (qsizetype i = 0; i < a.size() || i < b.size(); ++i) {
        const long long left = i < a.size() ? leadingIntegerValue(a[i]) : 0;
        const long long right = i < b.size() ? leadingIntegerValue(b[i]) : 0;
        if (left != right)
            return left > right ? KVOrderedDescending : KVOrderedAscending;
    }
    return KVOrderedSame;
}
