#pragma once

#include "App/Model/KVINISection.h"

// The parsed update manifest: sections in the order of their headers.
//
// The syntax is deliberately minimal: "[name]" headers, "key=value" items split at the first
// "=", nothing trimmed around the sign, no comments, no quoting, no merging of repeated sections
// or keys. Lines that fit none of this are logged and skipped; parsing never fails as a whole.
class KVINI
{
public:
    KVINI() = default;
    // A null string gives a document with no sections.
    explicit KVINI(const QString &text);

    // Always empty: it reads the document's own path(), which nothing sets. Nothing calls it; it
    // stays for callers of the manifest API that expect it.
    static KVINI initWithContentOfFile(const QString &ignoredPath);

    const QList<KVINISectionPtr> &sections() const { return m_sections; }
    const QString &path() const { return m_path; }

    // The first section with exactly this name (case-sensitive), or null.
    KVINISectionPtr sectionWithName(const QString &name) const;

private:
    QList<KVINISectionPtr> m_sections;
    QString m_path;
};
