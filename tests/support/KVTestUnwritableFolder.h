#pragma once

#include <QString>
#include <QStringList>

// A folder its owner may not write, as long as this lives: mode 0555. Root writes it anyway, so
// as root the calling thread also sets aside the capabilities that override file permissions
// (they come back when this ends), and launcher() names the wrapper that starts a program
// without them. Unlike a read-only mount, root's rights (the install script's) could write it.
class KVTestUnwritableFolder
{
public:
    explicit KVTestUnwritableFolder(QString folder);
    ~KVTestUnwritableFolder();
    KVTestUnwritableFolder(const KVTestUnwritableFolder &) = delete;
    KVTestUnwritableFolder &operator=(const KVTestUnwritableFolder &) = delete;

    bool isUnwritable() const { return m_unwritable; }
    // The shell command that makes the folder writable again.
    QString liftCommand() const;
    // The program and arguments to put before a program's own command line so that it runs
    // without the permission-overriding capabilities; empty when not root.
    static QStringList launcher();

private:
    QString m_folder;
    bool m_unwritable = false;
    bool m_capabilitiesSetAside = false;
};
