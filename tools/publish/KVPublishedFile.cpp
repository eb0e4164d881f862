#include "KVPublishedFile.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

namespace {
KVError readError(KVCocoaErrorCode code, const QString &reason)
{
    return KVError(KVCocoaErrorDomain, code, {{KVLocalizedDescriptionKey, reason}});
}
} // namespace

KVResult<KVPublishedFile> KVPublishedFile::read(const QString &path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile())
        return readError(KVFileNoSuchFileError, QStringLiteral("no such file"));
    if (!file.open(QIODevice::ReadOnly))
        return readError(KVFileReadUnknownError, file.errorString());
    QCryptographicHash md5(QCryptographicHash::Md5);
    QCryptographicHash sha256(QCryptographicHash::Sha256);
    // Chunks keep memory flat for archives of any size.
    QByteArray chunk(1 << 20, Qt::Uninitialized);
    qint64 count = 0;
    qint64 total = 0;
    while ((count = file.read(chunk.data(), chunk.size())) > 0) {
        const QByteArrayView part(chunk.constData(), count);
        md5.addData(part);
        sha256.addData(part);
        total += count;
    }
    if (count < 0)
        return readError(KVFileReadUnknownError, file.errorString());
    return KVPublishedFile{total, QString::fromLatin1(md5.result().toHex()),
                           QString::fromLatin1(sha256.result().toHex())};
}
