#pragma once

#include <QLocalServer>
#include <QObject>

#include <chrono>

// Keeps one running installer per user: the first process listens on a local socket named after
// its bundle identifier; a later one connects, asks the first to come to the front and leaves.
// A socket file left behind by a crashed instance does not count as a running one.
class KVSingleInstance : public QObject
{
    Q_OBJECT
public:
    explicit KVSingleInstance(const QString &bundleIdentifier, QObject *parent = nullptr);

    // True when no other instance answered: this process now listens and stays. False when
    // another one runs; it has been asked to activate itself and this process should exit.
    // With a wait, an instance still answering is given that long to end first: an installer
    // relaunched by its own update starts while the previous copy is still on its way out.
    [[nodiscard]] bool becomePrimaryOrActivateOther(std::chrono::milliseconds waitForOtherToEnd = {});

    QString serverName() const { return m_serverName; }

Q_SIGNALS:
    // Thread: main. A second start asked this instance to come to the front.
    void activationRequested();

private:
    QString m_serverName;
    QLocalServer m_server;
};
