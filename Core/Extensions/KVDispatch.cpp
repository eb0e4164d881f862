#include "Core/Extensions/KVDispatch.h"

#include <QCoreApplication>
#include <QSemaphore>

KVSerialQueue::KVSerialQueue(const QString &label)
{
    setObjectName(label);
    start();
}

KVSerialQueue::~KVSerialQueue()
{
    {
        QMutexLocker lock(&m_mutex);
        m_stopping = true;
        m_wakeUp.wakeAll();
    }
    wait();
}

void KVSerialQueue::async(std::function<void()> task)
{
    QMutexLocker lock(&m_mutex);
    m_tasks.push_back(std::move(task));
    m_wakeUp.wakeOne();
}

void KVSerialQueue::sync(const std::function<void()> &task)
{
    Q_ASSERT(!isCurrent());
    QSemaphore done;
    async([&] {
        task();
        done.release();
    });
    done.acquire();
}

void KVSerialQueue::run()
{
    for (;;) {
        std::function<void()> task;
        {
            QMutexLocker lock(&m_mutex);
            while (m_tasks.empty() && !m_stopping)
                m_wakeUp.wait(&m_mutex);
            if (m_tasks.empty())
                return;
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        task();
    }
}

namespace KVDispatch {

bool isMainThread()
{
    return QCoreApplication::instance() && QThread::currentThread() == QCoreApplication::instance()->thread();
}

void asyncMain(std::function<void()> function)
{
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(function), Qt::QueuedConnection);
}

void syncMain(const std::function<void()> &function)
{
    if (isMainThread()) {
        function();
        return;
    }
    QMetaObject::invokeMethod(QCoreApplication::instance(), function, Qt::BlockingQueuedConnection);
}

} // namespace KVDispatch
