#pragma once

#include <QMap>
#include <QString>
#include <QVariantMap>

// The installation in the sandbox as the end-to-end tests set it up and inspect it: the companion
// application in the applications folder, the data files and plug-ins in the vendor's folder of
// the data home, and the update history.
namespace KVTestInstallation {

QString applicationPath();
QString devicesDataPath();
QString deviceIconsPath();
QString smartCardsPath();
QString pluginFolder();

// The built sample companion application installed as the given release.
[[nodiscard]] bool installApplication(const QString &version);
[[nodiscard]] bool writeHistory(const QVariantMap &history);
QVariantMap history();

// Every entry below the path (the path itself when it is a file) with what it holds: a file its
// contents, a folder "<folder>", a link "-> target". Two equal snapshots are the same installation.
QMap<QString, QByteArray> snapshot(const QString &path);

} // namespace KVTestInstallation
