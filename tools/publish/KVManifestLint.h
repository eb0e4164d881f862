#pragma once

#include "KVManifestOutline.h"

// One thing to tell a release engineer about a manifest, tied to its line. An error keeps the
// publication from going live; a warning names what the installer would skip or misread.
struct KVManifestFinding
{
    enum class Severity { Warning, Error };
    Severity severity = Severity::Warning;
    int line = 0; // from 1; 0 when it concerns the whole manifest
    QString text;
};

// Warns about what the installer would silently skip or misread in a manifest: blanks around "=",
// a section header in the wrong case, an unknown or misspelt key, blanks in an "OSSupport" list, an
// index naming a release section the manifest does not hold, repeated sections and keys (only the
// first counts), and lines that are no "key=value" item at all.
namespace KVManifestLint {

QList<KVManifestFinding> warnings(const KVManifestOutline &outline);

} // namespace KVManifestLint
