#include "KVManifestLint.h"

#include "App/Model/KVUpdateHelper.h"
#include "KVManifestPublisher.h"

#include <QHash>
#include <QRegularExpression>
#include <algorithm>
#include <numeric>

namespace {

using Section = KVManifestOutline::Section;

KVManifestFinding warning(int line, const QString &text)
{
    return {KVManifestFinding::Severity::Warning, line, text};
}

KVUpdateSectionType typeOf(const Section &section)
{
    return KVUpdateHelper::typeOfSection(KVINISection(section.name));
}

bool isIndex(KVUpdateSectionType type)
{
    return type == KVUpdateSectionTypeInstaller || type == KVUpdateSectionTypeApplication ||
           type == KVUpdateSectionTypeModule;
}

// The keys a section of this name and kind is read with, apart from the version keys of the indexes.
QStringList knownKeys(const Section &section)
{
    const QStringList file{QStringLiteral("URL"), QStringLiteral("Bytes"), QStringLiteral("MD5"),
                           QStringLiteral("SHA256")};
    switch (typeOf(section)) {
    case KVUpdateSectionTypeInstaller:
        return {QStringLiteral("Debug")};
    case KVUpdateSectionTypeApplication:
    case KVUpdateSectionTypeModule:
        return {QStringLiteral("Debug"), QStringLiteral("LatestVersion")};
    case KVUpdateSectionTypeInstallerRelease:
    case KVUpdateSectionTypeApplicationRelease:
    case KVUpdateSectionTypeModuleRelease:
        return file + QStringList{QStringLiteral("OSSupport")};
    case KVUpdateSectionTypeDeviceXML:
    case KVUpdateSectionTypeDeviceIcon:
    case KVUpdateSectionTypeSmartCards:
        return QStringList{QStringLiteral("LatestVersion")} + file;
    case KVUpdateSectionTypeUnknown:
        break;
    }
    if (section.name == KVManifestTrust::kManifestSection)
        return {KVManifestTrust::kSerialKey, KVManifestTrust::kExpiresKey};
    return {};
}

bool isVersion(const QString &text)
{
    static const QRegularExpression version(QStringLiteral("^[0-9]+(\\.[0-9]+)*$"));
    return version.match(text).hasMatch();
}

bool isKnownKey(const Section &section, const QString &key)
{
    const QString perSystem = QStringLiteral("LatestVersion_");
    switch (typeOf(section)) {
    case KVUpdateSectionTypeInstaller: // keyed by the installed installer's version
        if (isVersion(key))
            return true;
        break;
    case KVUpdateSectionTypeApplication:
    case KVUpdateSectionTypeModule:
        if (key.startsWith(perSystem) && isVersion(key.mid(perSystem.size())))
            return true;
        break;
    default:
        break;
    }
    return knownKeys(section).contains(key);
}

// Edits (insertions, deletions, replacements) between two words, ignoring case.
qsizetype editDistance(const QString &a, const QString &b)
{
    QList<qsizetype> previous(b.size() + 1);
    std::iota(previous.begin(), previous.end(), 0);
    for (qsizetype i = 1; i <= a.size(); ++i) {
        QList<qsizetype> current(b.size() + 1);
        current[0] = i;
        for (qsizetype j = 1; j <= b.size(); ++j) {
            const bool same = a.at(i - 1).toCaseFolded() == b.at(j - 1).toCaseFolded();
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, previous[j - 1] + (same ? 0 : 1)});
        }
        previous = current;
    }
    return previous.last();
}

// " (did you mean "X"?)" for the nearest known word two edits away at most, or nothing.
QString suggestion(const QString &word, const QStringList &known)
{
    const auto nearest = std::min_element(known.cbegin(), known.cend(), [&](const QString &a, const QString &b) {
        return editDistance(word, a) < editDistance(word, b);
    });
    if (nearest == known.cend() || editDistance(word, *nearest) > 2)
        return {};
    return QStringLiteral(" (did you mean \"%1\"?)").arg(*nearest);
}

// The name the header was meant to have when it differs from a section name the installer reads
// only in case; otherwise empty.
QString intendedName(const QString &name)
{
    for (const char *exact :
         {"Manifest", "Mac_Installer", "Mac_Application", "Device_XML", "Device_Icon", "Smart_Cards"}) {
        if (name.compare(QLatin1String(exact), Qt::CaseInsensitive) == 0)
            return QLatin1String(exact);
    }
    for (const char *prefix : {"Mac_Installer_", "Mac_Application_", "Mac_Module_"}) {
        const QLatin1String start(prefix);
        if (name.startsWith(start, Qt::CaseInsensitive))
            return start + name.mid(start.size());
    }
    return {};
}

bool startsOrEndsWithBlank(const QString &key, const QString &value)
{
    return (!key.isEmpty() && key.back().isSpace()) || (!value.isEmpty() && value.front().isSpace());
}

void checkItems(const KVManifestOutline &outline, const Section &section, QList<KVManifestFinding> &findings)
{
    QHash<QString, int> firstLineOfKey;
    for (const KVManifestOutline::Item &item : section.items) {
        if (firstLineOfKey.contains(item.key)) {
            findings << warning(item.line, QStringLiteral("a second \"%1\" in [%2]: the installer reads only the one "
                                                          "on line %3")
                                               .arg(item.key, section.name)
                                               .arg(firstLineOfKey.value(item.key)));
            continue;
        }
        firstLineOfKey.insert(item.key, item.line);
        if (startsOrEndsWithBlank(item.key, item.value)) {
            findings << warning(item.line,
                                QStringLiteral("blanks around \"=\" are kept: the installer reads the key \"%1\" "
                                               "and the value \"%2\"")
                                    .arg(item.key, item.value));
            continue;
        }
        if (!isKnownKey(section, item.key)) {
            findings << warning(item.line, QStringLiteral("unknown key \"%1\" in [%2]%3")
                                               .arg(item.key, section.name, suggestion(item.key, knownKeys(section))));
            continue;
        }
        if (item.key == QLatin1String("OSSupport") &&
            std::any_of(item.value.cbegin(), item.value.cend(), [](QChar c) { return c.isSpace(); }))
            findings << warning(item.line, QStringLiteral("blank in the OSSupport list \"%1\": an entry with a blank "
                                                          "never matches a system")
                                               .arg(item.value));
        if (isIndex(typeOf(section)) && !outline.section(item.value))
            findings << warning(
                item.line,
                QStringLiteral("%1=%2 names a section that is not in this manifest").arg(item.key, item.value));
    }
}

} // namespace

namespace KVManifestLint {

QList<KVManifestFinding> warnings(const KVManifestOutline &outline)
{
    QList<KVManifestFinding> findings;
    for (const KVManifestOutline::StrayLine &stray : outline.strayLines())
        findings << warning(
            stray.line, stray.beforeFirstSection
                            ? QStringLiteral("a line before the first section: the installer ignores it")
                            : QStringLiteral("\"%1\" is no key=value item: the installer skips it").arg(stray.text));
    QHash<QString, int> firstLineOfSection;
    for (const Section &section : outline.sections()) {
        if (firstLineOfSection.contains(section.name)) {
            findings << warning(section.line, QStringLiteral("a second [%1] section: the installer reads only the "
                                                             "one on line %2")
                                                  .arg(section.name)
                                                  .arg(firstLineOfSection.value(section.name)));
            continue;
        }
        firstLineOfSection.insert(section.name, section.line);
        if (typeOf(section) == KVUpdateSectionTypeUnknown && section.name != KVManifestTrust::kManifestSection) {
            const QString intended = intendedName(section.name);
            findings << warning(
                section.line,
                intended.isEmpty() || intended == section.name
                    ? QStringLiteral("the installer does not know the section [%1] and ignores it").arg(section.name)
                    : QStringLiteral("the installer ignores [%1]: section names are case-sensitive, "
                                     "it reads [%2]")
                          .arg(section.name, intended));
            continue;
        }
        checkItems(outline, section, findings);
    }
    std::stable_sort(findings.begin(), findings.end(),
                     [](const KVManifestFinding &a, const KVManifestFinding &b) { return a.line < b.line; });
    return findings;
}

} // namespace KVManifestLint
