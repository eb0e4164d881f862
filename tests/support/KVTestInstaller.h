#pragma once

#include "KVTestProcess.h"

#include <QString>
#include <QStringList>

// A copy of the built installer bundle in the sandbox, run in its headless mode the way an
// administrator runs it. Working on a copy lets a self-update replace it without touching the
// build output. Thread: the test's main thread.
class KVTestInstaller
{
public:
    using Outcome = KVTestProcess::Outcome;

    static QString builtBundlePath();
    static inline const QStringList headlessArguments{QStringLiteral("--headless"), QStringLiteral("--accept-license")};

    // The copy lives at <sandbox>/Installer/NestoraInstaller.app.
    KVTestInstaller();

    // Copies the built bundle, with that CFBundleVersion unless empty.
    [[nodiscard]] bool install(const QString &version = {}) const;
    QString bundlePath() const { return m_bundlePath; }
    QString executablePath() const;
    // CFBundleVersion of the copy as it is on disk now.
    QString version() const;

    // Everything the installers of the sandbox logged, in every log file.
    static QString log();

    // Runs the copy headless and waits for it, turning the test's event loop meanwhile, so that
    // servers of the test keep answering. The arguments come after the headless ones.
    Outcome run(const QStringList &arguments = {}) const;

private:
    QString m_bundlePath;
};
