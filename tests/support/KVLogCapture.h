#pragma once

#include <QStringList>

#include <memory>

class KVCapturingSink;

// Collects the text of every log line written while it exists, for tests that check what the
// program logged.
class KVLogCapture
{
public:
    KVLogCapture();
    ~KVLogCapture();

    // Waits for lines still queued for the background writer, then returns all, oldest first.
    QStringList messages() const;
    bool contains(const QString &message) const { return messages().contains(message); }

private:
    std::shared_ptr<KVCapturingSink> m_sink;
};
