#pragma once

#include "KVNginxServer.h"

#include <QJsonObject>
#include <QMap>
#include <QStringList>
#include <QUrl>

// The update server of the end-to-end tests: real deliverables made in the sandbox (the sample
// companion application, device icons, a devices XML, a smart-cards JSON and the
// installer itself, the archives made by the zip tool), a manifest written by nestora-publish for
// them, and a real nginx on 127.0.0.1 serving it all. Thread: the test's main thread.
class KVTestUpdateServer
{
public:
    // The served file of each deliverable, relative to the document root.
    static QString applicationFile(const QString &version) { return QStringLiteral("Nestora-%1.zip").arg(version); }
    static QString installerFile(const QString &version)
    {
        return QStringLiteral("NestoraInstaller-%1.zip").arg(version);
    }
    static inline const QString deviceXMLFile = QStringLiteral("devices.xml");
    static inline const QString deviceIconsFile = QStringLiteral("device-icons.zip");
    static inline const QString smartCardsFile = QStringLiteral("smart-cards.json");
    // A file inside every bundle made here that holds the bundle's version, so that an installed
    // release can be told by its contents as well as by its Info.plist.
    static inline const QString releaseMarker = QStringLiteral("Contents/Resources/release.txt");

    // The release that most tests serve, and what its data files hold.
    static inline const QString releaseApplication = QStringLiteral("2.2.0");
    static inline const QString releaseDeviceXML = QStringLiteral("5");
    static inline const QString releaseDeviceIcons = QStringLiteral("3");
    static inline const QString releaseSmartCards = QStringLiteral("7");
    static inline const QByteArray releaseDevicesXMLText = QByteArrayLiteral(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<devices><device id=\"1\" name=\"Reader\"/></devices>\n");
    static inline const QMap<QString, QByteArray> releaseIcons{{QStringLiteral("reader.png"), "reader icon"},
                                                               {QStringLiteral("token.png"), "token icon"}};
    static inline const QByteArray releaseSmartCardsText = QByteArrayLiteral("{\"cards\": [{\"atr\": \"3B8F80\"}]}\n");

    // The document root is <sandbox>/www, emptied.
    KVTestUpdateServer();

    // A copy of a bundle whose CFBundleVersion is the version and whose release marker holds it.
    [[nodiscard]] static bool copyBundle(const QString &source, const QString &destination, const QString &version);
    // The built sample companion application as the given release.
    [[nodiscard]] static bool makeApplication(const QString &destination, const QString &version);
    // An archive holding the folder (by its own name) as its one top-level item, links as links.
    [[nodiscard]] static bool zipFolder(const QString &archive, const QString &folder);

    // Each deliverable is written to the document root and described for the publishing tool.
    [[nodiscard]] bool addApplication(const QString &version);
    [[nodiscard]] bool addDeviceXML(const QString &version, const QByteArray &contents);
    // An archive of one folder "Icons" holding the files.
    [[nodiscard]] bool addDeviceIcons(const QString &version, const QMap<QString, QByteArray> &icons);
    [[nodiscard]] bool addSmartCards(const QString &version, const QByteArray &contents);
    // A copy of the installer bundle at the version, offered to installers of the installed version.
    [[nodiscard]] bool addInstaller(const QString &installerBundle, const QString &installedVersion,
                                    const QString &version);

    // Every deliverable of the release above.
    [[nodiscard]] bool addNestoraRelease();

    // Rules for misbehaving paths go here before start().
    KVNginxServer &nginx() { return m_nginx; }
    QString servedPath(const QString &file) const { return m_documentRoot + QLatin1Char('/') + file; }

    // Starts nginx, publishes the manifest for its address and points every installer of the
    // sandbox at it ($HOME/Downloads/TestServerForVexa.txt). False with the reason.
    [[nodiscard]] bool start(QString *errorMessage);
    QUrl manifestURL() const { return m_nginx.url(QStringLiteral("/manifest.ini")); }
    // Changes the published manifest after start(): the key of the section takes the value, or
    // goes when the value is null. False when the section has no such key.
    [[nodiscard]] bool setManifestValue(const QString &section, const QString &key, const QString &value) const;
    QStringList requestedPaths() const { return m_nginx.requestedPaths(); }

private:
    bool addFile(const QString &file, const QByteArray &contents);

    QString m_documentRoot;
    KVNginxServer m_nginx;
    QJsonObject m_description;
};
