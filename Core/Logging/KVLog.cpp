#include "Core/Logging/KVLog.h"

#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/spdlog.h>

#include <spdlog/sinks/base_sink.h>

#include <future>
#include <mutex>

namespace {

spdlog::level::level_enum levelForFlag(KVLogFlag flag)
{
    switch (flag) {
    case KVLogFlag::Error:
        return spdlog::level::err;
    case KVLogFlag::Warning:
        return spdlog::level::warn;
    case KVLogFlag::Info:
        return spdlog::level::info;
    case KVLogFlag::Debug:
        return spdlog::level::debug;
    case KVLogFlag::Verbose:
        break;
    }
    return spdlog::level::trace;
}

// Two loggers over one set of sinks: errors go through the synchronous one, the rest through
// the asynchronous one. Sinks are thread-safe (_mt), so both may write to them at once.
struct Registry
{
    Registry()
        : pool(std::make_shared<spdlog::details::thread_pool>(8192, 1))
        , synchronous(std::make_shared<spdlog::logger>("nestora"))
        , asynchronous(std::make_shared<spdlog::async_logger>("nestora.async", spdlog::sinks_init_list{}, pool,
                                                              spdlog::async_overflow_policy::block))
    {
        synchronous->set_level(spdlog::level::trace);
        asynchronous->set_level(spdlog::level::trace);
    }

    std::mutex mutex; // guards changes of the sink lists
    std::shared_ptr<spdlog::details::thread_pool> pool;
    std::shared_ptr<spdlog::logger> synchronous;
    std::shared_ptr<spdlog::async_logger> asynchronous;
};

Registry &registry()
{
    static Registry instance;
    return instance;
}

class BarrierSink final : public spdlog::sinks::base_sink<std::mutex>
{
public:
    std::promise<void> flushed;

protected:
    void sink_it_(const spdlog::details::log_msg &) override {}
    void flush_() override { flushed.set_value(); }
};

} // namespace

namespace KVLog {

void write(KVLogFlag flag, const char *file, int line, const char *function, const QString &message)
{
    Registry &r = registry();
    const spdlog::source_loc location{file, line, function};
    const QByteArray text = message.toUtf8();
    const spdlog::string_view_t view(text.constData(), size_t(text.size()));
    std::lock_guard lock(r.mutex);
    if (flag == KVLogFlag::Error) {
        r.synchronous->log(location, spdlog::level::err, view);
        r.synchronous->flush();
    } else {
        r.asynchronous->log(location, levelForFlag(flag), view);
    }
}

void addSink(const std::shared_ptr<spdlog::sinks::sink> &sink)
{
    Registry &r = registry();
    flush();
    std::lock_guard lock(r.mutex);
    r.synchronous->sinks().push_back(sink);
    r.asynchronous->sinks().push_back(sink);
}

void removeSink(const std::shared_ptr<spdlog::sinks::sink> &sink)
{
    Registry &r = registry();
    flush();
    std::lock_guard lock(r.mutex);
    std::erase(r.synchronous->sinks(), sink);
    std::erase(r.asynchronous->sinks(), sink);
}

void flush()
{
    // The pool has a single worker that handles its queue in order, so when a flush posted now
    // reaches a private barrier sink, every line logged before it has been written.
    Registry &r = registry();
    auto barrier = std::make_shared<BarrierSink>();
    auto barrierLogger = std::make_shared<spdlog::async_logger>("nestora.barrier", barrier, r.pool);
    auto written = barrier->flushed.get_future();
    barrierLogger->flush();
    written.wait();
}

} // namespace KVLog
