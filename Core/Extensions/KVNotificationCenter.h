#pragma once

#include <QMutex>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <vector>

struct KVNotification
{
    QString name;
    QVariantMap userInfo;
};

// The process-wide broadcaster of named notifications. Observers are keyed by an owner object;
// posting runs every matching observer synchronously on the posting thread, in the order they
// were added. An observer added twice runs twice.
class KVNotificationCenter
{
public:
    using Handler = std::function<void(const KVNotification &)>;

    static KVNotificationCenter &defaultCenter();

    // Thread: any. The observation ends when removed or when the owner is destroyed.
    void addObserver(QObject *owner, const QString &name, Handler handler);
    // Removes the owner's observers of that name, or all of them when the name is empty.
    void removeObserver(QObject *owner, const QString &name = {});

    // Thread: any; observers run on this thread before post() returns.
    void post(const QString &name, const QVariantMap &userInfo = {});

private:
    struct Observer
    {
        quint64 id;
        QObject *owner;
        QString name;
        std::shared_ptr<Handler> handler;
    };

    QMutex m_mutex;
    std::vector<Observer> m_observers;
    quint64 m_nextId = 1;
};
