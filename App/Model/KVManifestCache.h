#pragma once

#include "App/Model/KVHTTPSession.h"

#include <QUrl>

#include <optional>

// The last manifest this installer accepted, kept with its signature and the server's validators
// in $XDG_CACHE_HOME/Nestora/Manifest.json, so that the next check asks the server whether it
// changed (If-None-Match, If-Modified-Since) and, when it has not (304), uses the kept copy
// instead of fetching it again. The copy is only ever a cache: it passes the same trust checks as
// a fresh manifest, and one that cannot be read counts as none.
class KVManifestCache
{
public:
    struct Copy
    {
        QByteArray manifest;
        QByteArray signature; // empty where signatures are not in use
        KVHTTPValidators validators;
    };

    // The copy kept for this address, if any.
    [[nodiscard]] static std::optional<Copy> load(const QUrl &url);
    // Keeps the copy for this address in place of any earlier one; one without validators, or
    // one that cannot be written, leaves nothing kept.
    static void store(const QUrl &url, const Copy &copy);
};
