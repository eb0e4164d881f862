#include "Platform/KVDetachedProcess.h"

#include <QFile>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

extern char **environ;

namespace {
// posix_spawn's attributes and file actions, released however start() returns.
struct SpawnSettings
{
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t fileActions;

    SpawnSettings()
    {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&fileActions);
    }
    ~SpawnSettings()
    {
        posix_spawn_file_actions_destroy(&fileActions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings &) = delete;
    SpawnSettings &operator=(const SpawnSettings &) = delete;

    // The first failing call's error number, or 0.
    int configureDetached()
    {
        sigset_t noSignals;
        sigset_t allSignals;
        sigemptyset(&noSignals);
        sigfillset(&allSignals);
        const short flags = POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        for (const int result :
             {posix_spawnattr_setflags(&attributes, flags), posix_spawnattr_setsigmask(&attributes, &noSignals),
              posix_spawnattr_setsigdefault(&attributes, &allSignals),
              posix_spawn_file_actions_addopen(&fileActions, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
              posix_spawn_file_actions_addopen(&fileActions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0),
              posix_spawn_file_actions_adddup2(&fileActions, STDOUT_FILENO, STDERR_FILENO),
              posix_spawn_file_actions_addclosefrom_np(&fileActions, STDERR_FILENO + 1),
              posix_spawn_file_actions_addchdir_np(&fileActions, "/")}) {
            if (result != 0)
                return result;
        }
        return 0;
    }
};
} // namespace

namespace KVDetachedProcess {

KVResult<qint64> start(const QString &program, const QStringList &arguments)
{
    const QByteArray programPath = QFile::encodeName(program);
    QList<QByteArray> argumentBytes{programPath};
    for (const QString &argument : arguments)
        argumentBytes << argument.toLocal8Bit();
    std::vector<char *> argv;
    for (QByteArray &bytes : argumentBytes)
        argv.push_back(bytes.data());
    argv.push_back(nullptr);

    SpawnSettings settings;
    pid_t processIdentifier = 0;
    int result = settings.configureDetached();
    if (result == 0)
        result = posix_spawn(&processIdentifier, programPath.constData(), &settings.fileActions, &settings.attributes,
                             argv.data(), environ);
    if (result != 0)
        return KVError::fromErrno(result, program);
    // The child's session makes it independent of this process; what is left is to collect its
    // exit status whenever it comes, without holding anyone up.
    std::thread([processIdentifier] {
        while (::waitpid(processIdentifier, nullptr, 0) < 0 && errno == EINTR) {
        }
    }).detach();
    return qint64(processIdentifier);
}

} // namespace KVDetachedProcess
