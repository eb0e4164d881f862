// nestora-publish: writes the update manifest for a folder of deliverables from a version
// description (see KVManifestPublisher.h for its format).
#include "KVManifestPublisher.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QTextStream>

namespace {

// The option's value as a whole number from 1 to the maximum; nothing, after saying so, when it is not one.
std::optional<qint64> numberOption(const QCommandLineParser &parser, const QCommandLineOption &option, qint64 maximum)
{
    bool isNumber = false;
    const qint64 number = parser.value(option).toLongLong(&isNumber);
    if (isNumber && number > 0 && number <= maximum)
        return number;
    QTextStream(stderr) << "nestora-publish: --" << option.names().constLast() << " must be a whole number from 1 to "
                        << maximum << ", not \"" << parser.value(option) << "\"\n";
    return std::nullopt;
}

} // namespace

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
    const QCommandLineOption serialOption(
        QStringLiteral("serial"),
        QStringLiteral("Serial number of this publication, larger than any before (default: the current Unix time)."),
        QStringLiteral("n"));
    const QCommandLineOption expiryOption(QStringLiteral("expires-in-days"),
                                          QStringLiteral("Days until installers refuse this manifest (default: 30)."),
                                          QStringLiteral("days"), QStringLiteral("30"));
    parser.addOptions({outputOption, baseURLOption, serialOption, expiryOption});
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
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const auto serial = parser.isSet(serialOption)
                            ? numberOption(parser, serialOption, std::numeric_limits<qint64>::max())
                            : now.toSecsSinceEpoch();
    // A century is more than any real validity; the bound keeps the date a four-digit year.
    const auto days = numberOption(parser, expiryOption, 36500);
    if (!serial || !days)
        return 2;

    KVError error;
    KVManifestPublisher publisher(deliverables, baseURL);
    const auto description = KVManifestPublisher::readDescription(arguments.at(1), &error);
    auto sections = description ? publisher.sectionsForDescription(*description, &error) : std::nullopt;
    if (sections)
        sections->prepend(KVManifestPublisher::manifestSection(*serial, now.addDays(*days)));
    if (!sections ||
        !KVManifestPublisher::writeManifest(KVManifestPublisher::manifestText(*sections), {}, output, &error)) {
        errorStream << "nestora-publish: " << error.localizedDescription() << '\n';
        return 1;
    }
    QTextStream(stdout) << "nestora-publish: wrote " << output << " (" << sections->size() << " sections)\n";
    return 0;
}
