#include "App/Model/KVInstallerRelaunch.h"
#include "App/Model/KVUpdateHelper.h"
#include "Core/Extensions/KVVersionComparison.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"

#include <QFileInfo>

namespace {
const QLatin1String kLatestVersionPrefix("LatestVersion_");

// The release an application or plug-in index points at on this system: its "Debug" choice, else
// its "LatestVersion_<system>" entry, else the value of its last item that is not per-system.
QString releaseNameOfIndex(const KVINISection &index)
{
    QString name = index.valueForKey(QStringLiteral("Debug"));
    if (name.isNull())
        name = index.valueForKey(kLatestVersionPrefix + KVUpdateHelper::OSVersion());
    if (name.isNull()) {
        for (const KVINIItem &item : index.items())
            if (!item.key().startsWith(kLatestVersionPrefix))
                name = item.value();
    }
    return name;
}

// A release of a bundle (application or plug-in) is due when nothing is installed at its place,
// when no bundle can be opened there, or when the installed bundle's version is lower.
bool isBundleReleaseDue(const QString &installedPath, const QString &releaseName)
{
    if (!QFileInfo::exists(installedPath))
        return true;
    const std::optional<KVBundle> installed = KVBundle::bundleWithPath(installedPath);
    return !installed ||
           compareVersion(installed->bundleVersion(), KVINISection::releaseVersion(releaseName)) == KVOrderedAscending;
}

// An application that cannot start counts as not installed, so that it is offered and repaired:
// its Info.plist is missing, unreadable or empty, or its program is missing.
bool isDamagedApplication(const QString &installedPath)
{
    const std::optional<KVBundle> installed = KVBundle::bundleWithPath(installedPath);
    if (!installed || installed->infoDictionary().isEmpty())
        return true;
    const QString program = installed->executablePath();
    return program.isEmpty() || !QFileInfo(program).isFile();
}

// A data item is due when it was never deployed, or when the manifest offers a higher version.
bool isDataItemDue(const QString &installedVersion, const KVINISection &section)
{
    if (installedVersion.isNull())
        return true;
    const QString latest = section.valueForKey(QStringLiteral("LatestVersion"));
    return !latest.isNull() && compareVersion(installedVersion, latest) == KVOrderedAscending;
}
} // namespace

void KVUpdateHelper::checkInstallerUpdateWithcompletionHandler(std::function<void(KVINISectionPtr, KVError)> handler)
{
    m_queue->async([this, handler = std::move(handler)] {
        KVError error;
        downloadUpdateINI(false, &error);
        const KVINISectionPtr section = error ? nullptr : checkInstallerUpdate();
        KVDispatch::asyncMain([handler, section, error] {
            if (handler && !KVCancellation::isRequested())
                handler(section, error);
        });
    });
}

void KVUpdateHelper::checkUpdateWithcompletionHandler(std::function<void(QList<KVINISectionPtr>, KVError)> handler)
{
    m_queue->async([this, handler = std::move(handler)] {
        QList<KVINISectionPtr> sections;
        KVError error;
        downloadUpdateINI(false, &error);
        if (!error) {
            if (KVINISectionPtr application = checkAppUpdate())
                sections << application;
            sections << checkDeviceXMLAndIconUpdate();
            if (KVINISectionPtr smartCards = checkSmartCardsUpdate())
                sections << smartCards;
        }
        // The queue waits for the handler, so nothing is launched before the caller has seen the result.
        KVDispatch::syncMain([&] {
            if (handler && !KVCancellation::isRequested())
                handler(sections, error);
        });
        if (!error && sections.isEmpty())
            launchApp();
    });
}

KVINISectionPtr KVUpdateHelper::checkInstallerUpdate()
{
    const KVINISectionPtr index = m_INI ? m_INI->sectionWithName(QStringLiteral("Mac_Installer")) : nullptr;
    if (!index)
        return nullptr;
    const QString installedVersion = currentVersion();
    QString targetName = index->valueForKey(QStringLiteral("Debug"));
    if (targetName.isNull() && !installedVersion.isNull())
        targetName = index->valueForKey(installedVersion);
    if (targetName.isNull())
        return nullptr;

    KVINISectionPtr target = m_INI->sectionWithName(targetName);
    const QString osSupport = target ? target->valueForKey(QStringLiteral("OSSupport")) : QString();
    if (osSupport.isNull())
        KVLogError("%@: OS support not found in %@", kClassName, target);
    if (osSupport != QLatin1String("All")) {
        // Exact entries only: "10.14; 10.15" does not list 10.15.
        const QString systemVersion = OSVersion();
        if (osSupport.isNull() || !osSupport.split(QLatin1Char(';')).contains(systemVersion)) {
            // The third value has always been nil; the line is kept exactly so.
            KVLogError("%@: os support not matched, system version:%@, os supoort:%@,", kClassName, systemVersion,
                       QString());
            return nullptr;
        }
    }
    if (compareVersion(installedVersion, target->releaseVersion()) != KVOrderedAscending)
        return nullptr;
    // A build once swapped in (or found broken) that is still newer than this installer was
    // published under the wrong version: updating to it again would never end.
    if (KVInstallerRelaunch::wasTried(target->releaseVersion())) {
        KVLogError("%@: the installer %@ was installed once already, yet this installer is %@: the publication is "
                   "mislabelled or broken; going on without it",
                   kClassName, target->name(), installedVersion);
        return nullptr;
    }
    return target;
}

KVINISectionPtr KVUpdateHelper::checkAppUpdate()
{
    const KVINISectionPtr index = m_INI ? m_INI->sectionWithName(QStringLiteral("Mac_Application")) : nullptr;
    if (!index)
        return nullptr;
    const QString releaseName = releaseNameOfIndex(*index);
    const KVINISectionPtr release = releaseName.isNull() ? nullptr : m_INI->sectionWithName(releaseName);
    if (!release)
        return nullptr;
    const QString path = deploymentPathForSection(*release);
    if (path.isNull()) {
        KVLogError("%s: failed to get deployment path for section %@", __func__, release->name());
        return nullptr;
    }
    return isBundleReleaseDue(path, release->name()) || isDamagedApplication(path) ? release : nullptr;
}

QList<KVINISectionPtr> KVUpdateHelper::checkPlugInsUpdate(const QStringList &plugInNames)
{
    QList<KVINISectionPtr> due;
    if (!m_INI)
        return due;
    for (const KVINISectionPtr &index : m_INI->sections()) {
        if (typeOfSection(*index) != KVUpdateSectionTypeModule)
            continue;
        const QString plugInName = index->name().mid(QStringLiteral("Mac_Module_").size());
        if (!plugInNames.contains(plugInName, Qt::CaseInsensitive))
            continue;
        const QString releaseName = releaseNameOfIndex(*index);
        const KVINISectionPtr release = releaseName.isNull() ? nullptr : m_INI->sectionWithName(releaseName);
        if (!release)
            continue;
        const QString path = deploymentPathForSection(*release);
        if (path.isNull()) {
            KVLogError("%s: failed to get deployment path for section %@", __func__, release->name());
            continue;
        }
        if (isBundleReleaseDue(path, release->name()))
            due << release;
    }
    return due;
}

void KVUpdateHelper::updatePlungInsWithFeatureNames(const QStringList &) {}

QList<KVINISectionPtr> KVUpdateHelper::checkDeviceXMLAndIconUpdate()
{
    const std::pair<QString, QString (KVUpdateHelper::*)() const> dataItems[] = {
        {QStringLiteral("Device_XML"), &KVUpdateHelper::currentVersionOfDevicesXML},
        {QStringLiteral("Device_Icon"), &KVUpdateHelper::currentVersionOfDeviceIcons},
    };
    QList<KVINISectionPtr> due;
    for (const auto &[name, installedVersion] : dataItems) {
        const KVINISectionPtr section = m_INI ? m_INI->sectionWithName(name) : nullptr;
        if (!section) {
            KVLogError("%s: failed to get section with name %@", __func__, name);
            continue;
        }
        if (isDataItemDue((this->*installedVersion)(), *section))
            due << section;
    }
    return due;
}

KVINISectionPtr KVUpdateHelper::checkSmartCardsUpdate()
{
    KVINISectionPtr section = m_INI ? m_INI->sectionWithName(QStringLiteral("Smart_Cards")) : nullptr;
    const QString installedVersion = currentVersionOfSmartCard();
    if (installedVersion.isNull())
        return section;
    return section && isDataItemDue(installedVersion, *section) ? section : nullptr;
}
