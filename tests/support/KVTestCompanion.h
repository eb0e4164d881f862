#pragma once

#include <QList>
#include <QStringList>

#include <optional>

// The sample companion application (tools/companion) as tests use it: copies of the built bundle
// in the sandbox, the starts its instances recorded, and clean-up that stops every instance and
// launch script the test caused. Create one per test process, before launching anything: the test
// process then adopts the orphaned instances, so that it can collect them after killing them.
class KVTestCompanion
{
public:
    struct Start
    {
        qint64 processIdentifier = 0;
        QStringList arguments;
    };

    KVTestCompanion();
    ~KVTestCompanion() { stopAll(); }

    static QString builtBundlePath();

    // Copies the built bundle to the path, optionally renaming its program and changing its
    // bundle identifier (both written into the copy's Info.plist).
    [[nodiscard]] static bool install(const QString &bundlePath, const QString &executableName = {},
                                      const QString &bundleIdentifier = {});

    // Every start recorded so far, oldest first.
    QList<Start> starts() const;
    // Waits until no launch script that mentions the sandbox is running.
    [[nodiscard]] static bool waitForLaunchScripts(int timeoutMilliseconds = 30000);
    // Waits for the launch scripts and then for every instance they started to record its start
    // (a script may end before the program it started has got that far). Empty on time-out.
    [[nodiscard]] std::optional<QList<Start>> settledStarts(int timeoutMilliseconds = 30000) const;
    static bool isRunning(qint64 processIdentifier);

    // Waits for the launch scripts, kills every process whose program lies in the sandbox,
    // collects them and forgets the recorded starts.
    void stopAll();

private:
    QString m_recordPath;
};
