#include "App/Model/KVManifestCache.h"

#include "Core/Logging/KVLog.h"
#include "Platform/KVFileOperations.h"
#include "Platform/KVStandardPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace {

const QString kURLKey = QStringLiteral("url");
const QString kManifestKey = QStringLiteral("manifest");
const QString kSignatureKey = QStringLiteral("signature");
const QString kETagKey = QStringLiteral("etag");
const QString kLastModifiedKey = QStringLiteral("lastModified");

// One file, replaced whole, so that a manifest is never kept with another one's signature.
QString cachePath()
{
    return KVStandardPaths::cacheDirectory() + QStringLiteral("/Nestora/Manifest.json");
}

QByteArray bytesOf(const QJsonObject &object, const QString &key)
{
    return QByteArray::fromBase64(object.value(key).toString().toLatin1());
}

QString textOf(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toBase64());
}

} // namespace

std::optional<KVManifestCache::Copy> KVManifestCache::load(const QUrl &url)
{
    QFile file(cachePath());
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QJsonObject kept = QJsonDocument::fromJson(file.readAll()).object();
    if (kept.value(kURLKey).toString() != url.toString() || !kept.contains(kManifestKey))
        return std::nullopt;
    return Copy{bytesOf(kept, kManifestKey), bytesOf(kept, kSignatureKey),
                KVHTTPValidators{bytesOf(kept, kETagKey), bytesOf(kept, kLastModifiedKey)}};
}

void KVManifestCache::store(const QUrl &url, const Copy &copy)
{
    if (copy.validators.isEmpty()) { // nothing to ask the server with
        (void)KVFileOperations::removeItem(cachePath());
        return;
    }
    const QJsonObject kept{{kURLKey, url.toString()},
                           {kManifestKey, textOf(copy.manifest)},
                           {kSignatureKey, textOf(copy.signature)},
                           {kETagKey, textOf(copy.validators.etag)},
                           {kLastModifiedKey, textOf(copy.validators.lastModified)}};
    QDir().mkpath(QFileInfo(cachePath()).absolutePath());
    QSaveFile file(cachePath());
    if (file.open(QIODevice::WriteOnly) && file.write(QJsonDocument(kept).toJson(QJsonDocument::Compact)) >= 0 &&
        file.commit())
        return;
    KVLogWarning("%@: the manifest could not be kept in %@: %@", QStringLiteral("KVManifestCache"), cachePath(),
                 file.errorString());
    (void)KVFileOperations::removeItem(cachePath());
}
