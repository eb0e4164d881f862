#include "Platform/KVFileOperations.h"

#include "Core/Extensions/KVUUID.h"
#include "Core/Logging/KVLog.h"

#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

fs::path nativePath(const QString &path)
{
    return fs::path(QFile::encodeName(path).toStdString());
}

// renameat2 with the given flags; errno tells why it failed.
bool renameItem(const QString &from, const QString &to, unsigned int flags)
{
    return ::renameat2(AT_FDCWD, QFile::encodeName(from).constData(), AT_FDCWD, QFile::encodeName(to).constData(),
                       flags) == 0;
}

// A free name beside the path, hidden, on the same file system: ".<UUID>_<name>".
QString hiddenSiblingOf(const QString &path)
{
    const QFileInfo info(path);
    return info.absolutePath() + QStringLiteral("/.") + KVUUIDString() + QLatin1Char('_') + info.fileName();
}

// Copies one regular file with plain reads and writes, keeping its mode. The standard library's
// copy reports a full disk as an input/output error, which would hide why an update failed.
// Returns 0, or the errno of the failure.
int copyFile(const fs::path &source, const fs::path &target)
{
    const int input = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (input < 0)
        return errno;
    struct stat status;
    const int output = ::fstat(input, &status) == 0
                           ? ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, status.st_mode & 07777)
                           : -1;
    int failure = output < 0 ? errno : 0;
    std::vector<char> buffer(1 << 20);
    while (failure == 0) {
        const ssize_t count = ::read(input, buffer.data(), buffer.size());
        if (count <= 0) {
            failure = count < 0 ? errno : 0;
            break;
        }
        for (ssize_t offset = 0; offset < count && failure == 0;) {
            const ssize_t written = ::write(output, buffer.data() + offset, size_t(count - offset));
            if (written < 0)
                failure = errno;
            else
                offset += written;
        }
    }
    if (output >= 0 && ::close(output) != 0 && failure == 0)
        failure = errno; // a full disk may show only when the last blocks are written out
    ::close(input);
    return failure;
}

// Copies an item: a folder with everything below it (links stay links, modes are kept), a file
// or a link. Returns 0, or the errno of the first failure.
int copyItem(const fs::path &source, const fs::path &target)
{
    std::error_code code;
    const fs::file_status status = fs::symlink_status(source, code);
    if (code)
        return code.value();
    if (fs::is_symlink(status)) {
        fs::copy_symlink(source, target, code);
        return code.value();
    }
    if (!fs::is_directory(status))
        return copyFile(source, target);
    fs::create_directory(target, source, code);
    if (code)
        return code.value();
    for (fs::directory_iterator entries(source, code); !code && entries != fs::directory_iterator();
         entries.increment(code)) {
        if (const int failure = copyItem(entries->path(), target / entries->path().filename()))
            return failure;
    }
    return code.value();
}

// Copies an item to a hidden sibling of the destination, so that the copy lies on the
// destination's file system. A failed copy is removed again. Answers the sibling's path.
KVResult<QString> copyBesideDestination(const QString &source, const QString &destination)
{
    QString staging = hiddenSiblingOf(destination);
    const int failure = copyItem(nativePath(source), nativePath(staging));
    if (failure == 0)
        return staging;
    std::error_code ignored;
    fs::remove_all(nativePath(staging), ignored);
    return KVError::fromErrno(failure, destination);
}

// Removes what an operation that has already succeeded left behind (the replaced item, the source
// of a copy); a failure there leaves clutter, not a broken result, so it is only logged.
void removeLeftover(const QString &path)
{
    if (const KVResult<> removed = KVFileOperations::removeItem(path); !removed)
        KVLogWarning("%s: failed to remove %@ with error %@", __func__, path, removed.error());
}

// Swaps newItem into destination's place, or moves it there when the destination is missing.
// Both must be on one file system. Returns 0, or the errno of the failure.
int swapIntoPlace(const QString &destination, const QString &newItem)
{
    if (renameItem(newItem, destination, RENAME_EXCHANGE)) {
        removeLeftover(newItem); // the old item now lies where the new one was
        return 0;
    }
    const int exchangeError = errno;
    if (exchangeError != ENOENT || !KVFileOperations::itemExists(newItem) || KVFileOperations::itemExists(destination))
        return exchangeError;
    return renameItem(newItem, destination, RENAME_NOREPLACE) ? 0 : errno;
}

} // namespace

namespace KVFileOperations {

bool itemExists(const QString &path)
{
    struct stat status;
    return ::lstat(QFile::encodeName(path).constData(), &status) == 0;
}

KVResult<> removeItem(const QString &path)
{
    std::error_code code;
    fs::remove_all(nativePath(path), code);
    if (code)
        return KVError::fromErrno(code.value(), path);
    return {};
}

KVResult<> replaceItem(const QString &destination, const QString &newItem)
{
    const int swapError = swapIntoPlace(destination, newItem);
    if (swapError == 0)
        return {};
    if (swapError != EXDEV)
        return KVError::fromErrno(swapError, destination);

    const KVResult<QString> staging = copyBesideDestination(newItem, destination);
    if (!staging)
        return staging.error();
    if (const int stagedSwapError = swapIntoPlace(destination, *staging)) {
        removeLeftover(*staging);
        return KVError::fromErrno(stagedSwapError, destination);
    }
    removeLeftover(newItem); // consumed, as a replace on one file system would have moved it
    return {};
}

KVResult<> exchangeItems(const QString &first, const QString &second)
{
    if (!renameItem(first, second, RENAME_EXCHANGE))
        return KVError::fromErrno(errno, second);
    return {};
}

KVResult<> moveItem(const QString &source, const QString &destination)
{
    if (renameItem(source, destination, RENAME_NOREPLACE))
        return {};
    if (errno != EXDEV)
        return KVError::fromErrno(errno, destination);

    const KVResult<QString> staging = copyBesideDestination(source, destination);
    if (!staging)
        return staging.error();
    if (!renameItem(*staging, destination, RENAME_NOREPLACE)) {
        const KVError error = KVError::fromErrno(errno, destination);
        removeLeftover(*staging);
        return error;
    }
    removeLeftover(source);
    return {};
}

KVResult<> checkFreeSpace(const QString &folder, qint64 bytes)
{
    const QStorageInfo storage(folder);
    if (bytes <= 0 || !storage.isValid() || storage.bytesAvailable() >= bytes)
        return {};
    KVError error = KVError::fromErrno(ENOSPC, folder);
    QVariantMap info = error.userInfo();
    info.insert(KVRequiredBytesKey, bytes - storage.bytesAvailable());
    return KVError(error.domain(), error.code(), info);
}

} // namespace KVFileOperations
