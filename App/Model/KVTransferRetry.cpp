#include "App/Model/KVTransferRetry.h"

#include <QDateTime>
#include <QNetworkReply>

#include <algorithm>

namespace KVTransferRetry {

namespace {
constexpr std::chrono::milliseconds kFirstWait(1000);
constexpr std::chrono::milliseconds kLongestWait(60000);
constexpr int kTooManyRequests = 429;

double timeScale()
{
    bool valid = false;
    const double scale = qEnvironmentVariable("NESTORA_RETRY_TIME_SCALE").toDouble(&valid);
    return valid && scale >= 0 ? scale : 1.0;
}
} // namespace

bool isTransient(const KVError &error)
{
    if (error.domain() != KVURLErrorDomain)
        return false;
    if (error.code() == KVURLErrorTimedOut || error.code() == KVURLErrorNetworkConnectionLost)
        return true;
    const int status = error.userInfo().value(KVHTTPStatusKey).toInt();
    return status == kTooManyRequests || (status >= 500 && status < 600);
}

std::optional<std::chrono::seconds> retryAfterOf(const QNetworkReply &reply)
{
    const QByteArray value = reply.rawHeader("Retry-After").trimmed();
    if (value.isEmpty())
        return std::nullopt;
    bool isNumber = false;
    const qint64 seconds = value.toLongLong(&isNumber);
    if (isNumber)
        return std::chrono::seconds(std::max<qint64>(seconds, 0));
    const QDateTime date = QDateTime::fromString(QString::fromLatin1(value), Qt::RFC2822Date);
    if (!date.isValid())
        return std::nullopt;
    return std::chrono::seconds(std::max<qint64>(QDateTime::currentDateTimeUtc().secsTo(date), 0));
}

std::chrono::milliseconds waitAfter(int failedAttempts, std::optional<std::chrono::seconds> retryAfter)
{
    std::chrono::milliseconds wait = kFirstWait * (1 << std::clamp(failedAttempts - 1, 0, 6));
    if (retryAfter)
        wait = std::max<std::chrono::milliseconds>(wait, *retryAfter);
    wait = std::min(wait, kLongestWait);
    return std::chrono::milliseconds(qint64(double(wait.count()) * timeScale()));
}

} // namespace KVTransferRetry
