#include "Core/Extensions/KVFileHandle+MD5.h"

#include <QCryptographicHash>
#include <QIODevice>

namespace KVFileHandle {

QString md5Value(QIODevice *fileHandle)
{
    if (!fileHandle)
        return {};
    constexpr qint64 chunkSize = 0x500000;
    QCryptographicHash hash(QCryptographicHash::Md5);
    QByteArray chunk(chunkSize, Qt::Uninitialized);
    for (;;) {
        const qint64 count = fileHandle->read(chunk.data(), chunkSize);
        if (count < 0)
            return {};
        if (count == 0)
            break;
        hash.addData(QByteArrayView(chunk.constData(), count));
    }
    return QString::fromLatin1(hash.result().toHex());
}

} // namespace KVFileHandle
