#pragma once

#include <QString>
#include <QVariantMap>

#include <optional>

// An application bundle on disk: Name.app/Contents/{Info.plist, MacOS/<executable>, Resources/}.
class KVBundle
{
public:
    // A bundle at the path, or nothing when no folder is there. A folder without a readable
    // Info.plist opens with an empty information dictionary, as the platform does.
    [[nodiscard]] static std::optional<KVBundle> bundleWithPath(const QString &path);

    // The bundle the running program lives in: two levels above its executable's folder. Tests,
    // whose programs are not bundles, point it elsewhere with setMainBundlePath().
    static KVBundle mainBundle();
    static void setMainBundlePath(const QString &path);

    // The installer's own name, as the build names its bundle and executable: how it signs its
    // messages, its log entries and its requests.
    static inline const QString kInstallerName = QStringLiteral("NestoraInstaller");

    const QString &bundlePath() const { return m_path; }
    const QVariantMap &infoDictionary() const { return m_info; }
    QVariant objectForInfoDictionaryKey(const QString &key) const { return m_info.value(key); }
    QString bundleIdentifier() const;
    QString bundleVersion() const; // "CFBundleVersion", null when missing or not a string
    QString executablePath() const;
    QString resourcePath() const;
    QString pathForResource(const QString &name, const QString &type) const;

private:
    explicit KVBundle(QString path);

    QString m_path;
    QVariantMap m_info;
};
