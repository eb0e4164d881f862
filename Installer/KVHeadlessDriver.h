#pragma once

#include "App/Model/KVINISection.h"
#include "App/Model/KVLaunchSequence.h"
#include "App/Model/KVUpdateTypes.h"
#include "Core/Extensions/KVError.h"

#include <QObject>
#include <QStringList>
#include <QTextStream>
#include <QTimer>

#include <optional>

class KVUpdateHelper;

// A progress bar on a terminal: one line redrawn in place when the output is a terminal; plain
// lines otherwise (log files and CI logs), one per new message and per tenth of the way.
// Thread: main.
class KVTerminalProgressBar
{
public:
    KVTerminalProgressBar(QIODevice *output, bool interactive);

    // The fraction is shown as it comes, only kept within 0 to 1 for drawing; a fraction that is
    // not a number (a run whose sizes are all unknown) shows as an empty bar.
    void setProgress(float fraction, const QString &message);
    // Ends a redrawn line, so that whatever is written next starts on a line of its own.
    void finish();

private:
    QString line(int percent, const QString &message) const;

    QTextStream m_output;
    const bool m_interactive;
    std::optional<int> m_shownPercent;
    QString m_shownMessage;
    bool m_lineOpen = false;
};

// The installer without its window, for tests and for administrators who deploy on many machines
// ("NestoraInstaller --headless --accept-license"). It waits for the network, then takes the engine
// through the launch sequence the window uses (KVLaunchSequence): the self-update relaunches the
// installer, headless again; the licence counts as accepted; the engine hands over to the companion
// application at the end. This class only shows the steps and their progress on the terminal and
// turns the outcome into an exit status.
// Thread: main, for everything, callbacks included.
class KVHeadlessDriver : public QObject
{
    Q_OBJECT
public:
    // The statuses that are not failures of the update; each failure has its own, from its
    // error class (KVErrorExitStatus()).
    enum ExitStatus : int {
        Succeeded = 0,           // Nestora was started (or the installer relaunched itself); a request answered
        UsageError = 2,          // unknown option, or the licence not accepted
        AnotherInstanceRuns = 4, // another installer of this user is running
    };

    // The headless mode as a whole, for a command line KVCommandLine has accepted: start-up, the
    // run and its outcome on stdout and stderr. Returns the exit status. Needs a QCoreApplication.
    static int exec(const QStringList &arguments);
    // What a second start tells when another installer already runs; returns the exit status.
    static int refuseSecondInstance();

    KVHeadlessDriver(KVUpdateHelper &engine, QIODevice *output, QIODevice *errors, bool interactive);

    // Takes over the engine's host and starts the first step; finished() follows.
    void start();

Q_SIGNALS:
    // Emitted once with the exit status: after a failure, or when the engine asks the application
    // to end after handing over (to the companion application or to the relaunched installer).
    // 0 only when it has handed over.
    void finished(int status);

private:
    // Offline, the checks would fail at once: as the window does, the run waits for the network,
    // here for as long as a request waits for its answer.
    void waitForNetwork();
    // Shows what the launch sequence reports: its steps, the progress bar and the failures.
    void connectSequence();
    // The end of an update run, self-update or section update alike: a failure, or the text
    // told once the engine has handed over.
    void runDidFinish(KVLaunchSequence::Run run, const KVError &error);
    // Tells the failure of the step on the error output and in the log, and ends with its status.
    void fail(const KVError &error, const QString &step);
    // Writes the text on the error output, on a line of its own.
    void complain(const QString &text);
    void finish(int status);
    void say(const QString &text);

    KVUpdateHelper &m_engine;
    KVTerminalProgressBar m_progress;
    QTextStream m_output;
    QTextStream m_errors;
    KVLaunchSequence m_sequence;
    QString m_handOverText;
    QString m_proxyUser; // passed on to the relaunched installer
    QTimer m_networkDeadline;
    bool m_finished = false;
};
