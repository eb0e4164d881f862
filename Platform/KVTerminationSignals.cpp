#include "Platform/KVTerminationSignals.h"

#include <QSocketNotifier>

#include <array>
#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
constexpr std::array kHandledSignals{SIGTERM, SIGINT, SIGHUP};
// The handler's end and the main thread's end of a socket pair: all a signal handler may safely
// do is write a byte.
int signalSockets[2] = {-1, -1};

void writeSignal(int signalNumber)
{
    const int savedErrno = errno;
    const char byte = char(signalNumber);
    [[maybe_unused]] const ssize_t written = ::write(signalSockets[0], &byte, 1);
    errno = savedErrno;
}

void setHandler(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : kHandledSignals)
        ::sigaction(signalNumber, &action, nullptr);
}
} // namespace

KVTerminationSignals::KVTerminationSignals(QObject *parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, signalSockets) != 0) {
        qWarning("termination signals keep their default handling: no socket pair");
        return;
    }
    m_notifier = new QSocketNotifier(signalSockets[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &KVTerminationSignals::readSignal);
    setHandler(writeSignal);
}

KVTerminationSignals::~KVTerminationSignals()
{
    if (!m_notifier)
        return;
    setHandler(SIG_DFL);
    delete m_notifier;
    ::close(signalSockets[0]);
    ::close(signalSockets[1]);
    signalSockets[0] = signalSockets[1] = -1;
}

void KVTerminationSignals::readSignal()
{
    char byte = 0;
    while (::read(signalSockets[1], &byte, 1) == 1)
        Q_EMIT received(int(byte));
}
