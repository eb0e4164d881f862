#include "KVSigningPassword.h"

#include "KVManifestPublisher.h"

#include "Platform/KVTerminalPassword.h"

namespace KVSigningPassword {

KVResult<QByteArray> read(const QString &keyPath)
{
    if (qEnvironmentVariableIsSet("NESTORA_SIGN_PASSWORD"))
        return qgetenv("NESTORA_SIGN_PASSWORD");
    if (std::optional<QByteArray> typed = KVTerminalPassword::read(QStringLiteral("Password of %1: ").arg(keyPath)))
        return *std::move(typed);
    return KVError(KVPublishErrorDomain, KVPublishErrorUnusableKey,
                   {{KVLocalizedDescriptionKey,
                     QStringLiteral("the secret key %1 is protected by a password: set NESTORA_SIGN_PASSWORD, "
                                    "or sign on a terminal to be asked for it")
                         .arg(keyPath)}});
}

} // namespace KVSigningPassword
