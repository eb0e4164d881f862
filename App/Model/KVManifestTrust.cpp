#include "App/Model/KVManifestTrust.h"

#include "App/Model/KVPolicy.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"
#include "Platform/KVUserDefaults.h"

#include <QDateTime>
#include <QRegularExpression>

namespace {
const QString kTrustSection = QStringLiteral("Trust");

KVError unverified(const QString &reason)
{
    return KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorManifestUnverified,
                   {{KVLocalizedDescriptionKey, reason}});
}

// An ISO 8601 date and time; one without a zone is taken as UTC, as the manifest's dates are.
QDateTime utcDateOf(const QString &text)
{
    QDateTime date = QDateTime::fromString(text, Qt::ISODate);
    if (date.isValid() && date.timeSpec() == Qt::LocalTime)
        date.setTimeSpec(Qt::UTC);
    return date.toUTC();
}

// The sections that name a file to download: each must name its SHA-256 as well.
KVResult<void> checkDigestsOf(const KVINI &manifest)
{
    static const QRegularExpression sha256(QStringLiteral("^[0-9a-f]{64}$"));
    for (const KVINISectionPtr &section : manifest.sections())
        if (!section->valueForKey(QStringLiteral("URL")).isNull() &&
            !sha256.match(section->valueForKey(QStringLiteral("SHA256"))).hasMatch())
            return unverified(
                QStringLiteral("the section %1 names no SHA-256 digest in lower-case hex").arg(section->name()));
    return {};
}
} // namespace

KVManifestTrust KVManifestTrust::current()
{
    const QString builtIn = KVBundle::mainBundle().objectForInfoDictionaryKey(QStringLiteral("TrustedKeys")).toString();
    return KVManifestTrust(builtIn.split(QLatin1Char(','), Qt::SkipEmptyParts), KVPolicy::load());
}

KVManifestTrust::KVManifestTrust(const QStringList &bundleKeys, const KVPolicy &policy)
{
    addKeys(bundleKeys, QStringLiteral("the installer's bundle"));
    addKeys(policy.listValue(kTrustSection, QStringLiteral("TrustedKeys")), QStringLiteral("the policy file"));
    for (const QString &keyId : policy.listValue(kTrustSection, QStringLiteral("RevokedKeyIds")))
        m_revokedKeyIds.insert(keyId.toUpper());
    m_required = !m_keys.isEmpty() || policy.boolValue(kTrustSection, QStringLiteral("RequireSignature"));
}

void KVManifestTrust::addKeys(const QStringList &texts, const QString &origin)
{
    for (const QString &text : texts) {
        const KVResult<KVMinisign::PublicKey> key = KVMinisign::PublicKey::fromText(text.trimmed().toLatin1());
        if (key)
            m_keys << *key;
        else // one bad entry must not take the others with it; signatures stay required all the same
            KVLogError("KVManifestTrust: ignoring a trusted key of %@: %@", origin, key.error().localizedDescription());
        m_required = true;
    }
}

KVResult<void> KVManifestTrust::verify(QByteArrayView data, QByteArrayView signatureText) const
{
    const KVResult<KVMinisign::Signature> signature = KVMinisign::Signature::fromText(signatureText);
    if (!signature)
        return unverified(
            QStringLiteral("its signature cannot be read: %1").arg(signature.error().localizedDescription()));
    const QString keyId = KVMinisign::keyIdText(signature->keyId);
    if (m_revokedKeyIds.contains(keyId))
        return unverified(QStringLiteral("it is signed with the key %1, which is revoked").arg(keyId));
    const auto key = std::find_if(m_keys.cbegin(), m_keys.cend(), [&](const KVMinisign::PublicKey &candidate) {
        return candidate.keyId == signature->keyId;
    });
    if (key == m_keys.cend())
        return unverified(
            QStringLiteral("it is signed with the key %1, which this computer does not trust").arg(keyId));
    if (const KVResult<void> checked = signature->verify(data, *key); !checked)
        return unverified(
            QStringLiteral("it does not match its signature: %1").arg(checked.error().localizedDescription()));
    return {};
}

KVResult<void> KVManifestTrust::accept(const KVINI &manifest) const
{
    const KVINISectionPtr header = manifest.sectionWithName(kManifestSection);
    if (!header)
        return unverified(QStringLiteral("it has no [%1] section with its serial and expiry").arg(kManifestSection));

    bool isNumber = false;
    const qint64 serial = header->valueForKey(kSerialKey).toLongLong(&isNumber);
    if (!isNumber)
        return unverified(QStringLiteral("its %1 is not a whole number").arg(kSerialKey));
    KVUserDefaults &defaults = KVUserDefaults::standardUserDefaults();
    const QVariant accepted = defaults.persistentObjectForKey(kAcceptedSerialDefaultsKey);
    if (accepted.isValid() && serial < accepted.toLongLong())
        return unverified(QStringLiteral("it is older than what this computer already received (serial %1, after "
                                         "serial %2)")
                              .arg(serial)
                              .arg(accepted.toLongLong()));

    const QDateTime expires = utcDateOf(header->valueForKey(kExpiresKey));
    if (!expires.isValid())
        return unverified(QStringLiteral("its %1 is not an ISO 8601 date").arg(kExpiresKey));
    if (expires <= QDateTime::currentDateTimeUtc())
        return unverified(QStringLiteral("it expired on %1").arg(expires.toString(Qt::ISODate)));

    if (KVResult<void> digests = checkDigestsOf(manifest); !digests)
        return digests;

    if (!accepted.isValid() || serial > accepted.toLongLong()) {
        defaults.setObject(kAcceptedSerialDefaultsKey, serial);
        if (!defaults.synchronize())
            KVLogError("KVManifestTrust: the accepted serial %@ could not be saved", QString::number(serial));
    }
    return {};
}
