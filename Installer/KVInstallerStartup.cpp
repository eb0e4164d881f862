#include "Installer/KVInstallerStartup.h"

#include "App/Model/KVUpdateHelper.h"
#include "Core/Logging/KVLog.h"
#include "Installer/KVLogSetup.h"
#include "Platform/KVBundle.h"
#include "Platform/KVPropertyList.h"
#include "Platform/KVUserDefaults.h"

#include <QDateTime>

void KVInstallerStartup::beginLaunching(const QString &driverName, const QStringList &arguments)
{
    KVLogSetup::setupCocoaLumberjack(KVUserDefaults::standardUserDefaults(), {});
    KVLogError("%@ Nestora installer will finish launching with version:%@", QStringLiteral("Keldran"),
               KVBundle::mainBundle().bundleVersion());
    KVLogError("%@ start parameters %@", driverName, arguments);
}

void KVInstallerStartup::finishLaunching(KVUpdateHost host)
{
    KVUserDefaults &defaults = KVUserDefaults::standardUserDefaults();
    const QString defaultsPath =
        KVBundle::mainBundle().pathForResource(QStringLiteral("VexaUserDefaults"), QStringLiteral("plist"));
    if (!defaultsPath.isEmpty())
        defaults.registerDefaults(KVPropertyList::readDictionary(defaultsPath).valueOr({}));
    (void)defaults.synchronize(); // best effort: the defaults in memory serve this run
    KVUpdateHelper::sharedInstance().setHost(std::move(host));
    defaults.setObject(QStringLiteral("InstallerLastLaunchDate"), QDateTime::currentDateTimeUtc());
}
