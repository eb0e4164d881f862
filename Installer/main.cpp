#include "App/Model/KVInstallerRelaunch.h"
#include "App/Model/KVUpdateHelper.h"
#include "App/Model/KVUpdateTypes.h"
#include "Core/Logging/KVLog.h"
#include "Installer/Controllers/KVIViewController.h"
#include "Installer/KVCommandLine.h"
#include "Installer/KVHeadlessDriver.h"
#include "Installer/KVIAccessible.h"
#include "Installer/KVIAppDelegate.h"
#include "Installer/KVIView.h"
#include "Platform/KVBundle.h"
#include "Platform/KVSingleInstance.h"
#include "Platform/KVTerminationSignals.h"

#include <QApplication>
#include <QPixmap>

#include <memory>

int main(int argc, char *argv[])
{
    // Read before the application object exists: --help, --version and usage errors need no
    // display and write nothing under HOME.
    const KVCommandLine commandLine = KVCommandLine::parse(argc, argv);
    if (commandLine.request() != KVCommandLine::Request::Run)
        return commandLine.answer();

    // The headless mode needs no display, so it runs on a core application.
    const bool headless = commandLine.isHeadless();
    const std::unique_ptr<QCoreApplication> application =
        headless ? std::make_unique<QCoreApplication>(argc, argv) : std::make_unique<QApplication>(argc, argv);

    // A termination signal quits as Quit does; the exit status tells which signal it was.
    KVTerminationSignals terminationSignals;
    QObject::connect(&terminationSignals, &KVTerminationSignals::received, application.get(),
                     [](int signalNumber) { QCoreApplication::exit(128 + signalNumber); });

    qInfo("killApplication");
    KVSingleInstance singleInstance(KVInstallerBundleIdentifier);
    // The relaunch after a self-update is the one start that carries a window origin.
    const bool relaunched = application->arguments().contains(QStringLiteral("-KVWindowOrigin"));
    if (!singleInstance.becomePrimaryOrActivateOther(relaunched ? std::chrono::seconds(10) : std::chrono::seconds(0)))
        return headless ? KVHeadlessDriver::refuseSecondInstance() : 0;
    // This installer runs: a self-update that relaunched it needs its predecessor no longer.
    KVInstallerRelaunch::confirm(KVBundle::mainBundle().bundlePath());
    if (headless)
        return KVHeadlessDriver::exec(application->arguments());

    // Before the first widget: Qt keeps whatever interface it found for an object.
    KVIAccessible::install();
    KVIAppDelegate delegate;
    delegate.setContentFactory([](KVIWindow *window) {
        auto *controller = new KVIViewController(KVUpdateHelper::sharedInstance(), window);
        QObject::connect(window, &KVIWindow::closeRequested, controller, &KVIViewController::closeButtonDidClick);
        return controller->view();
    });
    QObject::connect(&singleInstance, &KVSingleInstance::activationRequested, &delegate, [&delegate] {
        KVLogInfo("%@ brought to the front by a second start", QStringLiteral("KVIAppDelegate"));
        delegate.activate();
    });
    // NESTORA_LAST_SCREEN names a PNG file that receives the window as the installer ends: the
    // demo's record of the completion screen, which is up only for a moment before the hand-over.
    if (const QString lastScreen = qEnvironmentVariable("NESTORA_LAST_SCREEN"); !lastScreen.isEmpty()) {
        QObject::connect(application.get(), &QCoreApplication::aboutToQuit, &delegate,
                         [&delegate, lastScreen] { delegate.window()->grab().save(lastScreen); });
    }
    delegate.applicationWillFinishLaunching(application->arguments());
    delegate.applicationDidFinishLaunching();
    const int status = application->exec();
    delegate.window()->hide(); // gone at once, whatever the engine still has to wind down
    KVUpdateHelper::sharedInstance().stopWorkForExit(status);
    delegate.applicationWillTerminate();
    return status;
}
