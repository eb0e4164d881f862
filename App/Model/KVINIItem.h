#pragma once

#include <QString>

// One "key=value" line of a manifest section, kept exactly as written (nothing is trimmed).
class KVINIItem
{
public:
    KVINIItem(QString key, QString value)
        : m_key(std::move(key))
        , m_value(std::move(value))
    {}

    const QString &key() const { return m_key; }
    const QString &value() const { return m_value; }
    QString description() const { return m_key + QLatin1Char('=') + m_value; }

private:
    QString m_key;
    QString m_value;
};
