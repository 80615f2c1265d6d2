#pragma once

#include "cli/console.h"
#include "cli/output.h"

#include <QEventLoop>
#include <QFutureWatcher>
#include <QtConcurrentRun>

#include <memory>

namespace Tavrinox::Cli {

// Runs work on a worker thread, as the window runs its network and drive tasks, and returns its result.
// With an interruptNotice, Ctrl+C meanwhile prints the notice and is otherwise held back until the work
// is done: for work that must never be cut short. Without one, Ctrl+C ends the process as usual.
template<typename Work> auto runInBackground(Work work, const QString &interruptNotice = QString())
{
    using Result = decltype(work());
    std::unique_ptr<InterruptionWatcher> interruptions;
    if (!interruptNotice.isEmpty()) {
        interruptions = std::make_unique<InterruptionWatcher>();
        QObject::connect(interruptions.get(), &InterruptionWatcher::interrupted,
                         [interruptNotice] { printNote(interruptNotice); });
    }
    const QFuture<Result> future = QtConcurrent::run(std::move(work));
    QFutureWatcher<Result> watcher;
    QEventLoop loop;
    QObject::connect(&watcher, &QFutureWatcherBase::finished, &loop, &QEventLoop::quit);
    watcher.setFuture(future);
    if (!future.isFinished())
        loop.exec();
    return future.result();
}

} // namespace Tavrinox::Cli
