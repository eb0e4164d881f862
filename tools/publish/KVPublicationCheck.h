#pragma once

#include "App/Model/KVMinisign.h"
#include "KVManifestLint.h"

#include <QDateTime>
#include <QDir>

// Checks a published folder before it goes live, as the installer will read it: the manifest's
// signature with the release's public key, its serial and expiry, and that each file it names lies
// in the folder with the size and digests the manifest states; adds the manifest's warnings.
//
// A file is found by the path of its URL below the manifest's folder; leading folders of that path
// are dropped until a file is there, as the folder may be served below any prefix.
class KVPublicationCheck
{
public:
    // The manifest as read from its path; its ".minisig" signature and its files are beside it.
    KVPublicationCheck(const QString &manifestPath, const QByteArray &manifest);

    // Errors and warnings, ordered by line (those about the whole manifest first).
    QList<KVManifestFinding> findings(const KVMinisign::PublicKey &key, const QDateTime &now) const;

private:
    void checkSignature(const KVMinisign::PublicKey &key, QList<KVManifestFinding> &findings) const;
    void checkFreshness(const QDateTime &now, QList<KVManifestFinding> &findings) const;
    void checkFiles(QList<KVManifestFinding> &findings) const;
    QString fileForURL(const QString &url) const;

    QString m_manifestPath;
    QByteArray m_manifest;
    KVManifestOutline m_outline;
    QDir m_folder;
};
