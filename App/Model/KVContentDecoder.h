#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <functional>
#include <memory>

// Undoes the gzip or deflate content encoding of an HTTP body as it arrives, in pieces of bounded
// size, and tells whether the encoded stream ended properly: a body cut short is not complete,
// however much of it could be decoded.
class KVContentDecoder
{
public:
    // Receives each decoded piece; answers false to stop decoding.
    using Sink = std::function<bool(QByteArrayView piece)>;

    // A decoder for the value of a Content-Encoding header, or nothing for an encoding this
    // class does not know. An identity encoding needs no decoder and gets none either.
    [[nodiscard]] static std::unique_ptr<KVContentDecoder> forEncoding(const QByteArray &contentEncoding);
    static bool isIdentity(const QByteArray &contentEncoding);

    ~KVContentDecoder();
    KVContentDecoder(const KVContentDecoder &) = delete;
    KVContentDecoder &operator=(const KVContentDecoder &) = delete;

    // Decodes the next part of the body into the sink. False when the data is not of the
    // encoding, or when the sink stopped.
    [[nodiscard]] bool decode(QByteArrayView encoded, const Sink &sink);
    // True once the encoded stream has reached its proper end.
    bool isComplete() const { return m_complete; }

private:
    KVContentDecoder();

    struct Stream;
    std::unique_ptr<Stream> m_stream;
    bool m_complete = false;
};
