#pragma once

#include "Core/Logging/KVRollingFileSink.h"
#include "Platform/KVSystemLog.h"

#include <QString>

#include <memory>
#include <optional>

class KVUserDefaults;

// Attaches the installer's loggers: the system log, which receives everything, and the rolling
// file log in <data home>/Nestora/InstallerLog, whose level the user's own "LogLevel" chooses.
class KVLogSetup
{
public:
    static constexpr qint64 kRollingFrequencySeconds = 604800; // seven days
    static constexpr int kMaximumNumberOfLogFiles = 8;

    struct Options
    {
        bool systemLog = KVSystemLog::isEnabled();
        KVRollingFileSink::Clock clock = &QDateTime::currentDateTimeUtc;
    };

    struct Result
    {
        QString levelName;           // as read, in its own case, or "info" in the fallback
        std::optional<int> fileMask; // nothing when no file logger was attached
        std::shared_ptr<KVRollingFileSink> fileSink;
    };

    static QString logDirectory();
    // The mask of a level name, compared case-blind; nothing for an unknown name.
    static std::optional<int> maskForLevelName(const QString &name);

    // Replaces the sinks of an earlier set-up; sinks attached by others stay.
    static Result setupCocoaLumberjack(const KVUserDefaults &defaults, const Options &options);
};
