#pragma once

#include "App/Model/KVUpdateHelper.h"

#include <optional>

// One run of the installer's own update: downloads the published build (the first half of the
// progress), verifies its digest, checks that the archive holds this installer's bundle, whole, and
// that the new build runs and names the published version, swaps it in over the running installer
// (the previous one waits beside it until the relaunched build confirms), reports completion, and
// relaunches. Lives for one run on the engine's queue; the download callbacks touch its state on the
// main thread while the queue waits on the semaphore.
class KVInstallerUpdateRun
{
public:
    KVInstallerUpdateRun(KVUpdateHelper &engine, KVINISectionPtr section, KVProgressHandler progressHandler,
                         KVUpdateCompletionHandler completionHandler);

    // Thread: the engine's queue. Returns once the completion has been delivered and, after a
    // success, the relaunch has been started.
    void run();

private:
    // Thread: the engine's queue, each of them.
    void download();
    void verifyDigest();
    void locateTarget();
    void install();
    void complete();
    void relaunch();
    // "-KVWindowOrigin" with the top-right place of the window, then the host's own arguments.
    QStringList relaunchArguments() const;

    // Thread: main.
    void report(float fraction, const std::optional<QVariantMap> &info) const;

    KVUpdateHelper &m_engine;
    const KVINISectionPtr m_section;
    const KVProgressHandler m_progressHandler;
    const KVUpdateCompletionHandler m_completionHandler;
    const QString m_downloadPath;

    KVError m_runError;
    // The running installer's bundle (where it really lies when the system runs a translocated
    // copy), and its program as it will be once the old bundle is back in place.
    QString m_target;
    QString m_previousProgram;
};
