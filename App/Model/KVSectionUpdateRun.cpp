#include "App/Model/KVSectionUpdateRun.h"

#include "App/Model/KVLeftovers.h"

#include "Core/Extensions/KVNotificationCenter.h"
#include "Core/Extensions/KVVersionComparison.h"
#include "Core/Extensions/KVWellFormedXml.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"
#include "Platform/KVFileOperations.h"
#include "Platform/KVPropertyList.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QSemaphore>

namespace {
bool isArchiveKind(KVUpdateSectionType type)
{
    return type == KVUpdateSectionTypeApplicationRelease || type == KVUpdateSectionTypeModuleRelease ||
           type == KVUpdateSectionTypeDeviceIcon;
}

bool isDataKind(KVUpdateSectionType type)
{
    return type == KVUpdateSectionTypeDeviceXML || type == KVUpdateSectionTypeDeviceIcon ||
           type == KVUpdateSectionTypeSmartCards;
}

// An address a section's file is downloaded from; a section without one is skipped by the run.
bool isDownloadAddress(const QString &url)
{
    return !url.isNull() && QUrl(url, QUrl::StrictMode).isValid();
}

// The devices file is stored as the Base64 text of the XML it was sent as, when that is XML at all.
void encodeDevicesXml(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QByteArray data = QString::fromUtf8(file.readAll()).toUtf8();
    file.close();
    if (!KVIsWellFormedXml(data))
        return;
    QSaveFile encoded(path);
    if (encoded.open(QIODevice::WriteOnly)) {
        encoded.write(data.toBase64());
        (void)encoded.commit();
    }
}
} // namespace

KVSectionUpdateRun::KVSectionUpdateRun(KVUpdateHelper &engine, QList<KVINISectionPtr> givenSections,
                                       KVProgressHandler progressHandler, KVUpdateCompletionHandler completionHandler)
    : m_engine(engine)
    , m_givenSections(std::move(givenSections))
    , m_progressHandler(std::move(progressHandler))
    , m_completionHandler(std::move(completionHandler))
{}

void KVSectionUpdateRun::run()
{
    m_engine.setUpdating(true);
    selectSections();
    weighSections();
    downloadSections();
    if (!m_runError)
        m_engine.terminateWithBundleId(KVCompanionBundleIdentifier);
    announceInstallation();
    if (!m_downloaded.isEmpty())
        takeFirstInstallationCensus();
    deploySections();
    removeSpentDownloads();
    complete();
    if (!m_runError)
        m_engine.launchApp();
}

void KVSectionUpdateRun::report(const QString &messageKey)
{
    if (!m_progressHandler)
        return;
    const QVariantMap info = KVProgressMessage(messageKey);
    KVDispatch::syncMain([&] { m_progressHandler(m_fraction, info); });
}

// What is due now, in the engine's order, and among the given sections (by identity): the
// given order does not count, and plug-ins are never candidates.
void KVSectionUpdateRun::selectSections()
{
    QList<KVINISectionPtr> candidates;
    if (KVINISectionPtr application = m_engine.checkAppUpdate())
        candidates << application;
    candidates << m_engine.checkDeviceXMLAndIconUpdate();
    if (KVINISectionPtr smartCards = m_engine.checkSmartCardsUpdate())
        candidates << smartCards;
    for (const KVINISectionPtr &candidate : std::as_const(candidates))
        if (m_givenSections.contains(candidate))
            m_runList << candidate;
}

void KVSectionUpdateRun::weighSections()
{
    for (const KVINISectionPtr &section : std::as_const(m_runList)) {
        if (!isDownloadAddress(section->valueForKey(QStringLiteral("URL"))))
            continue; // nothing will arrive for it, so it must not hold the progress below 100 %
        const QString text = section->valueForKey(QStringLiteral("Bytes"));
        if (text.isNull()) {
            KVLogError("%s string of total bytes not found", __func__);
            continue;
        }
        const qint64 bytes = leadingIntegerValue(text);
        if (bytes == 0)
            KVLogError("%s invalid string of total bytes: %@", __func__, text);
        m_totalBytes += bytes; // negative values count as they are
    }
}

void KVSectionUpdateRun::downloadSections()
{
    for (const KVINISectionPtr &section : std::as_const(m_runList)) {
        const QString url = section->valueForKey(QStringLiteral("URL"));
        const QString path = m_engine.downloadPathForSection(*section);
        if (url.isNull()) {
            KVLogError("%@ string of download url not found", KVUpdateHelper::kClassName);
        } else if (!isDownloadAddress(url)) {
            KVLogError("%@ invalid download url %@", KVUpdateHelper::kClassName, QUrl(url));
        } else if (!path.isEmpty()) {
            if (const KVResult<> downloaded = downloadSection(*section, url, path); !downloaded) {
                m_runError = downloaded.error();
                return;
            }
            continue;
        }
        m_downloaded << std::nullopt; // skipped; the sections after it keep their places
    }
}

// A failure stops the run's downloads and becomes its error.
KVResult<> KVSectionUpdateRun::downloadSection(const KVINISection &section, const QString &url, const QString &path)
{
    if (isVerifiedDownload(section, path)) {
        KVLogInfo("%@ uses %@, downloaded and verified by an earlier run", KVUpdateHelper::kClassName, path);
        m_completedBytes += QFileInfo(path).size();
        m_downloaded << path;
        return {};
    }
    (void)KVFileOperations::removeItem(path);
    QDir().mkpath(QFileInfo(path).absolutePath());
    const qint64 bytes = leadingIntegerValue(section.valueForKey(QStringLiteral("Bytes")));
    if (const KVResult<> space = KVFileOperations::checkFreeSpace(QFileInfo(path).absolutePath(), bytes); !space) {
        KVLogError("%@ cannot download %@: %@", KVUpdateHelper::kClassName, url, space.error());
        return KVError(KVURLErrorDomain, KVURLErrorConnectionFailed,
                       {{KVUnderlyingErrorKey, QVariant::fromValue(space.error())}});
    }
    report(QStringLiteral("IDS_INSTALLER_DOWNLOADING"));

    // The callbacks run on the main thread while this thread waits for the semaphore.
    m_sectionBytes = 0;
    QSemaphore finished;
    KVError transferError;
    KVUpdateHelper::downloadURL(
        url, path,
        [this](const KVTransferProgress &progress) {
            if (m_sectionBytes == 0)
                m_sectionBytes = progress.totalUnitCount;
            m_fraction = float(double(m_completedBytes + progress.completedUnitCount) / double(m_totalBytes));
            if (m_progressHandler)
                m_progressHandler(m_fraction, KVProgressMessage(KVDownloadingMessageKey(progress)));
        },
        [this, &finished, &transferError, bytes](const QString &, const KVError &error) {
            // Every transfer failure is URL error 2; what really happened rides along for the
            // user's text and the log, with the space a full disk lacked.
            if (error) {
                QVariantMap info{{KVUnderlyingErrorKey, QVariant::fromValue(error)}};
                if (bytes > 0)
                    info.insert(KVRequiredBytesKey, bytes);
                transferError = KVError(KVURLErrorDomain, KVURLErrorConnectionFailed, info);
            } else {
                m_completedBytes += m_sectionBytes;
            }
            finished.release();
        },
        KVUpdateHelper::expectedDownloadOfSection(section));
    finished.acquire();
    if (transferError)
        return transferError;

    report(QStringLiteral("IDS_INSTALLER_DOWNLOADING"));
    if (!m_engine.shouldVerifyMD5() || m_engine.fileMatchesDigestOfSection(path, section)) {
        m_downloaded << path;
        return {};
    }
    m_downloaded << std::nullopt;
    KVLogError("%@ md5 is wrong", path);
    return KVError(KVUpdateHelperErrorDomain, KVUpdateHelperErrorMD5Mismatch);
}

void KVSectionUpdateRun::announceInstallation()
{
    if (m_runError)
        return;
    for (qsizetype i = 0; i < m_downloaded.size() && !m_runError; ++i) {
        const KVUpdateSectionType type = m_engine.typeOfSection(*m_runList[i]);
        if (m_downloaded[i] && (type == KVUpdateSectionTypeApplicationRelease ||
                                type == KVUpdateSectionTypeModuleRelease || type == KVUpdateSectionTypeDeviceIcon))
            report(QStringLiteral("IDS_INSTALLER_INSTALLING"));
    }
    // A second stop, in case the application was started again while the files downloaded.
    m_engine.terminateWithBundleId(KVCompanionBundleIdentifier);
}

// Before anything is deployed, so that it sees what was installed before the run. The last test
// holds for every section while no smart-cards file is installed.
void KVSectionUpdateRun::takeFirstInstallationCensus()
{
    for (const KVINISectionPtr &section : std::as_const(m_runList)) {
        const KVUpdateSectionType type = m_engine.typeOfSection(*section);
        if (type == KVUpdateSectionTypeApplicationRelease && m_engine.currentVersion().isNull())
            m_firstInstallations << section;
        if (type == KVUpdateSectionTypeModuleRelease && m_engine.currentVersionOfPlugin(*section).isNull())
            m_firstInstallations << section;
        if (section->name() == QLatin1String("Device_XML") && m_engine.currentVersionOfDevicesXML().isNull())
            m_firstInstallations << section;
        if (section->name() == QLatin1String("Device_Icon") && m_engine.currentVersionOfDeviceIcons().isNull())
            m_firstInstallations << section;
        if (m_engine.currentVersionOfSmartCard().isNull())
            m_firstInstallations << section;
    }
}

void KVSectionUpdateRun::deploySections()
{
    m_engine.setInstallUpdate(true);
    if (!m_downloaded.isEmpty() && !KVFileOperations::itemExists(KVBundle::mainBundle().bundlePath()))
        m_engine.setInstallUpdate(false);
    // Each deployment replaces its item whole; quitting stops the run between two of them.
    for (qsizetype i = 0; i < m_downloaded.size() && !m_runError && !KVCancellation::isRequested(); ++i) {
        if (m_downloaded[i])
            deploySection(*m_runList[i], *m_downloaded[i]);
    }
}

void KVSectionUpdateRun::deploySection(const KVINISection &section, const QString &downloadedPath)
{
    const KVUpdateSectionType type = m_engine.typeOfSection(section);
    const QString deploymentPath = m_engine.deploymentPathForSection(section);
    QStringList items;
    KVError error;
    if (isArchiveKind(type)) {
        // An application archive must hold exactly the application, checked before anything is replaced.
        std::optional<KVArchiveCheck> expectedBundle;
        if (type == KVUpdateSectionTypeApplicationRelease)
            expectedBundle.emplace(QFileInfo(deploymentPath).fileName(), KVCompanionBundleIdentifier);
        items = KVUpdateHelper::unzip(downloadedPath, &error, expectedBundle).value_or(QStringList());
        if (error)
            m_runError = error;
    }

    const bool pluginIsNew = type == KVUpdateSectionTypeModuleRelease && !KVBundle::bundleWithPath(deploymentPath);
    if (deploymentPath.isEmpty()) {
        KVLogError("%@: failed to get deployment path for section %@", KVUpdateHelper::kClassName, section.name());
        KVLeftovers::removeUnpackingFolderOf(items);
        return;
    }

    // An archive that could not be unpacked or failed its check deploys nothing: the installed item stays whole.
    if (!error) {
        error = deployDeliverable(section, type, items, downloadedPath, deploymentPath, pluginIsNew).error();
        if (error && !m_runError)
            m_runError = error;
    }

    KVLeftovers::removeUnpackingFolderOf(items);
    // Only what was deployed: a failed deployment is tried again next time, from the same download.
    if (!error) {
        (void)KVFileOperations::removeItem(downloadedPath);
        if (isDataKind(type))
            recordHistory(section);
    }
}

KVResult<> KVSectionUpdateRun::deployDeliverable(const KVINISection &section, KVUpdateSectionType type,
                                                 const QStringList &items, const QString &downloadedPath,
                                                 const QString &deploymentPath, bool pluginIsNew)
{
    KVError error;
    switch (type) {
    case KVUpdateSectionTypeApplicationRelease:
        KVUpdateHelper::deployApp(items, deploymentPath, &error);
        return KVResult<>::fromOutParameter(error);
    case KVUpdateSectionTypeDeviceIcon:
        (void)KVUpdateHelper::deploy(items, deploymentPath, &error);
        return KVResult<>::fromOutParameter(error);
    case KVUpdateSectionTypeModuleRelease:
        (void)KVUpdateHelper::deploy(items, deploymentPath, &error);
        if (error)
            KVLogError("%@: failed to install plugin %@", KVUpdateHelper::kClassName, section.name());
        else
            announcePlugin(section, pluginIsNew);
        return KVResult<>::fromOutParameter(error);
    default: // single files: the devices XML, the smart cards, and any other kind with a place
        QDir().mkpath(QFileInfo(deploymentPath).absolutePath());
        if (type == KVUpdateSectionTypeDeviceXML)
            encodeDevicesXml(downloadedPath);
        // Beside, then over: the installed file stays whole until the new one has taken its place.
        return KVFileOperations::replaceItem(deploymentPath, downloadedPath);
    }
}

// The downloads, once installed, and whatever a failed or skipped step left of them, except the
// verified ones of a failed run: Try Again or the next run uses those while the manifest offers them.
void KVSectionUpdateRun::removeSpentDownloads()
{
    for (const KVINISectionPtr &section : std::as_const(m_runList)) {
        const QString path = m_engine.downloadPathForSection(*section);
        if (!m_runError || !m_engine.shouldVerifyMD5() || !m_downloaded.contains(path))
            (void)KVFileOperations::removeItem(path);
    }
}

// Only a digest vouches for a file that is already there.
bool KVSectionUpdateRun::isVerifiedDownload(const KVINISection &section, const QString &path) const
{
    return m_engine.shouldVerifyMD5() && QFileInfo(path).isFile() && m_engine.fileMatchesDigestOfSection(path, section);
}

void KVSectionUpdateRun::announcePlugin(const KVINISection &section, bool firstInstallation)
{
    const QStringList parts = section.name().split(QLatin1Char('_'));
    if (parts.size() != 4) {
        KVLogError("%@: wrong section title %@", KVUpdateHelper::kClassName, section.name());
        return;
    }
    const QVariantMap info{{QStringLiteral("moduleName"), parts[2]},
                           {QStringLiteral("moduleVersion"), parts[3]},
                           {QStringLiteral("firstInstallation"), firstInstallation}};
    KVDispatch::asyncMain([info] { KVNotificationCenter::defaultCenter().post(KVPlugInInstalledNotification, info); });
}
void KVSectionUpdateRun::recordHistory(const KVINISection &section)
{
    const QString latestVersion = section.valueForKey(QStringLiteral("LatestVersion"));
    if (latestVersion.isNull())
        return;
    m_engine.history().insert(section.name(), latestVersion);
    QDir().mkpath(QFileInfo(m_engine.archive()).absolutePath());
    (void)KVPropertyList::writeDictionary(m_engine.archive(), m_engine.history());
}

void KVSectionUpdateRun::complete()
{
    m_engine.setUpdating(false);
    if (KVCancellation::isRequested())
        return;
    KVDispatch::syncMain([this] {
        if (m_progressHandler) {
            const QVariantMap info = m_runError
                                         ? QVariantMap{{QStringLiteral("error"), QVariant::fromValue(m_runError)}}
                                         : KVProgressMessage(QStringLiteral("IDS_INSTALLER_COMPLETE"));
            m_progressHandler(m_fraction, info);
        }
        if (m_completionHandler) {
            QList<KVINISectionPtr> updated = m_runList;
            for (const KVINISectionPtr &first : std::as_const(m_firstInstallations))
                updated.removeAll(first);
            QVariantMap result{{QStringLiteral("sections"), QVariant::fromValue(updated)}};
            if (m_runError) {
                result.insert(QStringLiteral("error"), QVariant::fromValue(m_runError));
                KVLogError("%@ failed to update %@ with error %@", KVUpdateHelper::kClassName, updated, m_runError);
            }
            m_completionHandler(result, m_runError);
        }
    });
}
