#pragma once

#include "Core/Extensions/KVError.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QVariant>

#include <concepts>
#include <memory>
#include <optional>

// Renders printf-style formats with Objective-C's object placeholder, so that log formats can be
// written exactly as they read: "%@ failed to update %@ with error %@". A null object renders as
// "(null)", lists render in the platform's parenthesised multi-line form.
//
// Supported conversions: %@ (object), %s (C string or text), %d %i %ld %lld %u %lu (integers),
// %f and %.Nf (floating point, 6 decimals by default), %% (a percent sign).
struct KVFormatArgument
{
    QString text;                 // what %@, %s and the integer conversions print
    std::optional<double> number; // what %f prints, when the argument is numeric
};

namespace KVFormatDetail {
QString describeList(const QStringList &items);
QString describeVariant(const QVariant &value);
} // namespace KVFormatDetail

inline KVFormatArgument kvFormatArgument(const QString &value)
{
    return {value.isNull() ? QStringLiteral("(null)") : value, std::nullopt};
}
inline KVFormatArgument kvFormatArgument(const char *value)
{
    return {value ? QString::fromUtf8(value) : QStringLiteral("(null)"), std::nullopt};
}
// How a URL is shown in logs and messages: never with its user name and password.
inline QString KVPrintableURL(const QUrl &url)
{
    return url.toString(QUrl::RemoveUserInfo);
}
inline KVFormatArgument kvFormatArgument(const QUrl &value)
{
    return {value.isEmpty() ? QStringLiteral("(null)") : KVPrintableURL(value), std::nullopt};
}
inline KVFormatArgument kvFormatArgument(const KVError &value)
{
    return {value.description(), std::nullopt};
}
inline KVFormatArgument kvFormatArgument(const QStringList &value)
{
    return {KVFormatDetail::describeList(value), std::nullopt};
}
inline KVFormatArgument kvFormatArgument(const QVariant &value)
{
    return {KVFormatDetail::describeVariant(value), std::nullopt};
}
inline KVFormatArgument kvFormatArgument(bool value)
{
    return {value ? QStringLiteral("1") : QStringLiteral("0"), double(value)};
}
template <std::integral T> KVFormatArgument kvFormatArgument(T value)
{
    return {QString::number(value), double(value)};
}
template <std::floating_point T> KVFormatArgument kvFormatArgument(T value)
{
    return {QString::number(double(value), 'g', 17), double(value)};
}
// Anything with a description(), and pointers to it (nullptr renders as "(null)").
template <typename T>
requires requires(const T &t)
{
    {
        t.description()
        } -> std::convertible_to<QString>;
}
KVFormatArgument kvFormatArgument(const T &value)
{
    return {value.description(), std::nullopt};
}
template <typename T>
requires requires(const T &t)
{
    {
        t.description()
        } -> std::convertible_to<QString>;
}
KVFormatArgument kvFormatArgument(const T *value)
{
    return value ? kvFormatArgument(*value) : KVFormatArgument{QStringLiteral("(null)"), std::nullopt};
}
template <typename T> KVFormatArgument kvFormatArgument(const std::shared_ptr<T> &value)
{
    return kvFormatArgument(static_cast<const T *>(value.get()));
}
template <typename T> KVFormatArgument kvFormatArgument(const QList<std::shared_ptr<T>> &values)
{
    QStringList items;
    for (const auto &value : values)
        items << kvFormatArgument(value).text;
    return {KVFormatDetail::describeList(items), std::nullopt};
}

QString kvFormatWithArguments(const QString &format, const QList<KVFormatArgument> &arguments);

template <typename... Args> QString KVFormat(const QString &format, const Args &...args)
{
    return kvFormatWithArguments(format, QList<KVFormatArgument>{kvFormatArgument(args)...});
}
template <typename... Args> QString KVFormat(const char *format, const Args &...args)
{
    return KVFormat(QString::fromUtf8(format), args...);
}
