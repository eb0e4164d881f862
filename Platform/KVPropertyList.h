#pragma once

#include "Core/Extensions/KVError.h"

#include <QVariantMap>

// Reads and writes XML property lists through libplist, keeping value types: strings, integers,
// reals, booleans, dates (QDateTime), data (QByteArray), arrays and dictionaries.
namespace KVPropertyList {

// The top-level dictionary of the file, or an empty map with *error set when the file is missing,
// unreadable, not a property list or not a dictionary at its top.
[[nodiscard]] QVariantMap readDictionary(const QString &path, KVError *error = nullptr);
[[nodiscard]] QVariantMap dictionaryFromXml(const QByteArray &xml, KVError *error = nullptr);

// Writes the dictionary as an XML property list, atomically: readers see the old file or the
// new one, never a partial write. Returns false with *error set on failure.
[[nodiscard]] bool writeDictionary(const QString &path, const QVariantMap &dictionary, KVError *error = nullptr);
[[nodiscard]] QByteArray xmlFromDictionary(const QVariantMap &dictionary);

} // namespace KVPropertyList
