#include "KVTestUpdateServer.h"

#include "KVTestCompanion.h"
#include "KVTestFiles.h"
#include "KVTestProcess.h"
#include "KVTestSandbox.h"
#include "Platform/KVPropertyList.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTemporaryDir>

namespace {
const QString kVersionKey = QStringLiteral("CFBundleVersion");

// A part of the description that lists releases: {"releases": [{"version": …, "file": …}, …]}.
QJsonObject withRelease(QJsonObject part, const QString &version, const QString &file)
{
    QJsonArray releases = part.value(QStringLiteral("releases")).toArray();
    releases.append(QJsonObject{{QStringLiteral("version"), version}, {QStringLiteral("file"), file}});
    part.insert(QStringLiteral("releases"), releases);
    return part;
}

QJsonObject dataItem(const QString &version, const QString &file)
{
    return {{QStringLiteral("version"), version}, {QStringLiteral("file"), file}};
}
} // namespace

KVTestUpdateServer::KVTestUpdateServer()
    : m_documentRoot(KVTestSandbox::current().root() + QStringLiteral("/www"))
    , m_nginx(m_documentRoot)
{
    QDir(m_documentRoot).removeRecursively();
    QDir().mkpath(m_documentRoot);
}

bool KVTestUpdateServer::copyBundle(const QString &source, const QString &destination, const QString &version)
{
    QDir(destination).removeRecursively();
    QDir().mkpath(QFileInfo(destination).path());
    if (!KVTestProcess::run({QStringLiteral("cp"), QStringLiteral("-R"), source, destination}).succeeded())
        return false;
    const QString infoPath = destination + QStringLiteral("/Contents/Info.plist");
    QVariantMap info = KVPropertyList::readDictionary(infoPath).valueOr({});
    info.insert(kVersionKey, version);
    return KVPropertyList::writeDictionary(infoPath, info) &&
           KVTestFiles::writeFile(destination + QLatin1Char('/') + releaseMarker, version.toUtf8());
}

bool KVTestUpdateServer::makeApplication(const QString &destination, const QString &version)
{
    return copyBundle(KVTestCompanion::builtBundlePath(), destination, version);
}

bool KVTestUpdateServer::zipFolder(const QString &archive, const QString &folder)
{
    const QFileInfo item(folder);
    return KVTestFiles::zipEntries(archive, item.path(), {item.fileName()});
}

bool KVTestUpdateServer::addApplication(const QString &version)
{
    QTemporaryDir staging;
    const QString bundle = staging.filePath(QStringLiteral("Nestora.app"));
    if (!makeApplication(bundle, version) || !zipFolder(servedPath(applicationFile(version)), bundle))
        return false;
    const QJsonObject part = m_description.value(QStringLiteral("application")).toObject();
    m_description.insert(QStringLiteral("application"), withRelease(part, version, applicationFile(version)));
    return true;
}

bool KVTestUpdateServer::addDeviceXML(const QString &version, const QByteArray &contents)
{
    m_description.insert(QStringLiteral("deviceXML"), dataItem(version, deviceXMLFile));
    return addFile(deviceXMLFile, contents);
}

bool KVTestUpdateServer::addDeviceIcons(const QString &version, const QMap<QString, QByteArray> &icons)
{
    QMap<QString, QByteArray> files;
    for (auto icon = icons.cbegin(); icon != icons.cend(); ++icon)
        files.insert(QStringLiteral("Icons/") + icon.key(), icon.value());
    m_description.insert(QStringLiteral("deviceIcons"), dataItem(version, deviceIconsFile));
    return KVTestFiles::makeZip(servedPath(deviceIconsFile), files);
}

bool KVTestUpdateServer::addSmartCards(const QString &version, const QByteArray &contents)
{
    m_description.insert(QStringLiteral("smartCards"), dataItem(version, smartCardsFile));
    return addFile(smartCardsFile, contents);
}

bool KVTestUpdateServer::addInstaller(const QString &installerBundle, const QString &installedVersion,
                                      const QString &version)
{
    QTemporaryDir staging;
    const QString bundle = staging.filePath(QFileInfo(installerBundle).fileName());
    if (!copyBundle(installerBundle, bundle, version) || !zipFolder(servedPath(installerFile(version)), bundle))
        return false;
    QJsonObject part =
        withRelease(m_description.value(QStringLiteral("installer")).toObject(), version, installerFile(version));
    part.insert(QStringLiteral("updateFrom"), QJsonObject{{installedVersion, version}});
    m_description.insert(QStringLiteral("installer"), part);
    return true;
}

bool KVTestUpdateServer::addNestoraRelease()
{
    return addApplication(releaseApplication) && addDeviceXML(releaseDeviceXML, releaseDevicesXMLText) &&
           addDeviceIcons(releaseDeviceIcons, releaseIcons) && addSmartCards(releaseSmartCards, releaseSmartCardsText);
}

bool KVTestUpdateServer::addFile(const QString &file, const QByteArray &contents)
{
    return KVTestFiles::writeFile(servedPath(file), contents);
}

bool KVTestUpdateServer::start(QString *errorMessage)
{
    if (!m_nginx.start(errorMessage))
        return false;
    // Outside the document root, so that it is not served and not mistaken for a deliverable.
    const QString descriptionPath = KVTestSandbox::current().root() + QStringLiteral("/description.json");
    if (!KVTestFiles::writeFile(descriptionPath, QJsonDocument(m_description).toJson())) {
        *errorMessage = QStringLiteral("cannot write the version description");
        return false;
    }
    const KVTestProcess::Outcome publish =
        KVTestProcess::run({QStringLiteral(NESTORA_PUBLISH_TOOL), QStringLiteral("--base-url"),
                            m_nginx.url(QStringLiteral("/")).toString(), m_documentRoot, descriptionPath});
    if (!publish.succeeded()) {
        *errorMessage = QStringLiteral("nestora-publish failed: ") + publish.errors + publish.output;
        return false;
    }
    const QJsonObject configuration{{QStringLiteral("ApplicationUpdate"), manifestURL().toString()}};
    if (!KVTestFiles::writeFile(KVTestSandbox::current().home() + QStringLiteral("/Downloads/TestServerForVexa.txt"),
                                QJsonDocument(configuration).toJson())) {
        *errorMessage = QStringLiteral("cannot write the test server file");
        return false;
    }
    return true;
}

bool KVTestUpdateServer::setManifestValue(const QString &section, const QString &key, const QString &value) const
{
    const QString manifest = servedPath(QStringLiteral("manifest.ini"));
    QString text = QString::fromUtf8(KVTestFiles::readFile(manifest));
    const QRegularExpression line(QStringLiteral("(\\n\\[%1\\]\\n(?:[^\\[][^\\n]*\\n)*?)%2=[^\\n]*\\n")
                                      .arg(QRegularExpression::escape(section), QRegularExpression::escape(key)));
    if (!text.prepend(QLatin1Char('\n')).contains(line))
        return false;
    text.replace(line, value.isNull() ? QStringLiteral("\\1") : QStringLiteral("\\1%1=%2\n").arg(key, value));
    return KVTestFiles::writeFile(manifest, text.mid(1).toUtf8());
}
