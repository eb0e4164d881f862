#include "App/Model/KVUpdateHelper.h"
#include "Core/Logging/KVLog.h"
#include "Core/Logging/KVLogSetup.h"
#include "Platform/KVUserDefaults.h"

#include <QApplication>
#include <QTextStream>

// Fetches the update manifest and reports its sections.
int main(int argc, char *argv[])
{
    QApplication application(argc, argv);
    KVLogSetup::setupCocoaLumberjack(KVUserDefaults::standardUserDefaults(),
                                     {.systemLog = qEnvironmentVariableIsEmpty("NESTORA_DISABLE_SYSLOG")});

    KVUpdateHelper &engine = KVUpdateHelper::sharedInstance();
    KVError error;
    QStringList sections;
    engine.queue().sync([&] {
        engine.downloadUpdateINI(false, &error);
        if (!error)
            for (const KVINISectionPtr &section : engine.INI()->sections())
                sections << section->name();
    });
    QTextStream out(stdout);
    if (error) {
        KVLogError("%@ failed to fetch the manifest %@ with error %@", QStringLiteral("NestoraInstaller"),
                   engine.updateURL(), error);
        out << "Manifest " << engine.updateURL().toString() << " unavailable: " << error.description() << Qt::endl;
        return 1;
    }
    out << "Manifest " << engine.updateURL().toString() << " has " << sections.size()
        << " sections: " << sections.join(QStringLiteral(", ")) << Qt::endl;
    KVLog::flush();
    return 0;
}
