#pragma once

#include <avahi-common/watch.h>

#include <QObject>

namespace quirepad {

// Avahi's main-loop abstraction served by the Qt event loop of the thread
// that makes it: socket watches become QSocketNotifiers, timeouts
// single-shot QTimers. Must outlive every Avahi object made with poll().
class AvahiQtPoll
{
public:
    AvahiQtPoll();
    AvahiQtPoll(const AvahiQtPoll&) = delete;
    AvahiQtPoll& operator=(const AvahiQtPoll&) = delete;

    const AvahiPoll* poll() const { return &m_poll; }
    // Parent of the notifiers and timers, so none outlives the poll.
    QObject* owner() { return &m_owner; }

private:
    QObject m_owner;
    AvahiPoll m_poll {};
};

} // namespace quirepad
