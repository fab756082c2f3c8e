#include "foundation/runloop.h"

#include "foundation/Shutdown.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

namespace quirepad {

void sleep_main_loop(double seconds)
{
    if (seconds <= 0) {
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        return;
    }
    // A program that is ending waits for nothing (and Qt would not run the
    // loop anyway).
    const QDeadlineTimer deadline(qint64(seconds * 1000.0), Qt::PreciseTimer);
    while (!deadline.hasExpired() && !Shutdown::isRequested()) {
        QEventLoop loop;
        QTimer::singleShot(qMax<qint64>(deadline.remainingTime(), 0), Qt::PreciseTimer, &loop, &QEventLoop::quit);
        QObject::connect(&Shutdown::instance(), &Shutdown::requested, &loop, &QEventLoop::quit);
        if (loop.exec(QEventLoop::AllEvents) == -1)
            break; // the application is quitting: no loop runs any more
    }
}

void run_idle_loop()
{
    // The timer wakes the wait if nothing else arrives within 0.1 s.
    QTimer wake;
    wake.setSingleShot(true);
    wake.start(100);
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
}

} // namespace quirepad
