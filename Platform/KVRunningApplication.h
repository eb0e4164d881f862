#pragma once

#include <QList>
#include <QString>

// A running process of an application bundle. Linux has no registry of running applications, so
// they are found in /proc: a process belongs to a bundle when its executable lies in the bundle's
// Contents/MacOS/ folder, and carries the identifier of that bundle's Info.plist.
class KVRunningApplication
{
public:
    // Every process of the calling user (by real user id, so root sees only root's) of a bundle
    // with exactly this identifier, by ascending process id.
    static QList<KVRunningApplication> runningApplicationsWithBundleIdentifier(const QString &bundleIdentifier);

    qint64 processIdentifier() const { return m_processIdentifier; }
    const QString &bundlePath() const { return m_bundlePath; }

    // Sends SIGKILL and answers whether the signal was delivered; does not wait for the end.
    [[nodiscard]] bool forceTerminate() const;

private:
    KVRunningApplication(qint64 processIdentifier, QString bundlePath);

    qint64 m_processIdentifier;
    QString m_bundlePath;
};
