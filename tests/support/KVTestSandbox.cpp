#include "KVTestSandbox.h"

#include <QDir>

namespace {
KVTestSandbox *currentSandbox = nullptr;
}

KVTestSandbox::KVTestSandbox()
    : m_root(QDir::tempPath() + QStringLiteral("/nestora-test-XXXXXX"))
{
    Q_ASSERT(m_root.isValid());
    currentSandbox = this;
    qputenv("HOME", home().toUtf8());
    qputenv("XDG_DATA_HOME", dataHome().toUtf8());
    qputenv("XDG_CONFIG_HOME", configHome().toUtf8());
    qputenv("XDG_CACHE_HOME", (root() + QStringLiteral("/cache")).toUtf8());
    qputenv("TMPDIR", temporaryDirectory().toUtf8());
    qputenv("XDG_RUNTIME_DIR", runtimeDirectory().toUtf8());
    qputenv("NESTORA_APPLICATIONS_DIR", applicationsDirectory().toUtf8());
    qputenv("NESTORA_DISABLE_SYSLOG", "1");
    qputenv("NESTORA_RETRY_TIME_SCALE", "0.01"); // a failed transfer is tried again at once
    qputenv("NESTORA_POLICY_FILE", policyFile().toUtf8());
    // The machine's proxy must not stand between the tests and their servers.
    for (const char *name : {"http_proxy", "https_proxy", "all_proxy", "no_proxy"}) {
        qunsetenv(name);
        qunsetenv(QByteArray(name).toUpper().constData());
    }
    reset();
}

KVTestSandbox::~KVTestSandbox()
{
    currentSandbox = nullptr;
}

KVTestSandbox &KVTestSandbox::current()
{
    Q_ASSERT(currentSandbox);
    return *currentSandbox;
}

QString KVTestSandbox::home() const
{
    return root() + QStringLiteral("/home");
}
QString KVTestSandbox::dataHome() const
{
    return home() + QStringLiteral("/.local/share");
}
QString KVTestSandbox::configHome() const
{
    return home() + QStringLiteral("/.config");
}
QString KVTestSandbox::temporaryDirectory() const
{
    return root() + QStringLiteral("/tmp");
}
QString KVTestSandbox::runtimeDirectory() const
{
    return root() + QStringLiteral("/run");
}
QString KVTestSandbox::applicationsDirectory() const
{
    return root() + QStringLiteral("/Applications");
}
QString KVTestSandbox::policyFile() const
{
    return root() + QStringLiteral("/policy.ini");
}

void KVTestSandbox::reset()
{
    for (const QString &folder : {home(), temporaryDirectory(), runtimeDirectory(), applicationsDirectory()}) {
        QDir(folder).removeRecursively();
        QDir().mkpath(folder);
    }
    // Private, as Qt requires of a runtime folder (it would otherwise make one in TMPDIR).
    QFile::setPermissions(runtimeDirectory(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    QDir().mkpath(dataHome());
    QDir().mkpath(configHome());
    QDir().mkpath(home() + QStringLiteral("/Downloads"));
    QFile::remove(policyFile());
}
