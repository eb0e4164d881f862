#include "Installer/KVLogSetup.h"

#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"
#include "Platform/KVStandardPaths.h"
#include "Platform/KVUserDefaults.h"

#include <QDir>

#include <spdlog/sinks/syslog_sink.h>

#include <syslog.h>

namespace {
// The file sink's threshold for a mask: a mask lets through its own flag and every more severe one.
spdlog::level::level_enum levelForMask(int mask)
{
    switch (mask) {
    case 31:
        return spdlog::level::trace;
    case 15:
        return spdlog::level::debug;
    case 7:
        return spdlog::level::info;
    case 3:
        return spdlog::level::warn;
    default:
        return spdlog::level::err;
    }
}
} // namespace

QString KVLogSetup::logDirectory()
{
    return KVStandardPaths::applicationSupportDirectory() + QStringLiteral("/Nestora/InstallerLog");
}

std::optional<int> KVLogSetup::maskForLevelName(const QString &name)
{
    static const std::pair<const char *, int> levels[] = {
        {"verbose", 31}, {"debug", 15}, {"info", 7}, {"warning", 3}, {"error", 1}};
    const QString lowered = name.toLower();
    for (const auto &[levelName, mask] : levels)
        if (lowered == QLatin1String(levelName))
            return mask;
    return std::nullopt;
}

KVLogSetup::Result KVLogSetup::setupCocoaLumberjack(const KVUserDefaults &defaults, const Options &options)
{
    // Setting up again replaces the sinks of the previous set-up, and only those.
    static std::vector<std::shared_ptr<spdlog::sinks::sink>> attached;
    for (const auto &sink : attached)
        KVLog::removeSink(sink);
    attached.clear();
    const auto attach = [](std::shared_ptr<spdlog::sinks::sink> sink) {
        KVLog::addSink(sink);
        attached.push_back(std::move(sink));
    };

    if (options.systemLog) {
        auto systemLog = std::make_shared<spdlog::sinks::syslog_sink_mt>(KVBundle::kInstallerName.toStdString(),
                                                                         LOG_PID, LOG_USER, true);
        systemLog->set_level(spdlog::level::trace);
        attach(systemLog);
    }

    const QString folder = logDirectory();
    if (!QDir(folder).exists())
        QDir().mkpath(folder); // a failure is left to the file sink, which then drops its lines

    Result result;
    result.fileSink =
        std::make_shared<KVRollingFileSink>(folder, QStringLiteral("com.tovik.nestora.installer"),
                                            kRollingFrequencySeconds, kMaximumNumberOfLogFiles, options.clock);
    // Only the user's own setting counts here: the bundled defaults are registered later in launch.
    const QVariant level = defaults.persistentObjectForKey(QStringLiteral("LogLevel"));
    if (level.metaType() == QMetaType::fromType<QString>()) {
        result.levelName = level.toString();
        result.fileMask = maskForLevelName(result.levelName);
    } else {
        result.levelName = QStringLiteral("info");
        result.fileMask = 7;
    }
    if (result.fileMask) {
        result.fileSink->set_level(levelForMask(*result.fileMask));
        attach(result.fileSink);
    } else {
        result.fileSink.reset();
    }
    KVLogError("setup CocoaLumberjack log level to %@", result.levelName);
    return result;
}
