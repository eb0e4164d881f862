#pragma once

#include <QUrl>

// Tells whether the system runs a bundle from a translocated (randomised, read-only) copy and, if
// so, where the bundle really lies. Only macOS translocates; this build answers "not translocated",
// and a macOS build supplies its own KVTranslocation.cpp asking the Security framework.
namespace KVTranslocation {

// True when the file URL is translocated; then *originalURL, when given, receives the original
// location (or an empty URL when the system cannot name it). Thread: any.
bool isTranslocatedURL(const QUrl &url, QUrl *originalURL = nullptr);

} // namespace KVTranslocation
