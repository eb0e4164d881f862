#pragma once

#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVResult.h"

#include <optional>

// One run of the engine's section update: selects what is due among the given sections, downloads
// every deliverable with one weighted progress figure, verifies digests, stops the companion
// application, deploys each deliverable by its kind, records data-file versions in the history,
// and reports completion. Lives for one run on the engine's queue; the download callbacks touch
// its state on the main thread while the queue waits on the semaphore.
class KVSectionUpdateRun
{
public:
    KVSectionUpdateRun(KVUpdateHelper &engine, QList<KVINISectionPtr> givenSections, KVProgressHandler progressHandler,
                       KVUpdateCompletionHandler completionHandler);

    // Thread: the engine's queue. Returns when the completion has been delivered.
    void run();

private:
    void selectSections();
    void weighSections();
    void downloadSections();
    KVResult<> downloadSection(const KVINISection &section, const QString &url, const QString &path);
    void announceInstallation();
    void takeFirstInstallationCensus();
    void deploySections();
    void deploySection(const KVINISection &section, const QString &downloadedPath);
    KVResult<> deployDeliverable(const KVINISection &section, KVUpdateSectionType type, const QStringList &items,
                                 const QString &downloadedPath, const QString &deploymentPath, bool pluginIsNew);
    void removeSpentDownloads();
    [[nodiscard]] bool isVerifiedDownload(const KVINISection &section, const QString &path) const;
    void announcePlugin(const KVINISection &section, bool firstInstallation);
    void recordHistory(const KVINISection &section);
    void complete();

    // Synchronously on the main thread.
    void report(const QString &messageKey);

    KVUpdateHelper &m_engine;
    const QList<KVINISectionPtr> m_givenSections;
    const KVProgressHandler m_progressHandler;
    const KVUpdateCompletionHandler m_completionHandler;

    KVError m_runError;
    qint64 m_totalBytes = 0;
    qint64 m_completedBytes = 0;
    qint64 m_sectionBytes = 0;
    float m_fraction = 0;
    QList<KVINISectionPtr> m_runList;
    // Per section of the run list, by position, its downloaded file; nothing where the section was
    // skipped (no usable address) or the digest was wrong.
    QList<std::optional<QString>> m_downloaded;
    QList<KVINISectionPtr> m_firstInstallations;
};
