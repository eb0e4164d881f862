#pragma once

#include "Core/Extensions/KVResult.h"

#include <QByteArray>
#include <QString>

// minisign's text formats for Ed25519 keys and detached signatures, read and written as the
// `minisign` tool does, and the check of a signature with libsodium.
//
// Only the prehashed signature ("ED": Ed25519 over the BLAKE2b-512 digest of the file, the tool's
// default) is accepted; the legacy variant that signs the whole file ("Ed") is refused, so that
// every signature this program accepts is one of a single kind. Lines may end in LF or CRLF.
//
// Errors are in the engine's domain with the code KVUpdateHelperErrorManifestUnverified; their
// description says what is wrong in words a release engineer can act on. Thread: any.
namespace KVMinisign {

inline constexpr qsizetype kKeyIdSize = 8;

// A public key: the id that signatures name, and the Ed25519 key that checks them.
struct PublicKey
{
    QByteArray keyId; // kKeyIdSize bytes, as stored
    QByteArray key;   // 32 bytes

    // The base64 line of a .pub file, or the whole two-line file (its comment line is skipped).
    [[nodiscard]] static KVResult<PublicKey> fromText(QByteArrayView text);
    // The base64 line, as written into a .pub file and into the policy and build settings.
    QByteArray toBase64() const;
};

// A secret key as the signer needs it: the key id and libsodium's 64-byte Ed25519 secret key.
struct SecretKey
{
    QByteArray keyId;
    QByteArray key;
};

// A detached signature, the content of a ".minisig" file.
struct Signature
{
    QString untrustedComment; // the first line after "untrusted comment: "; not covered by the signature
    QByteArray keyId;
    QByteArray signature;       // 64 bytes, over the BLAKE2b-512 digest of the data
    QString trustedComment;     // after "trusted comment: "; covered by the global signature
    QByteArray globalSignature; // 64 bytes, over signature || trusted comment

    [[nodiscard]] static KVResult<Signature> fromText(QByteArrayView text);
    // The four lines of the file, each ending in LF.
    QByteArray toText() const;

    // Signs the data (prehashed) and the trusted comment with the secret key.
    [[nodiscard]] static KVResult<Signature> sign(QByteArrayView data, const SecretKey &secretKey,
                                                  const QString &trustedComment,
                                                  const QString &untrustedComment = QStringLiteral("signature"));

    // Success when the signature names the key's id and both its signatures hold with the key.
    [[nodiscard]] KVResult<void> verify(QByteArrayView data, const PublicKey &publicKey) const;
};

// The key id as the minisign tool prints it: 16 upper-case hex digits of the little-endian number.
QString keyIdText(const QByteArray &keyId);

} // namespace KVMinisign
