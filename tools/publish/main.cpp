// nestora-publish: writes the update manifest for a folder of deliverables from a version
// description (see KVManifestPublisher.h for its format), signs it, and checks a published folder.
#include "KVManifestPublisher.h"
#include "KVPublicationCheck.h"
#include "KVSecretKeyFile.h"
#include "KVSigningPassword.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

namespace {

constexpr int kUsageStatus = 2;

int fail(const QString &message, int status = 1)
{
    QTextStream(stderr) << "nestora-publish: " << message << '\n';
    return status;
}

// The option's value as a whole number from 1 to the maximum; nothing, after saying so, when it is not one.
std::optional<qint64> numberOption(const QCommandLineParser &parser, const QCommandLineOption &option, qint64 maximum)
{
    bool isNumber = false;
    const qint64 number = parser.value(option).toLongLong(&isNumber);
    if (isNumber && number > 0 && number <= maximum)
        return number;
    fail(QStringLiteral("--%1 must be a whole number from 1 to %2, not \"%3\"")
             .arg(option.names().constLast())
             .arg(maximum)
             .arg(parser.value(option)),
         kUsageStatus);
    return std::nullopt;
}

KVResult<QByteArray> readFile(const QString &path, const QString &what)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return KVError(KVPublishErrorDomain, KVPublishErrorBadDescription,
                       {{KVLocalizedDescriptionKey,
                         QStringLiteral("cannot read the %1 %2: %3").arg(what, path, file.errorString())}});
    return file.readAll();
}

// `--verify`: prints every finding as "<manifest>:<line>: error|warning: <text>"; fails on errors only.
int verify(const QString &manifestPath, const QString &keyPath)
{
    const KVResult<QByteArray> keyText = readFile(keyPath, QStringLiteral("public key"));
    if (!keyText)
        return fail(keyText.error().localizedDescription());
    const KVResult<KVMinisign::PublicKey> key = KVMinisign::PublicKey::fromText(*keyText);
    if (!key)
        return fail(
            QStringLiteral("cannot use the public key %1: %2").arg(keyPath, key.error().localizedDescription()));
    const KVResult<QByteArray> manifest = readFile(manifestPath, QStringLiteral("manifest"));
    if (!manifest)
        return fail(manifest.error().localizedDescription());

    const QList<KVManifestFinding> findings =
        KVPublicationCheck(manifestPath, *manifest).findings(*key, QDateTime::currentDateTimeUtc());
    QTextStream errors(stderr);
    qsizetype errorCount = 0;
    for (const KVManifestFinding &finding : findings) {
        const bool isError = finding.severity == KVManifestFinding::Severity::Error;
        errorCount += isError ? 1 : 0;
        errors << manifestPath << (finding.line > 0 ? QStringLiteral(":%1").arg(finding.line) : QString())
               << (isError ? ": error: " : ": warning: ") << finding.text << '\n';
    }
    errors.flush();
    if (errorCount > 0)
        return fail(QStringLiteral("%1 is not ready to publish: %2 error(s), %3 warning(s)")
                        .arg(manifestPath)
                        .arg(errorCount)
                        .arg(findings.size() - errorCount));
    QTextStream(stdout) << "nestora-publish: " << manifestPath << " verified with key "
                        << KVMinisign::keyIdText(key->keyId) << " (" << findings.size() << " warning(s))\n";
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nestora-publish"));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Writes the Nestora update manifest (URL, Bytes, MD5, SHA256, LatestVersion, OSSupport, the "
                       "index sections and [Manifest] with Serial and Expires) for a folder of deliverables, "
                       "described by a JSON version description, and signs it with --sign.\n"
                       "With --verify, checks a published folder instead: signature, serial, expiry, every file's "
                       "size and digests, and what the installer would skip. Exit status: 0 ready (warnings may be "
                       "printed), 1 errors, 2 usage."));
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
    const QCommandLineOption signOption(
        QStringLiteral("sign"),
        QStringLiteral("Sign the manifest with this minisign secret key, writing <manifest>.minisig beside it. An "
                       "encrypted key's password is read from NESTORA_SIGN_PASSWORD or asked for."),
        QStringLiteral("secret-key"));
    const QCommandLineOption verifyOption(QStringLiteral("verify"),
                                          QStringLiteral("Check this published manifest and the files beside it."),
                                          QStringLiteral("manifest"));
    const QCommandLineOption keyOption(QStringLiteral("key"),
                                       QStringLiteral("The minisign public key file that --verify checks with."),
                                       QStringLiteral("public-key"));
    parser.addOptions({outputOption, baseURLOption, serialOption, expiryOption, signOption, verifyOption, keyOption});
    parser.process(application);

    const QStringList arguments = parser.positionalArguments();
    if (parser.isSet(verifyOption)) {
        if (!parser.isSet(keyOption) || !arguments.isEmpty())
            return fail(QStringLiteral("--verify takes a manifest and --key <public key file>, nothing else"),
                        kUsageStatus);
        return verify(parser.value(verifyOption), parser.value(keyOption));
    }
    if (arguments.size() != 2) {
        QTextStream(stderr) << "nestora-publish: expected a deliverables folder and a description\n\n"
                            << parser.helpText();
        return kUsageStatus;
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
        return kUsageStatus;

    // The key first: a wrong password costs no hashing of the deliverables.
    std::optional<KVMinisign::SecretKey> signingKey;
    if (parser.isSet(signOption)) {
        const QString keyPath = parser.value(signOption);
        KVResult<KVMinisign::SecretKey> key =
            KVSecretKeyFile::read(keyPath, [&] { return KVSigningPassword::read(keyPath); });
        if (!key)
            return fail(key.error().localizedDescription());
        signingKey = std::move(*key);
    }

    KVManifestPublisher publisher(deliverables, baseURL);
    const KVResult<QJsonObject> description = KVManifestPublisher::readDescription(arguments.at(1));
    if (!description)
        return fail(description.error().localizedDescription());
    KVResult<QList<KVINISectionPtr>> sections = publisher.sectionsForDescription(*description);
    if (!sections)
        return fail(sections.error().localizedDescription());
    sections->prepend(KVManifestPublisher::manifestSection(*serial, now.addDays(*days)));
    const QByteArray text = KVManifestPublisher::manifestText(*sections);

    std::optional<KVMinisign::Signature> signature;
    if (signingKey) {
        const QString comment = QStringLiteral("timestamp:%1\tfile:%2\tserial:%3")
                                    .arg(now.toSecsSinceEpoch())
                                    .arg(QFileInfo(output).fileName())
                                    .arg(*serial);
        KVResult<KVMinisign::Signature> signed_ =
            KVMinisign::Signature::sign(text, *signingKey, comment, QStringLiteral("signature from nestora-publish"));
        if (!signed_)
            return fail(signed_.error().localizedDescription());
        signature = std::move(*signed_);
    }
    if (const KVResult<> written =
            KVManifestPublisher::writeManifest(text, signature ? signature->toText() : QByteArray(), output);
        !written)
        return fail(written.error().localizedDescription());
    QTextStream(stdout) << "nestora-publish: wrote " << output << " (" << sections->size() << " sections)"
                        << (signature
                                ? QStringLiteral(" signed with key %1").arg(KVMinisign::keyIdText(signature->keyId))
                                : QString())
                        << '\n';
    return 0;
}
