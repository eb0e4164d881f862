#pragma once

#include "App/Model/KVINISection.h"
#include "App/Model/KVManifestTrust.h"
#include "Core/Extensions/KVResult.h"

#include <QDateTime>
#include <QDir>
#include <QJsonObject>
#include <QUrl>
#include <optional>

inline const QString KVPublishErrorDomain = QStringLiteral("KVPublishErrorDomain");

enum KVPublishErrorCode : qint64 {
    KVPublishErrorBadDescription = 1,
    KVPublishErrorMissingDeliverable = 2,
    KVPublishErrorUnwritableManifest = 3,
    KVPublishErrorUnusableKey = 4,
};

// Turns a folder of deliverables and a version description into the update manifest that the
// installer reads: index sections naming the releases, release and data sections with the
// download address, size, MD5 and SHA-256 digests of each file.
//
// The version description is a JSON object; every part is optional, but at least one must be there:
//
//   {
//     "baseURL": "https://updates.example.com/nestora/",  // the folder the files are served from
//     "installer": {
//       "releases": [{"version": "1.1.0", "file": "NestoraInstaller-1.1.0.zip",
//                     "osSupport": ["11.2", "12.0"]}],
//       "updateFrom": {"1.0.0": "1.1.0"},  // installed version -> the release it updates to
//       "debug": "1.1.0"                   // optional: offered whatever is installed
//     },
//     "application": {
//       "releases": [{"version": "2.1.5", "file": "Nestora-2.1.5.zip"},
//                    {"version": "2.2.0", "file": "Nestora-2.2.0.zip"}],
//       "latest": "2.2.0",                     // optional, default: the last release
//       "latestForSystem": {"10.15": "2.1.5"}, // optional: the release for one system version
//       "debug": "2.2.0"                       // optional: offered on every system
//     },
//     "modules": {"Backup": {...as "application"...}},
//     "deviceXML": {"version": "5", "file": "devices.xml"},
//     "deviceIcons": {"version": "3", "file": "device-icons.zip"},
//     "smartCards": {"version": "7", "file": "smart-cards.json"}
//   }
//
// "osSupport" is "All" (the default) or a list of "major.minor" system versions. Files are named
// relative to the deliverables folder; each one's address is the base URL followed by its name.
// Versions, system versions and module names may not hold blanks, "_", "=", ";" or brackets,
// because the manifest's section names and lists are built from them. Unknown keys are errors, so
// a misspelt key never silently drops a release.
class KVManifestPublisher
{
public:
    // An empty base URL takes the description's "baseURL".
    KVManifestPublisher(const QString &deliverablesDirectory, const QUrl &baseURL);

    [[nodiscard]] static KVResult<QJsonObject> readDescription(const QString &path);

    // The manifest's sections in the order the installer reads them: installer, application,
    // modules, devices XML, device icons, smart cards. Hashes every deliverable.
    [[nodiscard]] KVResult<QList<KVINISectionPtr>> sectionsForDescription(const QJsonObject &description);

    // The "[Manifest]" section that keeps a signed manifest fresh: "Serial" grows from one
    // publication to the next and "Expires" (ISO 8601, UTC) ends its validity, so that an old
    // manifest cannot be replayed to the installer, nor one kept from it for ever.
    static KVINISectionPtr manifestSection(qint64 serial, const QDateTime &expires);

    // The manifest text: "[name]" headers and "key=value" lines.
    static QByteArray manifestText(const QList<KVINISectionPtr> &sections);
    // Replaces the manifest, and with a signature the ".minisig" file beside it. Both are written
    // in full before either replaces anything; then the manifest is renamed into place and its
    // signature right after it, so readers see the old pair or the new one, and a new manifest with
    // an old signature for no longer than between two renames.
    [[nodiscard]] static KVResult<> writeManifest(const QByteArray &text, const QByteArray &signature,
                                                  const QString &path);

private:
    // Each returns false or nothing after recording the first failure in m_error.
    bool addSections(const QJsonObject &description);
    bool addInstaller(const QJsonValue &part);
    bool addIndexedReleases(const QJsonValue &part, const QString &context, const QString &indexName);
    bool addDataItem(const QJsonValue &part, const QString &context, const QString &sectionName);
    std::optional<QList<KVINISectionPtr>> releases(const QJsonObject &part, const QString &context,
                                                   const QString &indexName);
    bool addDeliverableItems(KVINISection &section, const QJsonValue &file, const QString &context);
    std::optional<QString> token(const QJsonValue &value, const QString &context);
    std::optional<QString> releaseName(const QJsonValue &version, const QList<KVINISectionPtr> &releases,
                                       const QString &indexName, const QString &context);
    bool hasOnlyKeys(const QJsonObject &object, const QStringList &keys, const QString &context);
    bool fail(KVPublishErrorCode code, const QString &message);

    QDir m_deliverables;
    QUrl m_baseURL;    // as given; empty: the description's
    QUrl m_servedFrom; // the base URL in use, ending in "/"
    QList<KVINISectionPtr> m_sections;
    KVError m_error;
};
