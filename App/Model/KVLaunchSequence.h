#pragma once

#include "App/Model/KVINISection.h"
#include "App/Model/KVUpdateEngine.h"
#include "Core/Extensions/KVError.h"

#include <QObject>
#include <QVariantMap>

#include <optional>

// The order in which the installer takes the engine through a start, the same with and without a
// window: the installer check and, when a newer installer is published, its self-update; otherwise
// the check of the deliverables, the licence, and after its acceptance a fresh check and the update
// run. Where the sequence stands is step(). A driver shows what the signals report and answers:
// the licence accepted (updateDeliverables()), a failed step repeated (repeatCurrentStep()). Every
// decision about what is due and how it is installed stays with the engine.
//
// Thread: main, for everything; every signal is emitted on the main thread, from within the call
// or engine handler that causes it.
class KVLaunchSequence : public QObject
{
    Q_OBJECT
public:
    // The steps, in the order they are reached; a failure leaves the step where it was.
    enum Step : quint64 {
        CheckingInstaller = 0,
        InstallerChecked = 1,
        UpdatingInstaller = 2,
        InstallerUpdated = 3,
        LicenseShown = 4,
        SectionUpdateStarted = 5,
        SectionUpdateInProgress = 6,
        Complete = 7,
    };
    // The two update runs a start may make.
    enum class Run { Installer, Deliverables };

    // The engine must outlive the sequence.
    explicit KVLaunchSequence(KVUpdateEngine &engine, QObject *parent = nullptr);

    Step step() const { return m_step; }

    // The start, and its repetition: checks the installer, then goes on by itself to the
    // self-update or, through the deliverables check, to the licence.
    void checkInstaller();
    // Once the licence is accepted: checks the deliverables again and updates them with whatever
    // that check returns (its error is not looked at: the run's own failure is the one reported).
    void updateDeliverables();
    // What Try Again and a returning network repeat: the installer check up to the self-update's
    // end, the deliverables' check and run after it.
    void repeatCurrentStep();

Q_SIGNALS:
    // A check starts (the installer's or the deliverables').
    void checkStarted();
    // A check failed; the step names it for the log ("installer check", "update check").
    void checkFailed(const KVError &error, const QString &step);
    // The self-update of the installer to this release starts.
    void installerUpdateStarted(const KVINISectionPtr &section);
    // Deliverables are due: the licence must be accepted before they are updated.
    void licenceRequired(const QList<KVINISectionPtr> &sections);
    // Nothing is due: the engine hands over to the companion application by itself.
    void nothingDue();
    // A progress report of the run under way.
    void runProgressed(Run run, float fraction, const std::optional<QVariantMap> &info);
    // The run ended, successfully when the error is null; the update date is recorded by then.
    void runFinished(Run run, const KVError &error);

private:
    void checkDeliverables();
    void updateInstaller(const KVINISectionPtr &section);
    KVProgressHandler progressOf(Run run, Step stepWhileRunning);
    KVUpdateCompletionHandler completionOf(Run run, Step stepOnSuccess);

    KVUpdateEngine &m_engine;
    Step m_step = CheckingInstaller;
};
