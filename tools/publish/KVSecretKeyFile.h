#pragma once

#include "App/Model/KVMinisign.h"

#include <functional>

// Reads a secret key file as `minisign -G` writes it, for signing: the base64 line after the
// comment holds the algorithm ("Ed"), the key derivation ("Sc": scrypt, or none), the checksum
// kind ("B2": BLAKE2b-256), the salt and cost limits, and the key id, secret key and checksum,
// encrypted with a stream derived from the password when the key has one.
//
// The password is asked for only when the key is encrypted. A wrong password and a damaged file
// are told apart by the checksum, and the secret key must hold its own public key, so a key that
// does not sign as it claims is never used.
namespace KVSecretKeyFile {

using PasswordSource = std::function<KVResult<QByteArray>()>;

[[nodiscard]] KVResult<KVMinisign::SecretKey> read(const QString &path, const PasswordSource &password);

} // namespace KVSecretKeyFile
