#include "KVTestInstallation.h"

#include "KVTestFiles.h"
#include "KVTestSandbox.h"
#include "KVTestUpdateServer.h"
#include "Platform/KVPropertyList.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

namespace KVTestInstallation {

namespace {
QString vendorFolder()
{
    return KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora");
}
QString historyPath()
{
    return vendorFolder() + QStringLiteral("/UpdateHistory.plist");
}
} // namespace

QString applicationPath()
{
    return KVTestSandbox::current().applicationsDirectory() + QStringLiteral("/Nestora.app");
}

QString devicesDataPath()
{
    return vendorFolder() + QStringLiteral("/Devices/devices.data");
}

QString deviceIconsPath()
{
    return vendorFolder() + QStringLiteral("/Devices/Icons");
}

QString smartCardsPath()
{
    return vendorFolder() + QStringLiteral("/SmartCards/SmartCards.json");
}

QString pluginFolder()
{
    return vendorFolder() + QStringLiteral("/PlugIns");
}

bool installApplication(const QString &version)
{
    return KVTestUpdateServer::makeApplication(applicationPath(), version);
}

bool writeHistory(const QVariantMap &history)
{
    QDir().mkpath(vendorFolder());
    return KVPropertyList::writeDictionary(historyPath(), history).ok();
}

QVariantMap history()
{
    return KVPropertyList::readDictionary(historyPath()).valueOr({});
}

QMap<QString, QByteArray> snapshot(const QString &path)
{
    const auto describe = [](const QFileInfo &entry) {
        if (entry.isSymLink())
            return QByteArray("-> ") + QFile::encodeName(entry.symLinkTarget());
        if (entry.isDir())
            return QByteArray("<folder>");
        return KVTestFiles::readFile(entry.filePath());
    };
    QMap<QString, QByteArray> entries;
    const QFileInfo root(path);
    if (!root.exists() && !root.isSymLink())
        return entries;
    entries.insert(QStringLiteral("."), describe(root));
    if (!root.isDir() || root.isSymLink())
        return entries;
    QDirIterator it(path, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo entry(it.next());
        entries.insert(QDir(path).relativeFilePath(entry.filePath()), describe(entry));
    }
    return entries;
}

} // namespace KVTestInstallation
