#include "UnixSignalWatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace quirepad {

namespace {
int s_fds[2] = {-1, -1};

void onSignal(int number)
{
    const char byte = char(number);
    [[maybe_unused]] const ssize_t written = ::write(s_fds[0], &byte, 1);
}
} // namespace

UnixSignalWatcher::UnixSignalWatcher(QObject* parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, s_fds) != 0)
        return;
    m_notifier = std::make_unique<QSocketNotifier>(s_fds[1], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &UnixSignalWatcher::readSignal);
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

UnixSignalWatcher::~UnixSignalWatcher()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    m_notifier.reset();
    for (int& fd : s_fds) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
}

void UnixSignalWatcher::readSignal()
{
    char byte = 0;
    if (::read(s_fds[1], &byte, 1) == 1)
        emit terminationRequested(int(byte));
}

} // namespace quirepad
