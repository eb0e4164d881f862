#include "App/Model/KVMinisign.h"

#include <QList>

#include <sodium.h>

#include <algorithm>

namespace KVMinisign {
namespace {

const QByteArray kPublicKeyAlgorithm("Ed");
const QByteArray kPrehashedAlgorithm("ED");
const QByteArray kUntrustedPrefix("untrusted comment: ");
const QByteArray kTrustedPrefix("trusted comment: ");
constexpr qsizetype kAlgorithmSize = 2;

KVError formatError(const QString &reason)
{
    return KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorManifestUnverified,
                   {{KVLocalizedDescriptionKey, reason}});
}

// libsodium is set up once; later calls return at once.
bool sodiumReady()
{
    return sodium_init() >= 0;
}

// The text's lines without their LF or CRLF ends; a last line without an end counts too.
QList<QByteArray> linesOf(QByteArrayView text)
{
    QList<QByteArray> lines = text.toByteArray().split('\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    for (QByteArray &line : lines)
        if (line.endsWith('\r'))
            line.chop(1);
    return lines;
}

// Strict base64 of exactly the given size: anything else (a cut line, stray characters) is refused.
KVResult<QByteArray> decodeExactly(const QByteArray &line, qsizetype size, const QString &what)
{
    const QByteArray::FromBase64Result decoded =
        QByteArray::fromBase64Encoding(line, QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() != size)
        return formatError(QStringLiteral("%1 is not the base64 of %2 bytes").arg(what).arg(size));
    return decoded.decoded;
}

QByteArray digestOf(QByteArrayView data)
{
    QByteArray digest(crypto_generichash_BYTES_MAX, Qt::Uninitialized);
    crypto_generichash(reinterpret_cast<unsigned char *>(digest.data()), size_t(digest.size()),
                       reinterpret_cast<const unsigned char *>(data.data()), size_t(data.size()), nullptr, 0);
    return digest;
}

QByteArray signDetached(const QByteArray &message, const QByteArray &secretKey)
{
    QByteArray signature(crypto_sign_BYTES, Qt::Uninitialized);
    crypto_sign_detached(reinterpret_cast<unsigned char *>(signature.data()), nullptr,
                         reinterpret_cast<const unsigned char *>(message.constData()), size_t(message.size()),
                         reinterpret_cast<const unsigned char *>(secretKey.constData()));
    return signature;
}

bool verifyDetached(const QByteArray &signature, const QByteArray &message, const QByteArray &publicKey)
{
    return crypto_sign_verify_detached(reinterpret_cast<const unsigned char *>(signature.constData()),
                                       reinterpret_cast<const unsigned char *>(message.constData()),
                                       size_t(message.size()),
                                       reinterpret_cast<const unsigned char *>(publicKey.constData())) == 0;
}

} // namespace

QString keyIdText(const QByteArray &keyId)
{
    QByteArray bigEndian = keyId;
    std::reverse(bigEndian.begin(), bigEndian.end());
    return QString::fromLatin1(bigEndian.toHex().toUpper());
}

KVResult<PublicKey> PublicKey::fromText(QByteArrayView text)
{
    QList<QByteArray> lines = linesOf(text);
    if (lines.size() == 2 && lines.first().startsWith(kUntrustedPrefix))
        lines.removeFirst();
    if (lines.size() != 1)
        return formatError(QStringLiteral("a public key is one base64 line, optionally after its comment line"));
    const KVResult<QByteArray> decoded =
        decodeExactly(lines.first().trimmed(), kAlgorithmSize + kKeyIdSize + crypto_sign_PUBLICKEYBYTES,
                      QStringLiteral("the public key"));
    if (!decoded)
        return decoded.error();
    if (!decoded->startsWith(kPublicKeyAlgorithm))
        return formatError(QStringLiteral("the public key is not an Ed25519 key"));
    return PublicKey{decoded->mid(kAlgorithmSize, kKeyIdSize), decoded->mid(kAlgorithmSize + kKeyIdSize)};
}

QByteArray PublicKey::toBase64() const
{
    return (kPublicKeyAlgorithm + keyId + key).toBase64();
}

KVResult<Signature> Signature::fromText(QByteArrayView text)
{
    const QList<QByteArray> lines = linesOf(text);
    if (lines.size() != 4)
        return formatError(QStringLiteral("a signature file has 4 lines, this one has %1").arg(lines.size()));
    if (!lines[0].startsWith(kUntrustedPrefix))
        return formatError(QStringLiteral("the signature's first line is not its untrusted comment"));
    if (!lines[2].startsWith(kTrustedPrefix))
        return formatError(QStringLiteral("the signature has no trusted comment"));

    const KVResult<QByteArray> signature =
        decodeExactly(lines[1], kAlgorithmSize + kKeyIdSize + crypto_sign_BYTES, QStringLiteral("the signature line"));
    if (!signature)
        return signature.error();
    if (!signature->startsWith(kPrehashedAlgorithm))
        return formatError(
            QStringLiteral("the signature is not of the prehashed Ed25519 kind (sign without the legacy option)"));
    const KVResult<QByteArray> global =
        decodeExactly(lines[3], crypto_sign_BYTES, QStringLiteral("the global signature line"));
    if (!global)
        return global.error();

    return Signature{QString::fromUtf8(lines[0].mid(kUntrustedPrefix.size())),
                     signature->mid(kAlgorithmSize, kKeyIdSize), signature->mid(kAlgorithmSize + kKeyIdSize),
                     QString::fromUtf8(lines[2].mid(kTrustedPrefix.size())), *global};
}

QByteArray Signature::toText() const
{
    return kUntrustedPrefix + untrustedComment.toUtf8() + '\n' + (kPrehashedAlgorithm + keyId + signature).toBase64() +
           '\n' + kTrustedPrefix + trustedComment.toUtf8() + '\n' + globalSignature.toBase64() + '\n';
}

KVResult<Signature> Signature::sign(QByteArrayView data, const SecretKey &secretKey, const QString &trustedComment,
                                    const QString &untrustedComment)
{
    if (!sodiumReady())
        return formatError(QStringLiteral("the cryptography library could not be initialised"));
    if (secretKey.keyId.size() != kKeyIdSize || secretKey.key.size() != crypto_sign_SECRETKEYBYTES)
        return formatError(QStringLiteral("the secret key is not an Ed25519 key with its id"));
    // Comments are single lines: a line break would change what the file says.
    if (trustedComment.contains(QLatin1Char('\n')) || untrustedComment.contains(QLatin1Char('\n')))
        return formatError(QStringLiteral("a comment of a signature must be a single line"));
    Signature result;
    result.untrustedComment = untrustedComment;
    result.keyId = secretKey.keyId;
    result.signature = signDetached(digestOf(data), secretKey.key);
    result.trustedComment = trustedComment;
    result.globalSignature = signDetached(result.signature + trustedComment.toUtf8(), secretKey.key);
    return result;
}

KVResult<void> Signature::verify(QByteArrayView data, const PublicKey &publicKey) const
{
    if (!sodiumReady())
        return formatError(QStringLiteral("the cryptography library could not be initialised"));
    if (signature.size() != crypto_sign_BYTES || globalSignature.size() != crypto_sign_BYTES ||
        publicKey.key.size() != crypto_sign_PUBLICKEYBYTES)
        return formatError(QStringLiteral("the signature or the key has the wrong size"));
    if (keyId != publicKey.keyId)
        return formatError(QStringLiteral("the signature was made with key %1, not with key %2")
                               .arg(keyIdText(keyId), keyIdText(publicKey.keyId)));
    if (!verifyDetached(signature, digestOf(data), publicKey.key))
        return formatError(QStringLiteral("the data was changed after it was signed"));
    if (!verifyDetached(globalSignature, signature + trustedComment.toUtf8(), publicKey.key))
        return formatError(QStringLiteral("the signature's trusted comment was altered"));
    return {};
}

} // namespace KVMinisign
