#include "Core/Extensions/KVCancellation.h"

#include <QMutex>

#include <atomic>
#include <map>

namespace {
std::atomic_bool requested{false};
// Recursive: a stop action may end a wait whose completion registers (and at once stops) the next.
QRecursiveMutex registryMutex;
std::map<int, std::function<void()>> stopActions;
int nextId = 0;
} // namespace

namespace KVCancellation {

bool isRequested()
{
    return requested.load();
}

void request()
{
    QMutexLocker lock(&registryMutex);
    requested = true;
    // By id, not by iterator: an action may unregister its own wait or others.
    const int lastId = nextId;
    for (int id = 0; id < lastId; ++id) {
        const auto action = stopActions.find(id);
        if (action == stopActions.end())
            continue;
        const std::function<void()> stop = std::move(action->second);
        stopActions.erase(action);
        stop();
    }
}

Registration::Registration(std::function<void()> stopAction)
{
    QMutexLocker lock(&registryMutex);
    m_id = nextId++;
    if (requested)
        stopAction();
    else
        stopActions.emplace(m_id, std::move(stopAction));
}

Registration::~Registration()
{
    // Waits for a stop action that is running right now, so it never outlives its wait.
    QMutexLocker lock(&registryMutex);
    stopActions.erase(m_id);
}

} // namespace KVCancellation
