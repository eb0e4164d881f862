#include "App/Model/KVContentDecoder.h"

#include <zlib.h>

namespace {
// What one step of decoding may produce before the sink sees it.
constexpr qsizetype kPieceSize = qsizetype{256} * 1024;
// zlib's window size, plus 32: detect a gzip or a zlib (HTTP "deflate") header by itself.
constexpr int kWindowBitsWithHeaderDetection = 15 + 32;
} // namespace

struct KVContentDecoder::Stream
{
    z_stream zlib{};
};

bool KVContentDecoder::isIdentity(const QByteArray &contentEncoding)
{
    const QByteArray encoding = contentEncoding.trimmed().toLower();
    return encoding.isEmpty() || encoding == "identity";
}

std::unique_ptr<KVContentDecoder> KVContentDecoder::forEncoding(const QByteArray &contentEncoding)
{
    const QByteArray encoding = contentEncoding.trimmed().toLower();
    if (encoding != "gzip" && encoding != "x-gzip" && encoding != "deflate")
        return nullptr;
    std::unique_ptr<KVContentDecoder> decoder(new KVContentDecoder);
    if (inflateInit2(&decoder->m_stream->zlib, kWindowBitsWithHeaderDetection) != Z_OK)
        return nullptr;
    return decoder;
}

KVContentDecoder::KVContentDecoder()
    : m_stream(std::make_unique<Stream>())
{}

KVContentDecoder::~KVContentDecoder()
{
    inflateEnd(&m_stream->zlib);
}

bool KVContentDecoder::decode(QByteArrayView encoded, const Sink &sink)
{
    z_stream &zlib = m_stream->zlib;
    // Anything after the end of the stream is not part of the body that was encoded.
    if (m_complete)
        return encoded.isEmpty();
    QByteArray piece(kPieceSize, Qt::Uninitialized);
    zlib.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(encoded.data()));
    zlib.avail_in = uInt(encoded.size());
    do {
        zlib.next_out = reinterpret_cast<Bytef *>(piece.data());
        zlib.avail_out = uInt(piece.size());
        const int result = inflate(&zlib, Z_NO_FLUSH);
        if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
            return false;
        const qsizetype produced = piece.size() - qsizetype(zlib.avail_out);
        if (produced > 0 && !sink(QByteArrayView(piece.constData(), produced)))
            return false;
        if (result == Z_STREAM_END) {
            m_complete = true;
            return zlib.avail_in == 0;
        }
        if (result == Z_BUF_ERROR && produced == 0)
            break; // needs more input
    } while (zlib.avail_in > 0 || zlib.avail_out == 0);
    return true;
}
