#pragma once

#include <QString>
#include <QStringList>

// The installer's own temporary items (extraction folders, downloads, hidden staging copies
// beside a deployed item) and their removal: after each deployment, and at the next start for
// whatever a killed run left behind. Only names that the installer itself makes are ever removed,
// so the user's own files in the same folders stay whatever they are called.
namespace KVLeftovers {

// A fresh extraction folder's path in the temporary directory (not yet created).
QString newUnpackingFolder();

// Removes the extraction folder that unpacked items lie in, with whatever is still inside.
void removeUnpackingFolderOf(const QStringList &items);

// Removes from the download folder whatever is not one of the named files (by file name) or a
// part of one: the downloads of releases that the manifest no longer offers.
void pruneDownloads(const QString &folder, const QStringList &namedFiles);

// Removes what an earlier run left in the temporary directory (extraction folders, downloads)
// and in the given folders where items are deployed (hidden staging copies ".<UUID>_<name>",
// staging folders of the install script, half-written data files). Entries of other users and
// names of any other shape are left alone. Queue only.
void removeLeftoversOfEarlierRuns(const QStringList &deploymentFolders);

} // namespace KVLeftovers
