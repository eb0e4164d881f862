#include "KVSecretKeyFile.h"

#include "KVManifestPublisher.h"

#include <QFile>
#include <QtEndian>

#include <sodium.h>

namespace {

// The layout of the decoded line.
constexpr qsizetype kSaltOffset = 6;
constexpr qsizetype kOpsLimitOffset = kSaltOffset + crypto_pwhash_scryptsalsa208sha256_SALTBYTES;
constexpr qsizetype kMemLimitOffset = kOpsLimitOffset + 8;
constexpr qsizetype kSecretOffset = kMemLimitOffset + 8;
constexpr qsizetype kChecksumSize = crypto_generichash_BYTES;
constexpr qsizetype kSecretSize = KVMinisign::kKeyIdSize + crypto_sign_SECRETKEYBYTES + kChecksumSize;

KVError keyError(const QString &path, const QString &reason)
{
    return KVError(KVPublishErrorDomain, KVPublishErrorUnusableKey,
                   {{KVLocalizedDescriptionKey, QStringLiteral("cannot sign with %1: %2").arg(path, reason)}});
}

const unsigned char *bytes(const QByteArray &data)
{
    return reinterpret_cast<const unsigned char *>(data.constData());
}

// XORs the secret part with the scrypt stream of the password, which both encrypts and decrypts it.
bool applyPassword(QByteArray &secret, const QByteArray &password, const QByteArray &decoded)
{
    QByteArray stream(secret.size(), Qt::Uninitialized);
    const bool derived = crypto_pwhash_scryptsalsa208sha256(
                             reinterpret_cast<unsigned char *>(stream.data()), size_t(stream.size()),
                             password.constData(), size_t(password.size()), bytes(decoded) + kSaltOffset,
                             qFromLittleEndian<quint64>(decoded.constData() + kOpsLimitOffset),
                             size_t(qFromLittleEndian<quint64>(decoded.constData() + kMemLimitOffset))) == 0;
    for (qsizetype i = 0; derived && i < secret.size(); ++i)
        secret[i] = char(secret[i] ^ stream[i]);
    sodium_memzero(stream.data(), size_t(stream.size()));
    return derived;
}

} // namespace

namespace KVSecretKeyFile {

KVResult<KVMinisign::SecretKey> read(const QString &path, const PasswordSource &password)
{
    if (sodium_init() < 0)
        return keyError(path, QStringLiteral("the cryptography library could not be initialised"));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return keyError(path, file.errorString());
    const QList<QByteArray> lines = file.readAll().split('\n');
    const auto decoded =
        QByteArray::fromBase64Encoding(lines.value(1).trimmed(), QByteArray::AbortOnBase64DecodingErrors);
    if (!lines.value(0).startsWith("untrusted comment:") || !decoded ||
        decoded.decoded.size() != kSecretOffset + kSecretSize || !decoded.decoded.startsWith("Ed") ||
        decoded.decoded.mid(4, 2) != "B2")
        return keyError(path, QStringLiteral("it is not a minisign secret key"));
    const QByteArray &data = decoded.decoded;
    const QByteArray derivation = data.mid(2, 2);
    const bool encrypted = derivation == "Sc";
    if (!encrypted && derivation != QByteArray(2, '\0'))
        return keyError(path, QStringLiteral("its key derivation \"%1\" is not scrypt").arg(derivation));

    QByteArray secret = data.mid(kSecretOffset);
    if (encrypted) {
        const KVResult<QByteArray> text = password();
        if (!text)
            return text.error();
        if (!applyPassword(secret, *text, data))
            return keyError(path, QStringLiteral("deriving the key from the password failed (not enough memory?)"));
    }
    KVMinisign::SecretKey key{secret.left(KVMinisign::kKeyIdSize),
                              secret.mid(KVMinisign::kKeyIdSize, crypto_sign_SECRETKEYBYTES)};
    const QByteArray storedChecksum = secret.right(kChecksumSize);
    sodium_memzero(secret.data(), size_t(secret.size()));

    QByteArray checksum(kChecksumSize, Qt::Uninitialized);
    const QByteArray checked = QByteArrayLiteral("Ed") + key.keyId + key.key;
    crypto_generichash(reinterpret_cast<unsigned char *>(checksum.data()), size_t(checksum.size()), bytes(checked),
                       size_t(checked.size()), nullptr, 0);
    // Keys stored without a password may carry no checksum at all (all zeros).
    const bool unchecked = !encrypted && storedChecksum == QByteArray(kChecksumSize, '\0');
    if (!unchecked && sodium_memcmp(checksum.constData(), storedChecksum.constData(), size_t(kChecksumSize)) != 0)
        return keyError(path, encrypted ? QStringLiteral("wrong password") : QStringLiteral("the key is damaged"));

    // The second half of an Ed25519 secret key is its public key; both halves must belong together.
    QByteArray publicKey(crypto_sign_PUBLICKEYBYTES, Qt::Uninitialized);
    QByteArray expected(crypto_sign_SECRETKEYBYTES, Qt::Uninitialized);
    crypto_sign_seed_keypair(reinterpret_cast<unsigned char *>(publicKey.data()),
                             reinterpret_cast<unsigned char *>(expected.data()), bytes(key.key));
    const bool whole = sodium_memcmp(expected.constData(), key.key.constData(), size_t(expected.size())) == 0;
    sodium_memzero(expected.data(), size_t(expected.size()));
    if (!whole)
        return keyError(path, QStringLiteral("the key is damaged"));
    return key;
}

} // namespace KVSecretKeyFile
