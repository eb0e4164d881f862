#pragma once

#include <QLocalServer>
#include <QObject>

#include <chrono>

// Keeps one running installer per user. The guard is a lock file in the user's runtime folder held
// with flock for the life of the process: taking it is atomic however many installers start at
// once, and the kernel lets go of it when its holder dies, however it dies. The holder also
// listens on a local socket beside it, only so that a later start can bring its window forward.
class KVSingleInstance : public QObject
{
    Q_OBJECT
public:
    explicit KVSingleInstance(const QString &bundleIdentifier, QObject *parent = nullptr);
    ~KVSingleInstance() override;

    // True when this process took the guard and stays. False when another installer holds it;
    // that one has been asked to come to the front and this process should exit. With a wait,
    // an installer holding the guard is given that long to end first: an installer relaunched by
    // its own update starts while the previous copy is still on its way out.
    [[nodiscard]] bool becomePrimaryOrActivateOther(std::chrono::milliseconds waitForOtherToEnd = {});

    QString socketPath() const { return m_socketPath; }

Q_SIGNALS:
    // Thread: main. A second start asked this instance to come to the front.
    void activationRequested();

private:
    [[nodiscard]] bool tryLock();
    void listenForActivation();
    void activateOther() const;

    QString m_lockPath;
    QString m_socketPath;
    int m_lockDescriptor = -1;
    QLocalServer m_server;
};
