#include "cli/console.h"

#include <QSocketNotifier>

#include <atomic>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace Tavrinox::Cli {

namespace {

std::atomic<bool> s_requested{false};
// The signal handler may do almost nothing: it sets the flag, which workers read directly, and writes
// one byte into this pipe, which wakes the event loop of the watcher's thread.
int s_pipe[2] = {-1, -1};

extern "C" void onInterrupt(int)
{
    s_requested.store(true);
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(s_pipe[1], &byte, 1);
}

bool openPipe()
{
    if (s_pipe[0] >= 0)
        return true;
    if (::pipe(s_pipe) != 0)
        return false;
    for (const int end : s_pipe) {
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
        ::fcntl(end, F_SETFL, ::fcntl(end, F_GETFL) | O_NONBLOCK);
    }
    return true;
}

void setInterruptAction(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
}

} // namespace

void setUpConsole() {}

bool standardErrorIsTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

InterruptionWatcher::InterruptionWatcher(QObject *parent)
    : QObject(parent)
{
    // Without the pipe Ctrl+C keeps its default action: better than a request nobody would hear.
    if (!openPipe())
        return;
    auto *notifier = new QSocketNotifier(s_pipe[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this] {
        char bytes[16];
        while (::read(s_pipe[0], bytes, sizeof bytes) > 0) {
        }
        emit interrupted();
    });
    setInterruptAction(onInterrupt);
}

InterruptionWatcher::~InterruptionWatcher()
{
    setInterruptAction(SIG_DFL);
}

bool InterruptionWatcher::requested()
{
    return s_requested.load();
}

} // namespace Tavrinox::Cli
