// nestora-publish: writes the update manifest for a folder of deliverables from a version
// description (see KVManifestPublisher.h for its format).
#include "KVManifestPublisher.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nestora-publish"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Writes the Nestora update manifest (URL, Bytes, MD5, LatestVersion, OSSupport and the "
                       "index sections) for a folder of deliverables, described by a JSON version description."));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("deliverables"),
                                 QStringLiteral("Folder holding the files to publish."));
    parser.addPositionalArgument(QStringLiteral("description"), QStringLiteral("The JSON version description."));
    const QCommandLineOption outputOption({QStringLiteral("o"), QStringLiteral("output")},
                                          QStringLiteral("Manifest to write (default: <deliverables>/manifest.ini)."),
                                          QStringLiteral("file"));
    const QCommandLineOption baseURLOption(QStringLiteral("base-url"),
                                           QStringLiteral("Address the folder is served from; overrides \"baseURL\"."),
                                           QStringLiteral("url"));
    parser.addOption(outputOption);
    parser.addOption(baseURLOption);
    parser.process(application);

    QTextStream errorStream(stderr);
    const QStringList arguments = parser.positionalArguments();
    if (arguments.size() != 2) {
        errorStream << "nestora-publish: expected a deliverables folder and a description\n\n" << parser.helpText();
        return 2;
    }
    const QString &deliverables = arguments.at(0);
    const QString output =
        parser.isSet(outputOption) ? parser.value(outputOption) : deliverables + QStringLiteral("/manifest.ini");
    const QUrl baseURL = parser.isSet(baseURLOption) ? QUrl(parser.value(baseURLOption), QUrl::StrictMode) : QUrl();

    KVError error;
    KVManifestPublisher publisher(deliverables, baseURL);
    const auto description = KVManifestPublisher::readDescription(arguments.at(1), &error);
    const auto sections = description ? publisher.sectionsForDescription(*description, &error) : std::nullopt;
    if (!sections || !KVManifestPublisher::writeManifest(*sections, output, &error)) {
        errorStream << "nestora-publish: " << error.localizedDescription() << '\n';
        return 1;
    }
    QTextStream(stdout) << "nestora-publish: wrote " << output << " (" << sections->size() << " sections)\n";
    return 0;
}
