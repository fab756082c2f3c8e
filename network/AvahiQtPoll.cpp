#include "network/AvahiQtPoll.h"

#include <avahi-common/timeval.h>

#include <QSocketNotifier>
#include <QTimer>

#include <memory>

// The watch and timeout types are Avahi's opaque handles; their callbacks
// may free them (and make others) while they run, so nothing of a handle is
// touched after its callback returns, and its Qt objects are deleted later,
// never inside their own signal.
struct AvahiWatch
{
    int fd = -1;
    AvahiWatchEvent wanted = AvahiWatchEvent(0);
    AvahiWatchEvent happened = AvahiWatchEvent(0);
    AvahiWatchCallback callback = nullptr;
    void* userdata = nullptr;
    QSocketNotifier* reader = nullptr;
    QSocketNotifier* writer = nullptr;
};

struct AvahiTimeout
{
    AvahiTimeoutCallback callback = nullptr;
    void* userdata = nullptr;
    QTimer* timer = nullptr;
};

namespace quirepad {
namespace {

void fire(AvahiWatch* watch, AvahiWatchEvent event)
{
    watch->happened = event;
    watch->callback(watch, watch->fd, event, watch->userdata);
    // The callback may have freed the watch.
}

void applyEvents(AvahiWatch* watch)
{
    watch->reader->setEnabled(watch->wanted & (AVAHI_WATCH_IN | AVAHI_WATCH_ERR | AVAHI_WATCH_HUP));
    watch->writer->setEnabled(watch->wanted & AVAHI_WATCH_OUT);
}

QObject* ownerOf(const AvahiPoll* api)
{
    return static_cast<AvahiQtPoll*>(api->userdata)->owner();
}

AvahiWatch* watchNew(const AvahiPoll* api, int fd, AvahiWatchEvent event, AvahiWatchCallback callback, void* userdata)
{
    auto watch = std::make_unique<AvahiWatch>();
    watch->fd = fd;
    watch->wanted = event;
    watch->callback = callback;
    watch->userdata = userdata;
    watch->reader = new QSocketNotifier(fd, QSocketNotifier::Read, ownerOf(api));
    watch->writer = new QSocketNotifier(fd, QSocketNotifier::Write, ownerOf(api));
    AvahiWatch* raw = watch.get();
    QObject::connect(watch->reader, &QSocketNotifier::activated, watch->reader,
                     [raw] { fire(raw, AVAHI_WATCH_IN); });
    QObject::connect(watch->writer, &QSocketNotifier::activated, watch->writer,
                     [raw] { fire(raw, AVAHI_WATCH_OUT); });
    applyEvents(raw);
    return watch.release();
}

void watchUpdate(AvahiWatch* watch, AvahiWatchEvent event)
{
    watch->wanted = event;
    applyEvents(watch);
}

AvahiWatchEvent watchGetEvents(AvahiWatch* watch)
{
    return watch->happened;
}

void watchFree(AvahiWatch* watch)
{
    // Disconnected first: a notification already queued must not reach the
    // freed handle.
    for (QSocketNotifier* notifier : { watch->reader, watch->writer }) {
        notifier->setEnabled(false);
        QObject::disconnect(notifier, nullptr, nullptr, nullptr);
        notifier->deleteLater();
    }
    delete watch;
}

void timeoutUpdate(AvahiTimeout* timeout, const struct timeval* tv)
{
    if (!tv) {
        timeout->timer->stop();
        return;
    }
    const AvahiUsec age = avahi_age(tv); // positive once tv has passed
    timeout->timer->start(age >= 0 ? 0 : int((-age + 999) / 1000));
}

AvahiTimeout* timeoutNew(const AvahiPoll* api, const struct timeval* tv, AvahiTimeoutCallback callback, void* userdata)
{
    auto timeout = std::make_unique<AvahiTimeout>();
    timeout->callback = callback;
    timeout->userdata = userdata;
    timeout->timer = new QTimer(ownerOf(api));
    timeout->timer->setSingleShot(true);
    timeout->timer->setTimerType(Qt::PreciseTimer);
    AvahiTimeout* raw = timeout.get();
    QObject::connect(timeout->timer, &QTimer::timeout, timeout->timer,
                     [raw] { raw->callback(raw, raw->userdata); });
    timeoutUpdate(raw, tv);
    return timeout.release();
}

void timeoutFree(AvahiTimeout* timeout)
{
    timeout->timer->stop();
    QObject::disconnect(timeout->timer, nullptr, nullptr, nullptr);
    timeout->timer->deleteLater();
    delete timeout;
}

} // namespace

AvahiQtPoll::AvahiQtPoll()
{
    m_poll.userdata = this;
    m_poll.watch_new = watchNew;
    m_poll.watch_update = watchUpdate;
    m_poll.watch_get_events = watchGetEvents;
    m_poll.watch_free = watchFree;
    m_poll.timeout_new = timeoutNew;
    m_poll.timeout_update = timeoutUpdate;
    m_poll.timeout_free = timeoutFree;
}

} // namespace quirepad
