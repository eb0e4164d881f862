#include "Platform/KVFileProtection.h"

#include <QFile>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace KVFileProtection {

KVResult<void> checkOnlyOwnerCanChange(const QString &path, Owners owners)
{
    struct stat status
    {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return KVError::fromErrno(errno, path);

    const auto refusal = [&path](const QString &reason) {
        return KVError(KVCocoaErrorDomain, KVFileReadNoPermissionError,
                       {{KVLocalizedDescriptionKey, reason}, {KVFilePathErrorKey, path}});
    };
    const bool ownerAllowed =
        status.st_uid == 0 || (owners == Owners::AdministratorOrTheCaller && status.st_uid == ::getuid());
    if (!ownerAllowed)
        return refusal(QStringLiteral("it is owned by user %1, not by root").arg(status.st_uid));
    if (status.st_mode & S_IWOTH)
        return refusal(QStringLiteral("everyone may change it"));
    if (status.st_mode & S_IWGRP)
        return refusal(QStringLiteral("its group may change it"));
    return {};
}

} // namespace KVFileProtection
