#pragma once

#include <QString>

// Facts about the running operating system.
namespace KVSystemInfo {

// Major and minor version of the running distribution from /etc/os-release VERSION_ID
// ("12" reads as 12.0), or {0, 0} when unknown. NESTORA_OS_VERSION ("major.minor") overrides it,
// so that a manifest's per-system choices can be exercised on any machine.
struct Version
{
    long major = 0;
    long minor = 0;
};
Version operatingSystemVersion();

// Parses the VERSION_ID of an os-release text.
Version versionFromOsRelease(const QString &osReleaseText);

} // namespace KVSystemInfo
