#include "KVTestMount.h"

#include <QFile>
#include <sys/mount.h>

std::unique_ptr<KVTestMount> KVTestMount::tmpfs(const QString &folder, qint64 sizeInBytes)
{
    const QByteArray target = QFile::encodeName(folder);
    const QByteArray options = "size=" + QByteArray::number(sizeInBytes);
    if (::mount("tmpfs", target.constData(), "tmpfs", 0, options.constData()) != 0)
        return nullptr;
    return std::unique_ptr<KVTestMount>(new KVTestMount(folder));
}

std::unique_ptr<KVTestMount> KVTestMount::readOnly(const QString &folder)
{
    const QByteArray target = QFile::encodeName(folder);
    if (::mount(target.constData(), target.constData(), nullptr, MS_BIND, nullptr) != 0)
        return nullptr;
    std::unique_ptr<KVTestMount> mount(new KVTestMount(folder));
    // A bind mount takes the read-only flag only when remounted.
    if (::mount(nullptr, target.constData(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
        return nullptr;
    return mount;
}

KVTestMount::~KVTestMount()
{
    // Lazily, so that an open file left behind by a failing test cannot keep the mount alive;
    // a mount already lifted by the test itself makes this a no-op.
    ::umount2(QFile::encodeName(m_folder).constData(), MNT_DETACH);
}
