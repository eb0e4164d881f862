#pragma once

#include <QString>
#include <optional>

// A deliverable as the manifest describes it: its size and its MD5 and SHA-256 digests (lower-case
// hexadecimal), read from the file in one pass. Publishing writes these; checking compares them.
struct KVPublishedFile
{
    qint64 bytes = 0;
    QString md5;
    QString sha256;

    // Nothing when the path is no readable regular file; then errorMessage says why.
    [[nodiscard]] static std::optional<KVPublishedFile> read(const QString &path, QString *errorMessage);
};
