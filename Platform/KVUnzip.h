#pragma once

#include "Core/Extensions/KVError.h"

#include <QString>

// Unpacks ZIP archives with the system's unzip tool. An unpacking that the tool reports as failed
// is an error, so that a truncated archive or a full disk never passes for a complete one.
namespace KVUnzip {

// Unpacks the archive into the folder, which must exist. Blocks until the tool has ended; the
// tool's listing goes to this process's standard output. Fails (Cocoa domain: 4 for a missing
// archive, 640 for a full disk, 259 otherwise) when the tool exits with a status other than 0,
// or with 1 and any warning beyond the ones about unsafe paths that it neutralised (absolute
// paths and "../" components are unpacked inside the folder).
[[nodiscard]] KVError extractArchive(const QString &archivePath, const QString &folder);

} // namespace KVUnzip
