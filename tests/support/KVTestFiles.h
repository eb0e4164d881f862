#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

// Small file helpers for tests that build folders, applications and archives and then check
// exactly what is on disk.
namespace KVTestFiles {

// Writes the file, creating its folders. False when it could not be written.
[[nodiscard]] bool writeFile(const QString &path, const QByteArray &contents);
// The file's contents, or a null array when it cannot be read.
QByteArray readFile(const QString &path);
// Every entry below the folder (hidden ones included, links not followed) relative to it, sorted.
QStringList treeOf(const QString &folder);
// A ZIP archive made by the zip tool from the files, given by their paths inside the archive.
// Links are stored as links. False when the tool failed.
[[nodiscard]] bool makeZip(const QString &archivePath, const QMap<QString, QByteArray> &files);
// A ZIP archive of the entries (files or folders, recursively) of the folder, named relative to it.
[[nodiscard]] bool zipEntries(const QString &archivePath, const QString &folder, const QStringList &entries);

} // namespace KVTestFiles
