#pragma once

#include "App/Model/KVINI.h"

#include <QStringList>

// The administrator's policy for every installer on the computer: an INI file at
// /etc/nestora/policy.ini (NESTORA_POLICY_FILE names another, for tests), in the manifest's
// syntax with two allowances for people who edit it by hand: blanks around keys and values are
// ignored, and lines beginning with "#" or ";" are comments. Each part of the installer reads
// the section it owns ("[Trust]", ...).
//
// A file that others than its owner may change, or whose owner is not root (or, for a file
// named by NESTORA_POLICY_FILE, neither root nor the user running the installer), is ignored as
// a whole, with one warning in the log: a policy anyone could write would be no policy.
// Thread: any.
class KVPolicy
{
public:
    // The policy as the file says now; an empty policy when there is none or it is ignored.
    static KVPolicy load();
    // The policy of this text, unchecked; for load() and for tests.
    explicit KVPolicy(const QString &text = {});

    // The value of the key in the section, trimmed; a null string when either is missing.
    QString value(const QString &section, const QString &key) const;
    // The value split at commas, each entry trimmed, empty entries dropped.
    QStringList listValue(const QString &section, const QString &key) const;
    // True only for "true", "yes" or "1" (in any case).
    bool boolValue(const QString &section, const QString &key) const;

private:
    KVINI m_document;
};
