#pragma once

#include <QMutex>
#include <QThread>
#include <QWaitCondition>

#include <deque>
#include <functional>

// A serial work queue: one worker thread running submitted tasks one after another, in order.
// Tasks may block (semaphores, nested event loops for network replies) without letting the next
// task start, which is why the queue is not a QObject event loop.
class KVSerialQueue : public QThread
{
public:
    explicit KVSerialQueue(const QString &label);
    // Runs the tasks already submitted, then stops the worker.
    ~KVSerialQueue() override;

    // Thread: any. The task runs later on the worker.
    void async(std::function<void()> task);
    // Thread: any but the worker. Returns when the task has run.
    void sync(const std::function<void()> &task);

    bool isCurrent() const { return QThread::currentThread() == this; }

protected:
    void run() override;

private:
    QMutex m_mutex;
    QWaitCondition m_wakeUp;
    std::deque<std::function<void()>> m_tasks;
    bool m_stopping = false;
};

// Hops to the application's main thread.
namespace KVDispatch {
// Queues the function on the main thread and returns at once.
void asyncMain(std::function<void()> function);
// Runs the function on the main thread and returns when it has; runs it in place when already there.
void syncMain(const std::function<void()> &function);
bool isMainThread();
} // namespace KVDispatch
