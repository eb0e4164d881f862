#include "Platform/KVPropertyList.h"

#include "Core/Extensions/KVWellFormedXml.h"
#include "Core/Logging/KVLog.h"

#include <QDateTime>
#include <QFile>
#include <QMutex>
#include <QSaveFile>
#include <QSet>

#include <plist/plist.h>

#include <memory>

// libplist's C interface is used rather than its C++ wrapper: the wrapper of the packaged version
// cannot copy date nodes, and the C interface hands node ownership over without copies.

namespace {

// libplist counts dates from the platform's reference date, 2001-01-01 00:00:00 UTC.
constexpr qint64 kReferenceDateOffset = 978307200;

struct PlistDeleter
{
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<std::remove_pointer_t<plist_t>, PlistDeleter>;

QVariant variantFromNode(plist_t node);

QVariantMap mapFromDictionary(plist_t dictionary)
{
    QVariantMap map;
    plist_dict_iter it = nullptr;
    plist_dict_new_iter(dictionary, &it);
    for (;;) {
        char *key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(dictionary, it, &key, &value);
        if (!key)
            break;
        map.insert(QString::fromUtf8(key), variantFromNode(value));
        free(key);
    }
    free(it);
    return map;
}

QVariant variantFromNode(plist_t node)
{
    switch (plist_get_node_type(node)) {
    case PLIST_STRING: {
        // By length: the copying getter asserts on a string holding a NUL.
        uint64_t length = 0;
        const char *text = plist_get_string_ptr(node, &length);
        return QString::fromUtf8(text, qsizetype(length));
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return qint64(value);
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return value;
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return bool(value);
    }
    case PLIST_DATE: {
        int32_t seconds = 0;
        int32_t microseconds = 0;
        plist_get_date_val(node, &seconds, &microseconds);
        return QDateTime::fromMSecsSinceEpoch((qint64(seconds) + kReferenceDateOffset) * 1000 + microseconds / 1000,
                                              Qt::UTC);
    }
    case PLIST_DATA: {
        char *bytes = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        const QByteArray value(bytes, qsizetype(length));
        free(bytes);
        return value;
    }
    case PLIST_ARRAY: {
        QVariantList list;
        for (uint32_t i = 0; i < plist_array_get_size(node); ++i)
            list << variantFromNode(plist_array_get_item(node, i));
        return list;
    }
    case PLIST_DICT:
        return mapFromDictionary(node);
    default:
        return {};
    }
}

plist_t nodeFromVariant(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return plist_new_bool(value.toBool());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Long:
        return plist_new_uint(uint64_t(value.toLongLong()));
    case QMetaType::Double:
    case QMetaType::Float:
        return plist_new_real(value.toDouble());
    case QMetaType::QDateTime: {
        const qint64 msecs = value.toDateTime().toMSecsSinceEpoch() - kReferenceDateOffset * 1000;
        return plist_new_date(int32_t(msecs / 1000), int32_t((msecs % 1000) * 1000));
    }
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return plist_new_data(bytes.constData(), uint64_t(bytes.size()));
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        plist_t array = plist_new_array();
        for (const QVariant &item : value.toList())
            if (plist_t node = nodeFromVariant(item))
                plist_array_append_item(array, node);
        return array;
    }
    case QMetaType::QVariantMap: {
        plist_t dictionary = plist_new_dict();
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            if (plist_t node = nodeFromVariant(it.value()))
                plist_dict_set_item(dictionary, it.key().toUtf8().constData(), node);
        return dictionary;
    }
    default:
        if (value.canConvert<QString>())
            return plist_new_string(value.toString().toUtf8().constData());
        return nullptr;
    }
}

// A damaged file is read as absent, and replaced whole by the next save; until then every read
// finds it damaged again, so it is told once.
void logDamagedFileOnce(const QString &path)
{
    static QMutex mutex;
    static QSet<QString> logged;
    const QMutexLocker lock(&mutex);
    if (!logged.contains(path)) {
        logged.insert(path);
        KVLogError("%@ damaged property list %@ is read as absent", QStringLiteral("KVPropertyList"), path);
    }
}

KVError readError(const QString &path, const QString &reason)
{
    return KVError(KVCocoaErrorDomain, KVFileReadUnknownError,
                   {{KVLocalizedDescriptionKey, reason}, {KVFilePathErrorKey, path}});
}

} // namespace

namespace KVPropertyList {

KVResult<QVariantMap> dictionaryFromXml(const QByteArray &xml)
{
    // libplist asserts on a NUL inside a key or a string, which well-formed XML cannot hold; and
    // only XML is read, since a binary property list can hold one.
    plist_t node = nullptr;
    if (KVIsWellFormedXml(xml))
        plist_from_xml(xml.constData(), uint32_t(xml.size()), &node);
    const PlistPtr root(node);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT)
        return readError({}, QStringLiteral("The data is not a property list dictionary."));
    return mapFromDictionary(root.get());
}

KVResult<QVariantMap> readDictionary(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return KVError(KVCocoaErrorDomain, file.exists() ? KVFileReadUnknownError : qint64(KVFileNoSuchFileError),
                       {{KVLocalizedDescriptionKey, file.errorString()}, {KVFilePathErrorKey, path}});
    KVResult<QVariantMap> map = dictionaryFromXml(file.readAll());
    if (!map) {
        logDamagedFileOnce(path);
        return readError(path, map.error().localizedDescription());
    }
    return map;
}

QByteArray xmlFromDictionary(const QVariantMap &dictionary)
{
    const PlistPtr root(nodeFromVariant(dictionary));
    char *xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root.get(), &xml, &length);
    QByteArray text(xml, qsizetype(length));
    free(xml);
    return text;
}

KVResult<> writeDictionary(const QString &path, const QVariantMap &dictionary)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(xmlFromDictionary(dictionary));
        if (file.commit())
            return {};
    }
    return KVError(KVCocoaErrorDomain, KVFileWriteUnknownError,
                   {{KVLocalizedDescriptionKey, file.errorString()}, {KVFilePathErrorKey, path}});
}

} // namespace KVPropertyList
