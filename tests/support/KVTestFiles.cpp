#include "KVTestFiles.h"

#include "KVTestProcess.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

namespace KVTestFiles {

bool writeFile(const QString &path, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(contents) == contents.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList treeOf(const QString &folder)
{
    QStringList entries;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        entries << QDir(folder).relativeFilePath(it.next());
    entries.sort();
    return entries;
}

bool makeZip(const QString &archivePath, const QMap<QString, QByteArray> &files)
{
    QTemporaryDir source;
    QStringList topLevel;
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        if (!writeFile(source.filePath(it.key()), it.value()))
            return false;
        const QString first = it.key().section(QLatin1Char('/'), 0, 0);
        if (!topLevel.contains(first))
            topLevel << first;
    }
    return zipEntries(archivePath, source.path(), topLevel);
}

bool zipEntries(const QString &archivePath, const QString &folder, const QStringList &entries)
{
    QFile::remove(archivePath); // the tool would add to an archive already there
    const QStringList zip{QStringLiteral("/usr/bin/zip"), QStringLiteral("-q"), QStringLiteral("-r"),
                          QStringLiteral("-y"),           QStringLiteral("-1"), archivePath};
    return KVTestProcess::run(zip + entries, 120000, folder).succeeded();
}

} // namespace KVTestFiles
