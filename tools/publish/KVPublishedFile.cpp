#include "KVPublishedFile.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>

std::optional<KVPublishedFile> KVPublishedFile::read(const QString &path, QString *errorMessage)
{
    QFile file(path);
    if (!QFileInfo(path).isFile()) {
        *errorMessage = QStringLiteral("no such file");
        return std::nullopt;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        *errorMessage = file.errorString();
        return std::nullopt;
    }
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
    if (count < 0) {
        *errorMessage = file.errorString();
        return std::nullopt;
    }
    return KVPublishedFile{total, QString::fromLatin1(md5.result().toHex()),
                           QString::fromLatin1(sha256.result().toHex())};
}
