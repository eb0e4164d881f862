#pragma once

#include "Core/Extensions/KVResult.h"

#include <QString>
#include <QStringList>

// Reads and unpacks ZIP archives with the system's unzip tool. Anything the tool reports as not
// quite right (a warning included) is an error, so that a truncated, padded or otherwise damaged
// archive never passes for a complete one.
namespace KVUnzip {

// What an archive's central directory claims, read without unpacking anything.
struct Listing
{
    QStringList entryNames;   // as stored, folders with their trailing "/"
    qint64 unpackedBytes = 0; // the sum of the entries' uncompressed sizes
};

// The archive's listing, or an error (Cocoa domain: 4 for a missing archive, 259 for one the tool
// cannot read cleanly).
KVResult<Listing> listArchive(const QString &archivePath);

// Unpacks the archive into the folder, which must exist. Blocks until the tool has ended. Fails
// (Cocoa domain: 4 for a missing archive, 640 for a full disk, 259 otherwise) when the tool exits
// with a status other than 0.
KVResult<> extractArchive(const QString &archivePath, const QString &folder);

} // namespace KVUnzip
