#include "App/Model/KVUpdateHelper.h"
#include "Core/Logging/KVLog.h"
#include "Platform/KVBundle.h"
#include "Platform/KVStandardPaths.h"

#include <QDir>
#include <QFileInfo>

namespace {
const QLatin1String kModulePrefix("Mac_Module_");

QString nestoraDataFolder()
{
    return KVStandardPaths::applicationSupportDirectory() + QStringLiteral("/Nestora");
}

QString historyVersion(const QVariantMap &history, const QString &sectionName)
{
    const QVariant value = history.value(sectionName);
    return value.metaType() == QMetaType::fromType<QString>() ? value.toString() : QString();
}
} // namespace

KVUpdateSectionType KVUpdateHelper::typeOfSection(const KVINISection &section)
{
    const QString &name = section.name();
    if (name == QLatin1String("Mac_Installer"))
        return KVUpdateSectionTypeInstaller;
    if (name.startsWith(QLatin1String("Mac_Installer_")))
        return KVUpdateSectionTypeInstallerRelease;
    if (name == QLatin1String("Mac_Application"))
        return KVUpdateSectionTypeApplication;
    if (name.startsWith(QLatin1String("Mac_Application_")))
        return KVUpdateSectionTypeApplicationRelease;
    if (name.startsWith(kModulePrefix)) {
        // "Mac_Module_<plug-in>" is the index, "Mac_Module_<plug-in>_<version>" a release; plug-in
        // names hold no "_", so any other count of parts is not a plug-in section at all.
        switch (name.count(QLatin1Char('_')) + 1) {
        case 3:
            return KVUpdateSectionTypeModule;
        case 4:
            return KVUpdateSectionTypeModuleRelease;
        default:
            return KVUpdateSectionTypeUnknown;
        }
    }
    if (name == QLatin1String("Device_XML"))
        return KVUpdateSectionTypeDeviceXML;
    if (name == QLatin1String("Device_Icon"))
        return KVUpdateSectionTypeDeviceIcon;
    if (name == QLatin1String("Smart_Cards"))
        return KVUpdateSectionTypeSmartCards;
    return KVUpdateSectionTypeUnknown;
}

QString KVUpdateHelper::currentVersion() const
{
    return KVBundle::mainBundle().bundleVersion();
}

QString KVUpdateHelper::currentVersionOfDevicesXML() const
{
    return historyVersion(m_history, QStringLiteral("Device_XML"));
}

QString KVUpdateHelper::currentVersionOfDeviceIcons() const
{
    return historyVersion(m_history, QStringLiteral("Device_Icon"));
}

QString KVUpdateHelper::currentVersionOfSmartCard() const
{
    return historyVersion(m_history, QStringLiteral("Smart_Cards"));
}

QString KVUpdateHelper::currentVersionOfPlugin(const KVINISection &section) const
{
    const QString path = deploymentPathForSection(section);
    if (path.isNull() || !QFileInfo::exists(path))
        return {};
    const std::optional<KVBundle> bundle = KVBundle::bundleWithPath(path);
    return bundle ? bundle->bundleVersion() : QString();
}

QString KVUpdateHelper::pluginDirectory() const
{
    QString path = nestoraDataFolder() + QStringLiteral("/PlugIns");
    // Only a folder that is already there is "created", which changes nothing: this look-up must
    // never make the plug-in folder, and the deployment copes with its absence.
    if (QFileInfo::exists(path))
        QDir().mkpath(path);
    return path;
}

QString KVUpdateHelper::downloadPathForSection(const KVINISection &section) const
{
    QString fileName;
    switch (typeOfSection(section)) {
    case KVUpdateSectionTypeInstallerRelease:
        fileName = QStringLiteral("keldran-vexa-installer-latest.zip");
        break;
    case KVUpdateSectionTypeApplicationRelease:
        fileName = QStringLiteral("keldran-vexa-app.zip");
        break;
    case KVUpdateSectionTypeModuleRelease:
        fileName = QStringLiteral("keldran-vexa-%1.zip").arg(section.name());
        break;
    case KVUpdateSectionTypeDeviceXML:
        fileName = QStringLiteral("keldran-vexa-devices.xml");
        break;
    case KVUpdateSectionTypeDeviceIcon:
        fileName = QStringLiteral("keldran-vexa-device-icons.zip");
        break;
    case KVUpdateSectionTypeSmartCards:
        fileName = QStringLiteral("keldran-vexa-smart-cards.json");
        break;
    case KVUpdateSectionTypeUnknown:
    case KVUpdateSectionTypeInstaller:
    case KVUpdateSectionTypeApplication:
    case KVUpdateSectionTypeModule:
        return {};
    }
    return downloadFolder() + QLatin1Char('/') + fileName;
}

QString KVUpdateHelper::downloadFolder()
{
    return KVStandardPaths::cacheDirectory() + QStringLiteral("/Nestora/Downloads");
}

QString KVUpdateHelper::deploymentPathForSection(const KVINISection &section) const
{
    const KVUpdateSectionType type = typeOfSection(section);
    switch (type) {
    case KVUpdateSectionTypeInstallerRelease:
        return KVBundle::mainBundle().bundlePath();
    case KVUpdateSectionTypeApplicationRelease:
        return KVStandardPaths::applicationsDirectory() + QStringLiteral("/Nestora.app");
    case KVUpdateSectionTypeModuleRelease:
        return pluginDirectory() + QLatin1Char('/') + section.name().section(QLatin1Char('_'), 2, 2) +
               QStringLiteral(".vexaplugin");
    case KVUpdateSectionTypeDeviceXML:
        // Downloaded as XML, kept under the name the application reads.
        return nestoraDataFolder() + QStringLiteral("/Devices/devices.data");
    case KVUpdateSectionTypeDeviceIcon:
        return nestoraDataFolder() + QStringLiteral("/Devices/Icons");
    case KVUpdateSectionTypeSmartCards:
        return nestoraDataFolder() + QStringLiteral("/SmartCards/SmartCards.json");
    case KVUpdateSectionTypeUnknown:
    case KVUpdateSectionTypeInstaller:
    case KVUpdateSectionTypeApplication:
    case KVUpdateSectionTypeModule:
        break;
    }
    KVLogError("%s: deployment path unavailable for section type %ld", __func__, long(type));
    return {};
}

QString KVUpdateHelper::featureNameForPlugin(const QString &) const
{
    return {};
}

bool KVUpdateHelper::isAppLaunchedByInstaller() const
{
    return false;
}
