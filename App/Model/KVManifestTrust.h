#pragma once

#include "App/Model/KVINI.h"
#include "App/Model/KVMinisign.h"

#include <QList>
#include <QSet>

class KVPolicy;

// Decides whether a fetched manifest may be used: whom the installer trusts to sign it (the keys
// built into its bundle and those the administrator's policy adds, less the revoked ones), whether
// a signature is required, and whether a signed manifest is current (its serial not lower than
// the highest this computer accepted, its expiry not past).
//
// A signature is required as soon as one key is trusted, or the policy says so; without either
// (a developer build) manifests are used unchecked. Thread: the engine's queue.
class KVManifestTrust
{
public:
    // The "[Manifest]" section of a signed manifest, its keys, and the settings key that keeps
    // the highest serial accepted.
    static inline const QString kManifestSection = QStringLiteral("Manifest");
    static inline const QString kSerialKey = QStringLiteral("Serial");
    static inline const QString kExpiresKey = QStringLiteral("Expires");
    static inline const QString kAcceptedSerialDefaultsKey = QStringLiteral("ManifestSerialAccepted");

    // The trust of this installer: its bundle's "TrustedKeys" and the policy's "[Trust]" section.
    static KVManifestTrust current();
    KVManifestTrust(const QStringList &bundleKeys, const KVPolicy &policy);

    bool isSignatureRequired() const { return m_required; }

    // Success when the signature was made by a trusted key that is not revoked, over exactly this data.
    [[nodiscard]] KVResult<void> verify(QByteArrayView data, QByteArrayView signatureText) const;
    // Success when the verified manifest is current and names a SHA-256 digest for every file it
    // offers; its serial is then remembered.
    [[nodiscard]] KVResult<void> accept(const KVINI &manifest) const;

private:
    void addKeys(const QStringList &texts, const QString &origin);

    QList<KVMinisign::PublicKey> m_keys;
    QSet<QString> m_revokedKeyIds; // as KVMinisign::keyIdText() writes them
    bool m_required = false;
};
