#pragma once

#include <QByteArray>
#include <QXmlStreamReader>

// Whether the data is a well-formed XML document: it holds no character XML forbids (a NUL
// among them), every element is closed and nothing follows the last one.
inline bool KVIsWellFormedXml(const QByteArray &data)
{
    QXmlStreamReader reader(data);
    while (!reader.atEnd())
        reader.readNext();
    return !reader.hasError();
}
