#pragma once

#include "Core/Extensions/KVResult.h"

#include <QByteArray>
#include <QString>

// The password of an encrypted signing key: NESTORA_SIGN_PASSWORD when it is set (for release
// scripts), otherwise asked for on the terminal without echoing it.
namespace KVSigningPassword {

[[nodiscard]] KVResult<QByteArray> read(const QString &keyPath);

} // namespace KVSigningPassword
