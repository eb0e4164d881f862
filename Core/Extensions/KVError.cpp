#include "Core/Extensions/KVError.h"

#include <cerrno>
#include <cstring>

KVError::KVError(QString domain, qint64 code, QVariantMap userInfo)
    : m_domain(domain.isNull() ? QStringLiteral("") : std::move(domain))
    , m_code(code)
    , m_userInfo(std::move(userInfo))
{}

KVError KVError::fromErrno(int errnoValue, const QString &path)
{
    qint64 code = KVFileWriteUnknownError;
    switch (errnoValue) {
    case EACCES:
    case EPERM:
    case EROFS:
        code = KVFileWriteNoPermissionError;
        break;
    case ENOENT:
        code = KVFileNoSuchFileError;
        break;
    case ENOSPC:
    case EDQUOT:
        code = KVFileWriteOutOfSpaceError;
        break;
    default:
        break;
    }
    QVariantMap info{{KVLocalizedDescriptionKey, QString::fromLocal8Bit(std::strerror(errnoValue))},
                     {KVErrnoKey, errnoValue}};
    if (!path.isEmpty())
        info.insert(KVFilePathErrorKey, path);
    return KVError(KVCocoaErrorDomain, code, info);
}

QString KVError::localizedDescription() const
{
    const QVariant description = m_userInfo.value(KVLocalizedDescriptionKey);
    if (description.isValid())
        return description.toString();
    return QStringLiteral("The operation couldn\u2019t be completed. (%1 error %2.)").arg(m_domain).arg(m_code);
}

QString KVError::localizedFailureReason() const
{
    return m_userInfo.value(KVLocalizedFailureReasonErrorKey).toString();
}

KVError KVError::underlyingError() const
{
    return m_userInfo.value(KVUnderlyingErrorKey).value<KVError>();
}

QString KVError::description() const
{
    if (isNull())
        return QStringLiteral("(null)");
    QString text =
        QStringLiteral("Error Domain=%1 Code=%2 \"%3\"").arg(m_domain).arg(m_code).arg(localizedDescription());
    if (!m_userInfo.isEmpty()) {
        QStringList entries;
        for (auto it = m_userInfo.cbegin(); it != m_userInfo.cend(); ++it)
            entries << it.key() + QLatin1Char('=') +
                           (it.value().metaType() == QMetaType::fromType<KVError>()
                                ? it.value().value<KVError>().description()
                                : it.value().toString());
        text += QStringLiteral(" UserInfo={%1}").arg(entries.join(QStringLiteral(", ")));
    }
    return text;
}
