#include "App/Model/KVPolicy.h"

#include "Core/Logging/KVLog.h"
#include "Platform/KVFileProtection.h"

#include <QFile>
#include <QRegularExpression>

namespace {
const QString kSystemPolicyPath = QStringLiteral("/etc/nestora/policy.ini");

// The text without its comment lines, which the manifest's syntax would take for items.
QString withoutComments(const QString &text)
{
    static const QRegularExpression comment(QStringLiteral("^[ \\t]*[#;].*$"), QRegularExpression::MultilineOption);
    return QString(text).remove(comment);
}
} // namespace

KVPolicy::KVPolicy(const QString &text)
    : m_document(withoutComments(text))
{}

KVPolicy KVPolicy::load()
{
    const QString named = qEnvironmentVariable("NESTORA_POLICY_FILE");
    const QString path = named.isEmpty() ? kSystemPolicyPath : named;
    if (!QFile::exists(path))
        return KVPolicy();

    const auto owners = named.isEmpty() ? KVFileProtection::Owners::AdministratorOnly
                                        : KVFileProtection::Owners::AdministratorOrTheCaller;
    if (const KVResult<void> protection = KVFileProtection::checkOnlyOwnerCanChange(path, owners); !protection) {
        KVLogWarning("KVPolicy: ignoring the policy file %@: %@", path, protection.error().localizedDescription());
        return KVPolicy();
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        KVLogWarning("KVPolicy: ignoring the policy file %@: %@", path, file.errorString());
        return KVPolicy();
    }
    return KVPolicy(QString::fromUtf8(file.readAll()));
}

QString KVPolicy::value(const QString &section, const QString &key) const
{
    // The last section of the name and the last item of the key win, as a reader of the file expects.
    QString found;
    for (const KVINISectionPtr &candidate : m_document.sections()) {
        if (candidate->name().trimmed() != section)
            continue;
        for (const KVINIItem &item : candidate->items())
            if (item.key().trimmed() == key)
                found = item.value().trimmed();
    }
    return found;
}

QStringList KVPolicy::listValue(const QString &section, const QString &key) const
{
    QStringList entries = value(section, key).split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (QString &entry : entries)
        entry = entry.trimmed();
    entries.removeAll(QString());
    return entries;
}

bool KVPolicy::boolValue(const QString &section, const QString &key) const
{
    const QString text = value(section, key).toLower();
    return text == QLatin1String("true") || text == QLatin1String("yes") || text == QLatin1String("1");
}
