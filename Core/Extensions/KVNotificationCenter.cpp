#include "Core/Extensions/KVNotificationCenter.h"

#include <algorithm>

KVNotificationCenter &KVNotificationCenter::defaultCenter()
{
    static KVNotificationCenter center;
    return center;
}

void KVNotificationCenter::addObserver(QObject *owner, const QString &name, Handler handler)
{
    QMutexLocker lock(&m_mutex);
    const quint64 id = m_nextId++;
    m_observers.push_back({id, owner, name, std::make_shared<Handler>(std::move(handler))});
    // Only the first observation of an owner needs the destruction hook; it drops all of them.
    const auto sameOwner = [owner, id](const Observer &o) { return o.owner == owner && o.id != id; };
    if (owner && std::none_of(m_observers.cbegin(), m_observers.cend(), sameOwner))
        QObject::connect(
            owner, &QObject::destroyed, owner, [this, owner] { removeObserver(owner); }, Qt::DirectConnection);
}

void KVNotificationCenter::removeObserver(QObject *owner, const QString &name)
{
    QMutexLocker lock(&m_mutex);
    std::erase_if(m_observers,
                  [&](const Observer &o) { return o.owner == owner && (name.isEmpty() || o.name == name); });
}

void KVNotificationCenter::post(const QString &name, const QVariantMap &userInfo)
{
    std::vector<std::shared_ptr<Handler>> handlers;
    {
        QMutexLocker lock(&m_mutex);
        for (const Observer &observer : m_observers)
            if (observer.name == name)
                handlers.push_back(observer.handler);
    }
    const KVNotification notification{name, userInfo};
    for (const auto &handler : handlers)
        (*handler)(notification);
}
