#include "App/Model/KVPartialDownload.h"

#include "Platform/KVFileOperations.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace {

const QString kValidatorKey = QStringLiteral("validator");
const QString kSizeKey = QStringLiteral("size");
const QString kSHA256Key = QStringLiteral("sha256");
const QString kMD5Key = QStringLiteral("md5");

QJsonObject recordOf(const KVExpectedDownload &expected, const QByteArray &validator)
{
    return {{kValidatorKey, QString::fromLatin1(validator)},
            {kSizeKey, QString::number(expected.size.value_or(-1))},
            {kSHA256Key, QString::fromLatin1(expected.sha256)},
            {kMD5Key, QString::fromLatin1(expected.md5)}};
}

} // namespace

KVPartialDownload::KVPartialDownload(const QString &destination, const KVExpectedDownload &expected)
    : m_destination(destination)
    , m_expected(expected)
{}

qint64 KVPartialDownload::continuableLength()
{
    QFile record(recordPath());
    const QJsonObject kept =
        record.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(record.readAll()).object() : QJsonObject();
    m_validator = kept.value(kValidatorKey).toString().toLatin1();
    const qint64 length = QFileInfo(partPath()).size();
    // The file published under the same name may have changed since: only the same promise counts.
    const bool samePromise = !m_validator.isEmpty() && kept == recordOf(m_expected, m_validator);
    if (samePromise && length > 0 && length < m_expected.size.value_or(std::numeric_limits<qint64>::max()))
        return length;
    discard();
    return 0;
}

KVResult<> KVPartialDownload::recordValidator(const QByteArray &validator)
{
    m_validator = validator;
    if (validator.isEmpty())
        return KVFileOperations::removeItem(recordPath());
    QSaveFile record(recordPath());
    if (!record.open(QIODevice::WriteOnly) ||
        record.write(QJsonDocument(recordOf(m_expected, validator)).toJson(QJsonDocument::Compact)) < 0 ||
        !record.commit())
        return KVError(KVCocoaErrorDomain, KVFileWriteUnknownError,
                       {{KVLocalizedDescriptionKey, record.errorString()}, {KVFilePathErrorKey, recordPath()}});
    return {};
}

bool KVPartialDownload::isRecorded() const
{
    return QFileInfo::exists(recordPath());
}

void KVPartialDownload::discard() const
{
    (void)KVFileOperations::removeItem(recordPath());
    (void)KVFileOperations::removeItem(partPath());
}

KVResult<> KVPartialDownload::complete() const
{
    // The record goes first: a part without one is never continued.
    (void)KVFileOperations::removeItem(recordPath());
    return KVFileOperations::replaceItem(m_destination, partPath());
}
