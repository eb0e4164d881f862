#pragma once

#include "Core/Extensions/KVResult.h"

#include <QStringList>

// Decides whether a downloaded archive may replace something installed: before unpacking, from
// the archive's listing (every entry stays inside the extraction folder, the unpacked size is
// bounded); after unpacking, from what was unpacked (no link leads out of its top-level item; for
// a bundle, exactly the one bundle expected, with its identifier and a runnable executable, which
// for a new installer must also tell its version when asked).
// Failures are "KVUpdateHelperErrorDomain" code 6 errors whose description names the problem.
class KVArchiveCheck
{
public:
    // An archive may unpack to at most this many times its own size.
    static constexpr qint64 maximumExpansion = 20;

    // Before unpacking the archive into the folder.
    static KVResult<> checkListing(const QString &archivePath, const QString &folder);
    // After unpacking: the top-level items of the extraction folder.
    static KVResult<> checkLinks(const QStringList &items);

    // The bundle that an archive must hold, alone, to be deployed: its folder name and identifier.
    KVArchiveCheck(QString bundleName, QString bundleIdentifier);
    // The top-level items of the extraction folder, without "__MACOSX".
    KVResult<> checkBundle(const QStringList &items) const;
    // After checkBundle(), for a program that must run before it replaces the running one: started
    // with "--version", it prints the version within versionTimeout and ends with status 0.
    KVResult<> checkReportedVersion(const QString &bundlePath, const QString &version) const;
    static constexpr int versionTimeoutSeconds = 10;

private:
    QString m_bundleName;
    QString m_bundleIdentifier;
};
