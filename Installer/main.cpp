#include "App/Model/KVUpdateTypes.h"
#include "Core/Logging/KVLog.h"
#include "Installer/KVIAppDelegate.h"
#include "Platform/KVSingleInstance.h"

#include <QApplication>

int main(int argc, char *argv[]) {
    QApplication application(argc, argv);

    qInfo("killApplication");
    KVSingleInstance singleInstance(KVInstallerBundleIdentifier);
    if (!singleInstance.becomePrimaryOrActivateOther())
        return 0;

    KVIAppDelegate delegate;
    QObject::connect(&singleInstance, &KVSingleInstance::activationRequested, &delegate, [&delegate] {
        KVLogInfo("%@ brought to the front by a second start", QStringLiteral("KVIAppDelegate"));
        delegate.activate();
    });
    delegate.applicationWillFinishLaunching(application.arguments());
    delegate.applicationDidFinishLaunching();
    const int status = application.exec();
    delegate.applicationWillTerminate();
    return status;
}
