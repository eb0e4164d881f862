#include "Platform/KVPropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QSaveFile>

#include <plist/plist++.h>

#include <memory>

namespace {

// libplist counts dates from the platform's reference date, 2001-01-01 00:00:00 UTC.
constexpr qint64 kReferenceDateOffset = 978307200;

QVariant variantFromNode(const PList::Node *node);

QVariantMap mapFromDictionary(const PList::Dictionary &dictionary)
{
    QVariantMap map;
    for (auto it = dictionary.Begin(); it != dictionary.End(); ++it)
        map.insert(QString::fromStdString(it->first), variantFromNode(it->second));
    return map;
}

QVariant variantFromNode(const PList::Node *node)
{
    switch (node->GetType()) {
    case PLIST_STRING:
        return QString::fromStdString(static_cast<const PList::String *>(node)->GetValue());
    case PLIST_UINT:
        return qint64(static_cast<const PList::Integer *>(node)->GetValue());
    case PLIST_REAL:
        return static_cast<const PList::Real *>(node)->GetValue();
    case PLIST_BOOLEAN:
        return static_cast<const PList::Boolean *>(node)->GetValue();
    case PLIST_DATE: {
        const timeval t = static_cast<const PList::Date *>(node)->GetValue();
        return QDateTime::fromMSecsSinceEpoch((qint64(t.tv_sec) + kReferenceDateOffset) * 1000 + t.tv_usec / 1000, Qt::UTC);
    }
    case PLIST_DATA: {
        const std::vector<char> bytes = static_cast<const PList::Data *>(node)->GetValue();
        return QByteArray(bytes.data(), qsizetype(bytes.size()));
    }
    case PLIST_ARRAY: {
        // libplist has no const element access.
        auto *array = const_cast<PList::Array *>(static_cast<const PList::Array *>(node));
        QVariantList list;
        for (unsigned i = 0; i < array->GetSize(); ++i)
            list << variantFromNode((*array)[i]);
        return list;
    }
    case PLIST_DICT:
        return mapFromDictionary(*static_cast<const PList::Dictionary *>(node));
    default:
        return {};
    }
}

std::unique_ptr<PList::Node> nodeFromVariant(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::Bool:
        return std::make_unique<PList::Boolean>(value.toBool());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Long:
        return std::make_unique<PList::Integer>(uint64_t(value.toLongLong()));
    case QMetaType::Double:
    case QMetaType::Float:
        return std::make_unique<PList::Real>(value.toDouble());
    case QMetaType::QDateTime: {
        const qint64 msecs = value.toDateTime().toMSecsSinceEpoch() - kReferenceDateOffset * 1000;
        timeval t{};
        t.tv_sec = msecs / 1000;
        t.tv_usec = (msecs % 1000) * 1000;
        return std::make_unique<PList::Date>(t);
    }
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return std::make_unique<PList::Data>(std::vector<char>(bytes.cbegin(), bytes.cend()));
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        auto array = std::make_unique<PList::Array>();
        for (const QVariant &item : value.toList())
            if (auto node = nodeFromVariant(item))
                array->Append(node.release());
        return array;
    }
    case QMetaType::QVariantMap: {
        auto dictionary = std::make_unique<PList::Dictionary>();
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            if (auto node = nodeFromVariant(it.value()))
                dictionary->Set(it.key().toStdString(), node.get());
        return dictionary;
    }
    default:
        if (value.canConvert<QString>())
            return std::make_unique<PList::String>(value.toString().toStdString());
        return nullptr;
    }
}

KVError readError(const QString &path, const QString &reason)
{
    return KVError(KVCocoaErrorDomain, KVFileReadUnknownError,
                   {{KVLocalizedDescriptionKey, reason}, {KVFilePathErrorKey, path}});
}

} // namespace

namespace KVPropertyList {

QVariantMap dictionaryFromXml(const QByteArray &xml, KVError *error)
{
    std::unique_ptr<PList::Structure> root;
    if (xml.startsWith("bplist00")) {
        std::vector<char> bytes(xml.cbegin(), xml.cend());
        root.reset(PList::Structure::FromBin(bytes));
    } else {
        root.reset(PList::Structure::FromXml(xml.toStdString()));
    }
    if (!root || root->GetType() != PLIST_DICT) {
        if (error)
            *error = readError({}, QStringLiteral("The data is not a property list dictionary."));
        return {};
    }
    return mapFromDictionary(*static_cast<PList::Dictionary *>(root.get()));
}

QVariantMap readDictionary(const QString &path, KVError *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = KVError(KVCocoaErrorDomain, file.exists() ? KVFileReadUnknownError : qint64(KVFileNoSuchFileError),
                             {{KVLocalizedDescriptionKey, file.errorString()}, {KVFilePathErrorKey, path}});
        return {};
    }
    KVError parseError;
    QVariantMap map = dictionaryFromXml(file.readAll(), &parseError);
    if (parseError && error)
        *error = readError(path, parseError.localizedDescription());
    return map;
}

QByteArray xmlFromDictionary(const QVariantMap &dictionary)
{
    const auto root = nodeFromVariant(dictionary);
    return QByteArray::fromStdString(static_cast<PList::Structure *>(root.get())->ToXml());
}

bool writeDictionary(const QString &path, const QVariantMap &dictionary, KVError *error)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(xmlFromDictionary(dictionary));
        if (file.commit())
            return true;
    }
    if (error)
        *error = KVError(KVCocoaErrorDomain, KVFileWriteUnknownError,
                         {{KVLocalizedDescriptionKey, file.errorString()}, {KVFilePathErrorKey, path}});
    return false;
}

} // namespace KVPropertyList
