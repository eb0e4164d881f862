// nestora-launch <bundle> [arguments…]: starts the bundle through the installer's detached launch
// script and exits at once, leaving the launched program running.

#include "App/Model/KVUpdateHelper.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments().mid(1);
    if (arguments.isEmpty()) {
        QTextStream(stderr) << "usage: nestora-launch <bundle> [arguments…]\n";
        return 2;
    }
    KVUpdateHelper::launchWithBundlePath(arguments.first(), arguments.mid(1), 0);
    return 0;
}
