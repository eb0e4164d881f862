#pragma once

#include <QString>

// The installer's string table: the text for a key in the user's language where the table has
// one, else in English. A key that no table knows gives the empty string, never the key itself.
// Thread: any.
QString KVLocalizedString(const QString &key);

// Chooses the language explicitly (tests, the gallery); by default the system's UI languages decide.
void KVSetLocalizationLanguage(const QString &language);
