#include "cli/console.h"

#include <QMetaObject>

#include <atomic>
#include <cstdio>

#include <io.h>
#include <windows.h>

namespace Tavrinox::Cli {

namespace {

std::atomic<bool> s_requested{false};
std::atomic<InterruptionWatcher *> s_watcher{nullptr};

// Windows calls this on a thread of its own, so it may post to the watcher's thread directly.
BOOL WINAPI onConsoleControl(DWORD type)
{
    if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT)
        return FALSE;
    s_requested.store(true);
    if (InterruptionWatcher *watcher = s_watcher.load()) {
        QMetaObject::invokeMethod(
            watcher, [watcher] { emit watcher->interrupted(); }, Qt::QueuedConnection);
    }
    return TRUE;
}

} // namespace

void setUpConsole()
{
    SetConsoleOutputCP(CP_UTF8);
    SetConsoleCP(CP_UTF8);
}

bool standardErrorIsTerminal()
{
    return _isatty(_fileno(stderr)) != 0;
}

InterruptionWatcher::InterruptionWatcher(QObject *parent)
    : QObject(parent)
{
    s_watcher.store(this);
    SetConsoleCtrlHandler(onConsoleControl, TRUE);
}

InterruptionWatcher::~InterruptionWatcher()
{
    SetConsoleCtrlHandler(onConsoleControl, FALSE);
    s_watcher.store(nullptr);
}

bool InterruptionWatcher::requested()
{
    return s_requested.load();
}

} // namespace Tavrinox::Cli
