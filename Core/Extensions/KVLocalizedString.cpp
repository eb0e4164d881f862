#include "Core/Extensions/KVLocalizedString.h"

#include <QLocale>
#include <QMutex>
#include <QTranslator>
#include <memory>

namespace {

const char *const kContext = "Localizable";

struct StringTables
{
    QMutex mutex;
    std::unique_ptr<QTranslator> preferred;
    std::unique_ptr<QTranslator> english;
    bool loaded = false;

    void load(const QLocale &locale)
    {
        preferred = std::make_unique<QTranslator>();
        if (!preferred->load(locale, QStringLiteral("nestora"), QStringLiteral("_"), QStringLiteral(":/i18n")))
            preferred.reset();
        english = std::make_unique<QTranslator>();
        if (!english->load(QStringLiteral(":/i18n/nestora_en.qm")))
            english.reset();
        loaded = true;
    }
};

StringTables &tables()
{
    static StringTables instance;
    return instance;
}

} // namespace

QString KVLocalizedString(const QString &key)
{
    StringTables &t = tables();
    QMutexLocker lock(&t.mutex);
    if (!t.loaded)
        t.load(QLocale::system());
    const QByteArray source = key.toUtf8();
    for (const auto *translator : {t.preferred.get(), t.english.get()}) {
        if (!translator)
            continue;
        const QString text = translator->translate(kContext, source.constData());
        if (!text.isNull())
            return text;
    }
    return QStringLiteral("");
}

void KVSetLocalizationLanguage(const QString &language)
{
    StringTables &t = tables();
    QMutexLocker lock(&t.mutex);
    t.load(QLocale(language));
}
