#pragma once

#include <QString>

// Three-valued ordering of dotted version strings, as the platform's ordering result.
enum KVComparisonResult { KVOrderedAscending = -1, KVOrderedSame = 0, KVOrderedDescending = 1 };

// Compares dotted versions component by component as numbers: missing components count as 0,
// a component reads as its leading integer ("2b" is 2, "" and "beta" are 0). A null receiver
// (nothing installed) compares as the same, never as lower. The update is due when the installed
// version compared with the offered one is ascending.
KVComparisonResult compareVersion(const QString &receiver, const QString &other);

// The platform's leading-integer reading of a string: leading blanks, an optional sign, digits.
long long leadingIntegerValue(const QString &text);
