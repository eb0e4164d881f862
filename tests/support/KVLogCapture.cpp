#include "KVLogCapture.h"

#include "Core/Logging/KVLog.h"

#include <spdlog/sinks/base_sink.h>

class KVCapturingSink final : public spdlog::sinks::base_sink<std::mutex>
{
public:
    QStringList lines()
    {
        std::lock_guard lock(mutex_);
        return m_lines;
    }

protected:
    void sink_it_(const spdlog::details::log_msg &message) override
    {
        m_lines << QString::fromUtf8(message.payload.data(), qsizetype(message.payload.size()));
    }
    void flush_() override {}

private:
    QStringList m_lines;
};

KVLogCapture::KVLogCapture()
    : m_sink(std::make_shared<KVCapturingSink>())
{
    m_sink->set_level(spdlog::level::trace);
    KVLog::addSink(m_sink);
}

KVLogCapture::~KVLogCapture()
{
    KVLog::removeSink(m_sink);
}

QStringList KVLogCapture::messages() const
{
    KVLog::flush();
    return m_sink->lines();
}
