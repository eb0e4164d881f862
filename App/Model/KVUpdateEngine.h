#pragma once

#include "App/Model/KVINISection.h"
#include "App/Model/KVUpdateTypes.h"
#include "Core/Extensions/KVError.h"

#include <QList>

#include <functional>

// The four steps of an update as the installer's screen starts them. KVUpdateHelper is the real
// engine; tests script one of their own. Every decision (what is due, how it is fetched, deployed
// and handed over) is the engine's; a caller only starts the steps and shows what they report.
//
// Thread: call on the main thread; every handler runs on the main thread.
class KVUpdateEngine
{
public:
    virtual ~KVUpdateEngine() = default;

    // The installer release due, or null (asynchronously).
    virtual void checkInstallerUpdateWithcompletionHandler(std::function<void(KVINISectionPtr, KVError)> handler) = 0;
    // Downloads, swaps in and relaunches the installer release.
    virtual void updateInstaller(const KVINISectionPtr &section, KVProgressHandler progressHandler,
                                 KVUpdateCompletionHandler completionHandler) = 0;
    // The sections due in the order they are installed; with none due and no error, the engine
    // then hands over to the companion application itself.
    virtual void checkUpdateWithcompletionHandler(std::function<void(QList<KVINISectionPtr>, KVError)> handler) = 0;
    // Updates the sections in turn; on success the engine launches the companion application.
    virtual void updateWithSections(const QList<KVINISectionPtr> &sections, KVProgressHandler progressHandler,
                                    KVUpdateCompletionHandler completionHandler) = 0;
};
