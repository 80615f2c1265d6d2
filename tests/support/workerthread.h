#pragma once

#include <QCoreApplication>
#include <QThread>
#include <QtConcurrent>
#include <QtTest>

// Runs function on the global thread pool, as the program runs its network and drive work, and returns
// its result. The calling thread keeps processing events while it waits; QFuture::result() alone could
// run a task that has not started yet on the calling thread itself.
template<typename Function> auto runOnWorkerThread(Function function)
{
    bool onWorker = false;
    QFuture future = QtConcurrent::run([&] {
        onWorker = QThread::currentThread() != QCoreApplication::instance()->thread();
        return function();
    });
    if (!QTest::qWaitFor([&] { return future.isFinished(); }, 10 * 60 * 1000))
        qFatal("a task on the worker thread did not finish within ten minutes");
    if (!onWorker)
        qFatal("the task ran on the main thread");
    return future.result();
}
