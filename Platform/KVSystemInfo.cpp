#include "Platform/KVSystemInfo.h"

#include <QFile>
#include <QRegularExpression>

namespace KVSystemInfo {

static Version parseVersion(const QString &text)
{
    const QStringList parts = text.trimmed().split(QLatin1Char('.'));
    Version version;
    version.major = parts.value(0).toLong();
    version.minor = parts.value(1).toLong();
    return version;
}

Version versionFromOsRelease(const QString &osReleaseText)
{
    static const QRegularExpression versionId(QStringLiteral("^VERSION_ID=\"?([^\"\\n]*)\"?\\s*$"),
                                              QRegularExpression::MultilineOption);
    const QRegularExpressionMatch match = versionId.match(osReleaseText);
    return match.hasMatch() ? parseVersion(match.captured(1)) : Version{};
}

Version operatingSystemVersion()
{
    const QString override = qEnvironmentVariable("NESTORA_OS_VERSION");
    if (!override.isEmpty())
        return parseVersion(override);
    for (const char *path : {"/etc/os-release", "/usr/lib/os-release"}) {
        QFile file(QString::fromLatin1(path));
        if (file.open(QIODevice::ReadOnly))
            return versionFromOsRelease(QString::fromUtf8(file.readAll()));
    }
    return {};
}

} // namespace KVSystemInfo
