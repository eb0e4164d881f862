#pragma once

#include "Core/Extensions/KVResult.h"

#include <QString>

// File-system operations that never leave a half-done result under a final name: an atomic
// replace, a move that also works across file systems, and a recursive removal. Failures are
// Cocoa-domain errors built from errno (513 for a missing permission, 640 for a full disk).
namespace KVFileOperations {

// Puts newItem in destination's place, so that at every instant the destination holds either the
// complete old item or the complete new one, then deletes the old item. newItem is consumed. A
// missing destination is simply created by the move. When newItem lies on another file system it
// is first copied beside the destination; a copy that fails (a full disk) is removed again and the
// destination is left as it was.
KVResult<> replaceItem(const QString &destination, const QString &newItem);

// Swaps two items of one file system in a single step, so that neither name is ever missing.
KVResult<> exchangeItems(const QString &first, const QString &second);

// Moves source to destination, which must not exist yet. Across file systems the item is copied
// to a hidden sibling of the destination first and renamed into place when complete.
KVResult<> moveItem(const QString &source, const QString &destination);

// Removes a file, a link or a whole folder tree. Nothing there is not an error.
KVResult<> removeItem(const QString &path);

// The full-disk error (640, carrying the folder and KVRequiredBytesKey) when the folder's file
// system has fewer than the bytes free; success otherwise, and when it cannot be told.
KVResult<> checkFreeSpace(const QString &folder, qint64 bytes);

// True when anything (even a dangling link) exists at the path.
bool itemExists(const QString &path);

} // namespace KVFileOperations
