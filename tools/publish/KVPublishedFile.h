#pragma once

#include "Core/Extensions/KVResult.h"

#include <QString>

// A deliverable as the manifest describes it: its size and its MD5 and SHA-256 digests (lower-case
// hexadecimal), read from the file in one pass. Publishing writes these; checking compares them.
struct KVPublishedFile
{
    qint64 bytes = 0;
    QString md5;
    QString sha256;

    // Fails when the path is no readable regular file; the error's description says why.
    [[nodiscard]] static KVResult<KVPublishedFile> read(const QString &path);
};
