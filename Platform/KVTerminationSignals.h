#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGTERM, SIGINT and SIGHUP into a Qt signal on the main thread, so that a terminated
// installer quits the way Quit does (its main loop ends and the engine's work is stopped) instead
// of dying in the middle of a step. One instance per process; the default handling comes back
// when it is destroyed.
class KVTerminationSignals : public QObject
{
    Q_OBJECT
public:
    // Thread: main, once a QCoreApplication exists.
    explicit KVTerminationSignals(QObject *parent = nullptr);
    ~KVTerminationSignals() override;

Q_SIGNALS:
    // Thread: main.
    void received(int signalNumber);

private:
    void readSignal();

    QSocketNotifier *m_notifier = nullptr;
};
