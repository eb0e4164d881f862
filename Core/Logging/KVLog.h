#pragma once

#include "Core/Logging/KVFormat.h"

#include <memory>

namespace spdlog::sinks {
class sink;
}

// Log flags as the program's calls use them; a level mask includes every more severe flag.
enum class KVLogFlag : int { Error = 1, Warning = 2, Info = 4, Debug = 8, Verbose = 16 };

// The process-wide logger registry. Every call carries its source file, function and line.
// Error lines are written synchronously and flushed before the call returns; all other lines
// go through a background thread.
namespace KVLog {

void write(KVLogFlag flag, const char *file, int line, const char *function, const QString &message);

// Attaches a sink that receives every line at or above its own level. Thread: any.
void addSink(const std::shared_ptr<spdlog::sinks::sink> &sink);
void removeSink(const std::shared_ptr<spdlog::sinks::sink> &sink);
// Waits until the background thread has written every line logged so far.
void flush();

} // namespace KVLog

#define KV_LOG(flag, format, ...)                                                                                      \
    ::KVLog::write(flag, __FILE__, __LINE__, static_cast<const char *>(__func__),                                      \
                   KVFormat(format __VA_OPT__(, ) __VA_ARGS__))
#define KVLogError(format, ...) KV_LOG(KVLogFlag::Error, format __VA_OPT__(, ) __VA_ARGS__)
#define KVLogWarning(format, ...) KV_LOG(KVLogFlag::Warning, format __VA_OPT__(, ) __VA_ARGS__)
#define KVLogInfo(format, ...) KV_LOG(KVLogFlag::Info, format __VA_OPT__(, ) __VA_ARGS__)
#define KVLogDebug(format, ...) KV_LOG(KVLogFlag::Debug, format __VA_OPT__(, ) __VA_ARGS__)
#define KVLogVerbose(format, ...) KV_LOG(KVLogFlag::Verbose, format __VA_OPT__(, ) __VA_ARGS__)
