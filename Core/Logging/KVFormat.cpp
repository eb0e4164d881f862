#include "Core/Logging/KVFormat.h"

#include <QDateTime>

namespace KVFormatDetail {

// Items are quoted the way the platform quotes them in a list description: when they hold
// anything but letters, digits and underscores.
static QString quotedListItem(const QString &item)
{
    if (item.isEmpty())
        return QStringLiteral("\"\"");
    for (const QChar c : item) {
        if (!(c.isLetterOrNumber() || c == QLatin1Char('_')))
            return QLatin1Char('"') + QString(item).replace(QLatin1Char('"'), QStringLiteral("\\\"")) +
                   QLatin1Char('"');
    }
    return item;
}

QString describeList(const QStringList &items)
{
    if (items.isEmpty())
        return QStringLiteral("(\n)");
    QStringList lines;
    for (const QString &item : items)
        lines << QStringLiteral("    ") + quotedListItem(item);
    return QStringLiteral("(\n") + lines.join(QStringLiteral(",\n")) + QStringLiteral("\n)");
}

QString describeVariant(const QVariant &value)
{
    if (!value.isValid() || value.isNull())
        return QStringLiteral("(null)");
    if (value.metaType() == QMetaType::fromType<KVError>())
        return value.value<KVError>().description();
    if (value.metaType() == QMetaType::fromType<QStringList>())
        return describeList(value.toStringList());
    if (value.metaType() == QMetaType::fromType<QVariantList>()) {
        QStringList items;
        for (const QVariant &item : value.toList())
            items << describeVariant(item);
        return describeList(items);
    }
    if (value.metaType() == QMetaType::fromType<QVariantMap>()) {
        const QVariantMap map = value.toMap();
        QStringList lines;
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            lines << QStringLiteral("    ") + quotedListItem(it.key()) + QStringLiteral(" = ") +
                         describeVariant(it.value()) + QLatin1Char(';');
        return QStringLiteral("{\n") + lines.join(QLatin1Char('\n')) + QStringLiteral("\n}");
    }
    if (value.metaType() == QMetaType::fromType<QDateTime>())
        return value.toDateTime().toUTC().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss +0000"));
    return value.toString();
}

} // namespace KVFormatDetail

QString kvFormatWithArguments(const QString &format, const QList<KVFormatArgument> &arguments)
{
    QString out;
    out.reserve(format.size() + 32 * arguments.size());
    qsizetype next = 0;
    const auto takeArgument = [&]() -> const KVFormatArgument * {
        return next < arguments.size() ? &arguments[next++] : nullptr;
    };

    for (qsizetype i = 0; i < format.size(); ++i) {
        const QChar c = format[i];
        if (c != QLatin1Char('%') || i + 1 >= format.size()) {
            out += c;
            continue;
        }
        qsizetype j = i + 1;
        if (format[j] == QLatin1Char('%')) {
            out += QLatin1Char('%');
            i = j;
            continue;
        }
        int precision = 6;
        if (format[j] == QLatin1Char('.')) {
            qsizetype digitsEnd = j + 1;
            while (digitsEnd < format.size() && format[digitsEnd].isDigit())
                ++digitsEnd;
            precision = format.mid(j + 1, digitsEnd - j - 1).toInt();
            j = digitsEnd;
        }
        while (j < format.size() && (format[j] == QLatin1Char('l') || format[j] == QLatin1Char('q')))
            ++j;
        if (j >= format.size()) {
            out += format.mid(i);
            break;
        }
        const QChar conversion = format[j];
        const KVFormatArgument *argument = takeArgument();
        if (conversion == QLatin1Char('f')) {
            const double number = argument && argument->number ? *argument->number : 0.0;
            out += QString::number(number, 'f', precision);
        } else if (QStringLiteral("@sdiu").contains(conversion)) {
            out += argument ? argument->text : QStringLiteral("(null)");
        } else {
            out += format.mid(i, j - i + 1); // unknown conversion: keep it visible
        }
        i = j;
    }
    return out;
}
