#pragma once

#include "Core/Extensions/KVError.h"

#include <chrono>
#include <optional>

class QNetworkReply;

// Which failed transfers are tried again, and after how long. A connection that broke off or
// timed out, a server error (5xx) and a server asking to slow down (429) pass with time; anything
// else would fail the same way again. The waits grow (1, 2, 4, 8 s), a Retry-After the server
// sends counts when it asks for more, and none is longer than a minute. NESTORA_RETRY_TIME_SCALE
// (a factor, 1 by default) shortens every wait, so that a test does not sleep.
namespace KVTransferRetry {

// Attempts in all, the first one included.
inline constexpr int kMaxAttempts = 5;

[[nodiscard]] bool isTransient(const KVError &error);

// The seconds a 429 or 503 reply's Retry-After asks for, as a number or as an HTTP date.
[[nodiscard]] std::optional<std::chrono::seconds> retryAfterOf(const QNetworkReply &reply);

// The wait before the next attempt, after the given number of failed ones (1 and up).
[[nodiscard]] std::chrono::milliseconds waitAfter(int failedAttempts, std::optional<std::chrono::seconds> retryAfter);

} // namespace KVTransferRetry
