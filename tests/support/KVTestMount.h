#pragma once

#include <QString>
#include <memory>

// A mount for tests that need a full disk, a second file system or a read-only folder: a small
// tmpfs, or a read-only bind mount of a folder onto itself. Mounting needs root; where it fails
// the factories return null and the test skips. Unmounts when destroyed.
class KVTestMount
{
public:
    // A tmpfs of the given size on the folder, which must exist.
    static std::unique_ptr<KVTestMount> tmpfs(const QString &folder, qint64 sizeInBytes);
    // The folder itself, read-only: writes below it fail with EROFS, even for root.
    static std::unique_ptr<KVTestMount> readOnly(const QString &folder);

    ~KVTestMount();
    KVTestMount(const KVTestMount &) = delete;
    KVTestMount &operator=(const KVTestMount &) = delete;

private:
    explicit KVTestMount(QString folder)
        : m_folder(std::move(folder))
    {}

    QString m_folder;
};
