#pragma once

#include "Core/Extensions/KVResult.h"

#include <QString>

// Whether a configuration file can be changed only by those whose settings it may carry: the
// test an administrator's file passes before the installer obeys it. Thread: any.
namespace KVFileProtection {

// Who may own a file that is obeyed.
enum class Owners {
    AdministratorOnly,       // a file in the system's configuration folder
    AdministratorOrTheCaller // a file the caller named itself, for example in a test
};

// Success when the file is owned as allowed and writable by its owner alone (no write permission
// for its group or for others); else an error whose description says what is wrong. A file that
// cannot be examined (missing, unreadable folder) fails with the system's error.
[[nodiscard]] KVResult<void> checkOnlyOwnerCanChange(const QString &path, Owners owners);

} // namespace KVFileProtection
