#pragma once

#include <QString>

// The folders the installer reads and writes, resolved afresh on every call from the environment
// so that a test sandbox (HOME, XDG_*, TMPDIR, NESTORA_APPLICATIONS_DIR) takes effect at once.
namespace KVStandardPaths {

QString homeDirectory();
// The user's Application Support folder: $XDG_DATA_HOME, default ~/.local/share. It also stands
// for "Library/Application Support", which is the same folder on the original platform.
QString applicationSupportDirectory();
// $XDG_CONFIG_HOME, default ~/.config.
QString configDirectory();
// $XDG_CACHE_HOME, default ~/.cache: kept across reboots, but nothing in it is irreplaceable.
QString cacheDirectory();
// QDir::tempPath(), which honours TMPDIR, or /tmp when that names no folder.
QString temporaryDirectory();
// The user's private folder for state that lives as long as the process (the single-instance
// guard): $XDG_RUNTIME_DIR when it is the user's own, else $XDG_CACHE_HOME/Nestora/Runtime
// (default ~/.cache/…). Never TMPDIR, which differs between sessions of one user. Created
// readable by the user alone when missing; empty when it cannot be.
QString runtimeDirectory();
// "/opt", or NESTORA_APPLICATIONS_DIR when set.
QString applicationsDirectory();
// Expands a leading "~/" to the home folder.
QString expandTilde(const QString &path);

} // namespace KVStandardPaths
