#pragma once

#include <QString>

class QIODevice;

// The MD5 digest of an open file, for checking downloads against the manifest.
namespace KVFileHandle {

// The digest of everything that can still be read from the handle's current position, as 32
// lower-case hexadecimal digits. Reads in 5 MiB chunks, so memory stays constant whatever the
// size; the handle is neither rewound before nor closed after. Null for a missing handle (a file
// that could not be opened) and for a read error. Thread: any.
QString md5Value(QIODevice *fileHandle);

} // namespace KVFileHandle
