#pragma once

#include "App/Model/KVUpdateTypes.h"

#include <QString>
#include <QStringList>

// What every start of the installer does around its driver, with the window or headless: the log's
// set-up and first lines, the bundle's registered defaults, the engine's host and the launch date.
// Thread: main, in this order, once per start.
namespace KVInstallerStartup {

// Attaches the loggers and logs the version and the start arguments, under the name of the driver.
void beginLaunching(const QString &driverName, const QStringList &arguments);

// Registers the bundle's defaults, gives the engine the driver's host and records the launch date.
void finishLaunching(KVUpdateHost host);

} // namespace KVInstallerStartup
