#pragma once

#include "App/Model/KVUpdateTypes.h"
#include "Core/Extensions/KVResult.h"

#include <QString>

// What is kept of an interrupted download so that the next attempt, in this run or the next, can
// continue it instead of starting again: the bytes received so far in "<destination>.part" and,
// beside them in "<destination>.part.json", what they were received as (the server's validator,
// ETag or Last-Modified, and the size and digests the whole file is to have).
class KVPartialDownload
{
public:
    KVPartialDownload(const QString &destination, const KVExpectedDownload &expected);

    const QString &destination() const { return m_destination; }
    QString partPath() const { return m_destination + QStringLiteral(".part"); }

    // How many bytes of the part may be continued: all of them when the record beside it names a
    // validator and the same size and digests as expected now and the part is still short of
    // that size; otherwise 0, and whatever was there is removed.
    [[nodiscard]] qint64 continuableLength();
    // The validator the kept bytes were received under, for If-Range.
    QByteArray validator() const { return m_validator; }

    // Notes that the part is now received under the given validator; an empty one keeps no record,
    // so that the bytes are not continued.
    [[nodiscard]] KVResult<> recordValidator(const QByteArray &validator);
    // Whether a record exists for the part, i.e. whether its bytes are worth keeping after a failure.
    bool isRecorded() const;
    // Removes the part and its record.
    void discard() const;
    // Moves the completed part to the destination and removes the record.
    [[nodiscard]] KVResult<> complete() const;

private:
    QString recordPath() const { return m_destination + QStringLiteral(".part.json"); }

    QString m_destination;
    KVExpectedDownload m_expected;
    QByteArray m_validator;
};
