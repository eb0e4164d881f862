#include "KVTestInstaller.h"

#include "KVTestFiles.h"
#include "KVTestSandbox.h"
#include "KVTestUpdateServer.h"
#include "Platform/KVBundle.h"

#include <QDirIterator>

QString KVTestInstaller::builtBundlePath()
{
    return QStringLiteral(NESTORA_BUILD_DIR "/NestoraInstaller.app");
}

QString KVTestInstaller::log()
{
    QString log;
    QDirIterator files(KVTestSandbox::current().dataHome() + QStringLiteral("/Nestora/InstallerLog"), QDir::Files);
    while (files.hasNext())
        log += QString::fromUtf8(KVTestFiles::readFile(files.next()));
    return log;
}

KVTestInstaller::KVTestInstaller()
    : m_bundlePath(KVTestSandbox::current().root() + QStringLiteral("/Installer/NestoraInstaller.app"))
{}

bool KVTestInstaller::install(const QString &version) const
{
    const std::optional<KVBundle> built = KVBundle::bundleWithPath(builtBundlePath());
    if (!built)
        return false;
    return KVTestUpdateServer::copyBundle(builtBundlePath(), m_bundlePath,
                                          version.isEmpty() ? built->bundleVersion() : version);
}

QString KVTestInstaller::executablePath() const
{
    const std::optional<KVBundle> bundle = KVBundle::bundleWithPath(m_bundlePath);
    return bundle ? bundle->executablePath() : QString();
}

QString KVTestInstaller::version() const
{
    const std::optional<KVBundle> bundle = KVBundle::bundleWithPath(m_bundlePath);
    return bundle ? bundle->bundleVersion() : QString();
}

KVTestInstaller::Outcome KVTestInstaller::run(const QStringList &arguments) const
{
    return KVTestProcess::run(QStringList{executablePath()} + headlessArguments + arguments);
}
