#pragma once

#include <QObject>

#include <memory>

class QSocketNotifier;

namespace quirepad {

// Turns SIGINT and SIGTERM into a Qt signal on the main thread (through a
// socket pair written by the signal handler), so a headless instance can
// save and quit cleanly when it is stopped.
class UnixSignalWatcher : public QObject
{
    Q_OBJECT

public:
    explicit UnixSignalWatcher(QObject* parent = nullptr);
    ~UnixSignalWatcher() override;

signals:
    void terminationRequested(int signalNumber);

private:
    void readSignal();

    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace quirepad
