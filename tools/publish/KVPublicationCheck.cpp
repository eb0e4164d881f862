#include "KVPublicationCheck.h"

#include "KVManifestPublisher.h"
#include "KVPublishedFile.h"

#include <QFile>
#include <QFileInfo>
#include <QUrl>
#include <algorithm>
#include <tuple>

namespace {

KVManifestFinding error(int line, const QString &text)
{
    return {KVManifestFinding::Severity::Error, line, text};
}

} // namespace

KVPublicationCheck::KVPublicationCheck(const QString &manifestPath, const QByteArray &manifest)
    : m_manifestPath(manifestPath)
    , m_manifest(manifest)
    , m_outline(QString::fromUtf8(manifest))
    , m_folder(QFileInfo(manifestPath).absoluteDir())
{}

QList<KVManifestFinding> KVPublicationCheck::findings(const KVMinisign::PublicKey &key, const QDateTime &now) const
{
    QList<KVManifestFinding> findings;
    checkSignature(key, findings);
    checkFreshness(now, findings);
    checkFiles(findings);
    findings << KVManifestLint::warnings(m_outline);
    std::stable_sort(findings.begin(), findings.end(),
                     [](const KVManifestFinding &a, const KVManifestFinding &b) { return a.line < b.line; });
    return findings;
}

void KVPublicationCheck::checkSignature(const KVMinisign::PublicKey &key, QList<KVManifestFinding> &findings) const
{
    const QString path = m_manifestPath + QStringLiteral(".minisig");
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        findings << error(0, QStringLiteral("the signature %1 cannot be read (%2): sign the manifest with --sign")
                                 .arg(QDir::toNativeSeparators(path), file.errorString()));
        return;
    }
    const auto signature = KVMinisign::Signature::fromText(file.readAll());
    const KVResult<void> verified = signature ? signature->verify(m_manifest, key) : signature.error();
    if (!verified)
        findings << error(0, verified.error().localizedDescription());
}

void KVPublicationCheck::checkFreshness(const QDateTime &now, QList<KVManifestFinding> &findings) const
{
    const KVManifestOutline::Section *manifest = m_outline.section(KVManifestTrust::kManifestSection);
    if (!manifest) {
        findings << error(0, QStringLiteral("no [Manifest] section: the installer refuses a signed manifest without "
                                            "its Serial and Expires"));
        return;
    }
    const KVManifestOutline::Item *serial = manifest->item(KVManifestTrust::kSerialKey);
    bool isNumber = false;
    if (!serial)
        findings << error(manifest->line, QStringLiteral("[Manifest] has no Serial"));
    else if (serial->value.toLongLong(&isNumber) < 1 || !isNumber)
        findings << error(serial->line,
                          QStringLiteral("Serial=%1 is not a whole number of at least 1").arg(serial->value));

    const KVManifestOutline::Item *expires = manifest->item(KVManifestTrust::kExpiresKey);
    QDateTime expiry = expires ? QDateTime::fromString(expires->value, Qt::ISODate) : QDateTime();
    // A time without a zone is UTC, as the installer reads it.
    if (expiry.timeSpec() == Qt::LocalTime)
        expiry.setTimeSpec(Qt::UTC);
    if (!expires)
        findings << error(manifest->line, QStringLiteral("[Manifest] has no Expires"));
    else if (!expiry.isValid())
        findings << error(expires->line, QStringLiteral("Expires=%1 is not an ISO 8601 time, such as "
                                                        "2030-01-31T12:00:00Z")
                                             .arg(expires->value));
    else if (expiry <= now)
        findings << error(expires->line, QStringLiteral("the manifest expired at %1: installers refuse it; publish it "
                                                        "again")
                                             .arg(expires->value));
}

void KVPublicationCheck::checkFiles(QList<KVManifestFinding> &findings) const
{
    for (const KVManifestOutline::Section &section : m_outline.sections()) {
        const KVManifestOutline::Item *url = section.item(QStringLiteral("URL"));
        if (!url || m_outline.section(section.name) != &section)
            continue;
        const QString path = fileForURL(url->value);
        if (path.isEmpty()) {
            findings << error(
                url->line,
                QStringLiteral("%1 names no file in %2").arg(url->value, QDir::toNativeSeparators(m_folder.path())));
            continue;
        }
        const KVResult<KVPublishedFile> file = KVPublishedFile::read(path);
        if (!file) {
            findings << error(url->line,
                              QStringLiteral("cannot read %1: %2").arg(path, file.error().localizedDescription()));
            continue;
        }
        const QString name = m_folder.relativeFilePath(path);
        // Without "Bytes" the installer still downloads, within a limit; without a digest it does not.
        const std::tuple<const char *, QString, bool> expected[] = {
            {"Bytes", QString::number(file->bytes), false}, {"MD5", file->md5, true}, {"SHA256", file->sha256, true}};
        for (const auto &[key, actual, required] : expected) {
            const KVManifestOutline::Item *item = section.item(QLatin1String(key));
            if (!item && required)
                findings << error(section.line, QStringLiteral("[%1] has no %2: the installer refuses its download")
                                                    .arg(section.name, QLatin1String(key)));
            else if (item && item->value != actual)
                findings << error(item->line,
                                  QStringLiteral("%1=%2, but %3 has %4").arg(item->key, item->value, name, actual));
        }
    }
}

QString KVPublicationCheck::fileForURL(const QString &url) const
{
    QStringList parts = QDir::cleanPath(QUrl(url).path()).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    // Never a file outside the folder.
    if (parts.contains(QLatin1String("..")))
        return {};
    for (; !parts.isEmpty(); parts.removeFirst()) {
        const QString candidate = m_folder.filePath(parts.join(QLatin1Char('/')));
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return {};
}
