#include "KVManifestPublisher.h"

#include "KVPublishedFile.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>
#include <algorithm>

namespace {

KVError publishError(KVPublishErrorCode code, const QString &message)
{
    return KVError(KVPublishErrorDomain, code, {{KVLocalizedDescriptionKey, message}});
}

// Characters that would change how the installer reads a section name, an item or a list.
bool isPlainToken(const QString &text)
{
    static const QString reserved = QStringLiteral("_=;[]");
    return !text.isEmpty() && std::none_of(text.cbegin(), text.cend(), [](QChar c) {
        return c.isSpace() || c.category() == QChar::Other_Control || reserved.contains(c);
    });
}

} // namespace

KVManifestPublisher::KVManifestPublisher(const QString &deliverablesDirectory, const QUrl &baseURL)
    : m_deliverables(deliverablesDirectory)
    , m_baseURL(baseURL)
{}

KVResult<QJsonObject> KVManifestPublisher::readDescription(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return publishError(KVPublishErrorBadDescription,
                            QStringLiteral("cannot read the description %1: %2").arg(path, file.errorString()));
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return publishError(KVPublishErrorBadDescription, QStringLiteral("%1 is not valid JSON: %2 at offset %3")
                                                              .arg(path, parseError.errorString())
                                                              .arg(parseError.offset));
    if (!document.isObject())
        return publishError(KVPublishErrorBadDescription, QStringLiteral("%1 must hold a JSON object").arg(path));
    return document.object();
}

KVResult<QList<KVINISectionPtr>> KVManifestPublisher::sectionsForDescription(const QJsonObject &description)
{
    m_sections.clear();
    m_error = {};
    if (!addSections(description))
        return m_error;
    return m_sections;
}

bool KVManifestPublisher::addSections(const QJsonObject &description)
{
    if (!hasOnlyKeys(description,
                     {QStringLiteral("baseURL"), QStringLiteral("installer"), QStringLiteral("application"),
                      QStringLiteral("modules"), QStringLiteral("deviceXML"), QStringLiteral("deviceIcons"),
                      QStringLiteral("smartCards")},
                     QStringLiteral("the description")))
        return false;

    m_servedFrom = m_baseURL.isEmpty() ? QUrl(description.value(QStringLiteral("baseURL")).toString(), QUrl::StrictMode)
                                       : m_baseURL;
    if (!m_servedFrom.isValid() || m_servedFrom.host().isEmpty() ||
        (m_servedFrom.scheme() != QLatin1String("http") && m_servedFrom.scheme() != QLatin1String("https")))
        return fail(
            KVPublishErrorBadDescription,
            QStringLiteral("the base URL must be an http or https address, not \"%1\"").arg(m_servedFrom.toString()));
    // The base names a folder: file names are appended to it, never replace its last part.
    if (!m_servedFrom.path().endsWith(QLatin1Char('/')))
        m_servedFrom.setPath(m_servedFrom.path() + QLatin1Char('/'));

    if (description.contains(QStringLiteral("installer")) &&
        !addInstaller(description.value(QStringLiteral("installer"))))
        return false;
    if (description.contains(QStringLiteral("application")) &&
        !addIndexedReleases(description.value(QStringLiteral("application")), QStringLiteral("application"),
                            QStringLiteral("Mac_Application")))
        return false;
    if (description.contains(QStringLiteral("modules"))) {
        const QJsonValue modules = description.value(QStringLiteral("modules"));
        if (!modules.isObject())
            return fail(KVPublishErrorBadDescription,
                        QStringLiteral("\"modules\" must map module names to their releases"));
        const QJsonObject byName = modules.toObject();
        for (auto it = byName.begin(); it != byName.end(); ++it) {
            const QString context = QStringLiteral("modules.") + it.key();
            const auto name = token(it.key(), context);
            if (!name || !addIndexedReleases(it.value(), context, QStringLiteral("Mac_Module_") + *name))
                return false;
        }
    }
    const std::pair<const char *, const char *> dataItems[] = {
        {"deviceXML", "Device_XML"}, {"deviceIcons", "Device_Icon"}, {"smartCards", "Smart_Cards"}};
    for (const auto &[key, sectionName] : dataItems) {
        const QString context = QString::fromLatin1(key);
        if (description.contains(context) &&
            !addDataItem(description.value(context), context, QString::fromLatin1(sectionName)))
            return false;
    }
    if (m_sections.isEmpty())
        return fail(KVPublishErrorBadDescription, QStringLiteral("the description names no deliverable"));
    return true;
}

bool KVManifestPublisher::addInstaller(const QJsonValue &part)
{
    const QString context = QStringLiteral("installer");
    if (!part.isObject())
        return fail(KVPublishErrorBadDescription, context + QStringLiteral(" must be an object"));
    const QJsonObject installer = part.toObject();
    if (!hasOnlyKeys(installer, {QStringLiteral("releases"), QStringLiteral("updateFrom"), QStringLiteral("debug")},
                     context))
        return false;
    const QString indexName = QStringLiteral("Mac_Installer");
    const auto releaseSections = releases(installer, context, indexName);
    if (!releaseSections)
        return false;

    auto index = std::make_shared<KVINISection>(indexName);
    if (installer.contains(QStringLiteral("debug"))) {
        const auto debug = releaseName(installer.value(QStringLiteral("debug")), *releaseSections, indexName,
                                       context + QStringLiteral(".debug"));
        if (!debug)
            return false;
        index->addItemWithKey(QStringLiteral("Debug"), *debug);
    }
    // Keyed by the installed version: each installed installer finds the release it moves to.
    const QJsonObject updateFrom = installer.value(QStringLiteral("updateFrom")).toObject();
    for (auto it = updateFrom.begin(); it != updateFrom.end(); ++it) {
        const QString entryContext = context + QStringLiteral(".updateFrom.") + it.key();
        const auto installedVersion = token(it.key(), entryContext);
        const auto target =
            installedVersion ? releaseName(it.value(), *releaseSections, indexName, entryContext) : std::nullopt;
        if (!target)
            return false;
        index->addItemWithKey(*installedVersion, *target);
    }
    if (index->items().isEmpty())
        return fail(KVPublishErrorBadDescription,
                    context + QStringLiteral(" needs \"updateFrom\" (installed version to release) or \"debug\": "
                                             "otherwise no installer is ever offered its release"));
    m_sections << index << *releaseSections;
    return true;
}

bool KVManifestPublisher::addIndexedReleases(const QJsonValue &part, const QString &context, const QString &indexName)
{
    if (!part.isObject())
        return fail(KVPublishErrorBadDescription, context + QStringLiteral(" must be an object"));
    const QJsonObject description = part.toObject();
    if (!hasOnlyKeys(description,
                     {QStringLiteral("releases"), QStringLiteral("latest"), QStringLiteral("latestForSystem"),
                      QStringLiteral("debug")},
                     context))
        return false;
    const auto releaseSections = releases(description, context, indexName);
    if (!releaseSections)
        return false;

    auto index = std::make_shared<KVINISection>(indexName);
    const QJsonValue bySystem = description.value(QStringLiteral("latestForSystem"));
    if (!bySystem.isUndefined() && !bySystem.isObject())
        return fail(KVPublishErrorBadDescription,
                    context + QStringLiteral(".latestForSystem must map system versions to release versions"));
    const QJsonObject latestForSystem = bySystem.toObject();
    for (auto it = latestForSystem.begin(); it != latestForSystem.end(); ++it) {
        const QString entryContext = context + QStringLiteral(".latestForSystem.") + it.key();
        const auto system = token(it.key(), entryContext);
        const auto name = system ? releaseName(it.value(), *releaseSections, indexName, entryContext) : std::nullopt;
        if (!name)
            return false;
        index->addItemWithKey(QStringLiteral("LatestVersion_") + *system, *name);
    }
    if (description.contains(QStringLiteral("debug"))) {
        const auto debug = releaseName(description.value(QStringLiteral("debug")), *releaseSections, indexName,
                                       context + QStringLiteral(".debug"));
        if (!debug)
            return false;
        index->addItemWithKey(QStringLiteral("Debug"), *debug);
    }
    // Written last: without a per-system entry the installer takes the last item whose key does
    // not begin with "LatestVersion_", and that must be this one.
    const QJsonValue latest = description.contains(QStringLiteral("latest"))
                                  ? description.value(QStringLiteral("latest"))
                                  : QJsonValue(releaseSections->last()->name().section(QLatin1Char('_'), -1));
    const auto latestName = releaseName(latest, *releaseSections, indexName, context + QStringLiteral(".latest"));
    if (!latestName)
        return false;
    index->addItemWithKey(QStringLiteral("LatestVersion"), *latestName);
    m_sections << index << *releaseSections;
    return true;
}

std::optional<QList<KVINISectionPtr>> KVManifestPublisher::releases(const QJsonObject &part, const QString &context,
                                                                    const QString &indexName)
{
    const QJsonArray list = part.value(QStringLiteral("releases")).toArray();
    if (list.isEmpty()) {
        fail(KVPublishErrorBadDescription, context + QStringLiteral(".releases must list at least one release"));
        return std::nullopt;
    }
    QList<KVINISectionPtr> sections;
    for (qsizetype i = 0; i < list.size(); ++i) {
        const QString releaseContext = QStringLiteral("%1.releases[%2]").arg(context).arg(i);
        if (!list.at(i).isObject()) {
            fail(KVPublishErrorBadDescription, releaseContext + QStringLiteral(" must be an object"));
            return std::nullopt;
        }
        const QJsonObject release = list.at(i).toObject();
        if (!hasOnlyKeys(release, {QStringLiteral("version"), QStringLiteral("file"), QStringLiteral("osSupport")},
                         releaseContext))
            return std::nullopt;
        const auto version =
            token(release.value(QStringLiteral("version")), releaseContext + QStringLiteral(".version"));
        if (!version)
            return std::nullopt;
        const QString name = indexName + QLatin1Char('_') + *version;
        if (std::any_of(sections.cbegin(), sections.cend(), [&](const auto &s) { return s->name() == name; })) {
            fail(KVPublishErrorBadDescription,
                 releaseContext + QStringLiteral(": version %1 is listed twice").arg(*version));
            return std::nullopt;
        }
        auto section = std::make_shared<KVINISection>(name);
        if (!addDeliverableItems(*section, release.value(QStringLiteral("file")), releaseContext))
            return std::nullopt;

        QString osSupport = QStringLiteral("All");
        const QJsonValue systems = release.value(QStringLiteral("osSupport"));
        if (systems.isArray() && !systems.toArray().isEmpty()) {
            QStringList supported;
            for (const QJsonValue &system : systems.toArray()) {
                const auto text = token(system, releaseContext + QStringLiteral(".osSupport"));
                if (!text)
                    return std::nullopt;
                supported << *text;
            }
            osSupport = supported.join(QLatin1Char(';'));
        } else if (!systems.isUndefined() && systems != QJsonValue(QStringLiteral("All"))) {
            fail(KVPublishErrorBadDescription,
                 releaseContext + QStringLiteral(".osSupport must be \"All\" or a list of system versions"));
            return std::nullopt;
        }
        section->addItemWithKey(QStringLiteral("OSSupport"), osSupport);
        sections << section;
    }
    return sections;
}

bool KVManifestPublisher::addDataItem(const QJsonValue &part, const QString &context, const QString &sectionName)
{
    const QJsonObject item = part.toObject();
    if (!part.isObject())
        return fail(KVPublishErrorBadDescription, context + QStringLiteral(" must be an object"));
    if (!hasOnlyKeys(item, {QStringLiteral("version"), QStringLiteral("file")}, context))
        return false;
    const auto version = token(item.value(QStringLiteral("version")), context + QStringLiteral(".version"));
    if (!version)
        return false;
    auto section = std::make_shared<KVINISection>(sectionName);
    section->addItemWithKey(QStringLiteral("LatestVersion"), *version);
    if (!addDeliverableItems(*section, item.value(QStringLiteral("file")), context))
        return false;
    m_sections << section;
    return true;
}

bool KVManifestPublisher::addDeliverableItems(KVINISection &section, const QJsonValue &file, const QString &context)
{
    const QString fileName = QDir::cleanPath(file.toString());
    if (!file.isString() || fileName.isEmpty() || QDir::isAbsolutePath(fileName) || fileName == QLatin1String("..") ||
        fileName.startsWith(QLatin1String("../")))
        return fail(KVPublishErrorBadDescription,
                    context + QStringLiteral(".file must name a file inside the deliverables folder"));
    const QString path = m_deliverables.filePath(fileName);
    const KVResult<KVPublishedFile> published = KVPublishedFile::read(path);
    if (!published)
        return fail(KVPublishErrorMissingDeliverable,
                    QStringLiteral("%1: cannot read the deliverable %2: %3")
                        .arg(context, QDir::toNativeSeparators(path), published.error().localizedDescription()));

    QUrl relative;
    relative.setPath(fileName, QUrl::DecodedMode);
    section.addItemWithKey(QStringLiteral("URL"), m_servedFrom.resolved(relative).toString(QUrl::FullyEncoded));
    section.addItemWithKey(QStringLiteral("Bytes"), QString::number(published->bytes));
    section.addItemWithKey(QStringLiteral("MD5"), published->md5);
    section.addItemWithKey(QStringLiteral("SHA256"), published->sha256);
    return true;
}

std::optional<QString> KVManifestPublisher::token(const QJsonValue &value, const QString &context)
{
    const QString text = value.toString();
    if (!value.isString() || !isPlainToken(text)) {
        fail(
            KVPublishErrorBadDescription,
            QStringLiteral("%1 must be a non-empty text without blanks, \"_\", \"=\", \";\" or brackets").arg(context));
        return std::nullopt;
    }
    return text;
}

std::optional<QString> KVManifestPublisher::releaseName(const QJsonValue &version,
                                                        const QList<KVINISectionPtr> &releases,
                                                        const QString &indexName, const QString &context)
{
    const auto text = token(version, context);
    if (!text)
        return std::nullopt;
    const QString name = indexName + QLatin1Char('_') + *text;
    if (std::none_of(releases.cbegin(), releases.cend(), [&](const auto &s) { return s->name() == name; })) {
        fail(KVPublishErrorBadDescription,
             QStringLiteral("%1 names version %2, which is not among the releases").arg(context, *text));
        return std::nullopt;
    }
    return name;
}

bool KVManifestPublisher::hasOnlyKeys(const QJsonObject &object, const QStringList &keys, const QString &context)
{
    for (const QString &key : object.keys()) {
        if (!keys.contains(key))
            return fail(KVPublishErrorBadDescription, QStringLiteral("unknown key \"%1\" in %2 (known: %3)")
                                                          .arg(key, context, keys.join(QStringLiteral(", "))));
    }
    return true;
}

bool KVManifestPublisher::fail(KVPublishErrorCode code, const QString &message)
{
    if (m_error.isNull())
        m_error = publishError(code, message);
    return false;
}

KVINISectionPtr KVManifestPublisher::manifestSection(qint64 serial, const QDateTime &expires)
{
    auto section = std::make_shared<KVINISection>(KVManifestTrust::kManifestSection);
    section->addItemWithKey(KVManifestTrust::kSerialKey, QString::number(serial));
    section->addItemWithKey(KVManifestTrust::kExpiresKey, expires.toUTC().toString(Qt::ISODate));
    return section;
}

QByteArray KVManifestPublisher::manifestText(const QList<KVINISectionPtr> &sections)
{
    QByteArray text;
    for (const KVINISectionPtr &section : sections) {
        if (!text.isEmpty())
            text += '\n';
        text += '[' + section->name().toUtf8() + "]\n";
        for (const KVINIItem &item : section->items())
            text += item.key().toUtf8() + '=' + item.value().toUtf8() + '\n';
    }
    return text;
}

KVResult<> KVManifestPublisher::writeManifest(const QByteArray &text, const QByteArray &signature, const QString &path)
{
    QSaveFile manifest(path);
    QSaveFile signatureFile(path + QStringLiteral(".minisig"));
    const auto failed = [](const QSaveFile &file, const QString &what) -> KVResult<> {
        return publishError(KVPublishErrorUnwritableManifest,
                            QStringLiteral("%1 %2: %3").arg(what, file.fileName(), file.errorString()));
    };
    if (!manifest.open(QIODevice::WriteOnly) || manifest.write(text) != text.size())
        return failed(manifest, QStringLiteral("cannot write the manifest"));
    if (!signature.isEmpty() &&
        (!signatureFile.open(QIODevice::WriteOnly) || signatureFile.write(signature) != signature.size()))
        return failed(signatureFile, QStringLiteral("cannot write the signature"));
    if (!manifest.commit())
        return failed(manifest, QStringLiteral("cannot write the manifest"));
    if (!signature.isEmpty() && !signatureFile.commit())
        return failed(signatureFile,
                      QStringLiteral("the manifest is replaced, but installers will refuse it until it is signed "
                                     "again: cannot write the signature"));
    return {};
}
