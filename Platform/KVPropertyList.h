#pragma once

#include "Core/Extensions/KVResult.h"

#include <QVariantMap>

// Reads and writes XML property lists through libplist, keeping value types: strings, integers,
// reals, booleans, dates (QDateTime), data (QByteArray), arrays and dictionaries.
namespace KVPropertyList {

// The top-level dictionary of the file; an error when the file is missing, unreadable, not a
// property list or not a dictionary at its top.
KVResult<QVariantMap> readDictionary(const QString &path);
KVResult<QVariantMap> dictionaryFromXml(const QByteArray &xml);

// Writes the dictionary as an XML property list, atomically: readers see the old file or the
// new one, never a partial write.
KVResult<> writeDictionary(const QString &path, const QVariantMap &dictionary);
[[nodiscard]] QByteArray xmlFromDictionary(const QVariantMap &dictionary);

} // namespace KVPropertyList
