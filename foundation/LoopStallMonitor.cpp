#include "foundation/LoopStallMonitor.h"

#include "foundation/Log.h"

#include <QCoreApplication>
#include <QFile>

#include <algorithm>
#include <utility>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace quirepad {

namespace {

qint64 threadCpuNs()
{
    timespec ts {};
    if (clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts) != 0)
        return 0;
    return qint64(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

QString ms(qint64 ns)
{
    return QString::number(ns / 1e6, 'f', 3);
}

} // namespace

LoopStallMonitor::LoopStallMonitor(const QString& reportPath, QObject* parent, std::chrono::milliseconds interval)
    : QObject(parent)
    , m_reportPath(reportPath)
    , m_interval(interval)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(m_interval);
    connect(&m_timer, &QTimer::timeout, this, &LoopStallMonitor::tick);
}

LoopStallMonitor::~LoopStallMonitor()
{
    m_timer.stop();
    if (!m_reportPath.isEmpty())
        writeReport();
    if (m_schedstat >= 0)
        ::close(m_schedstat);
}

LoopStallMonitor* LoopStallMonitor::startFromEnvironment(QObject* parent)
{
    const QString path = qEnvironmentVariable("QUIREPAD_LOOP_MONITOR");
    if (path.isEmpty())
        return nullptr;
    auto* monitor = new LoopStallMonitor(path, parent);
    monitor->start();
    qCInfo(lcFoundation).noquote() << "event-loop stall monitor reporting to" << path;
    return monitor;
}

void LoopStallMonitor::start()
{
    // The file names the thread that opens it: the one whose loop this is.
    if (m_schedstat < 0)
        m_schedstat = ::open("/proc/thread-self/schedstat", O_RDONLY | O_CLOEXEC);
    m_clock.start();
    m_haveLast = false;
    m_lastReport = 0;
    m_timer.start();
}

void LoopStallMonitor::stop()
{
    m_timer.stop();
}

// Now on the monotonic clock, and the thread's time on a CPU and waiting
// for one (schedstat: "run-ns wait-ns timeslices").
LoopStallMonitor::Sample LoopStallMonitor::sample() const
{
    Sample s;
    s.clock = m_clock.nsecsElapsed();
    if (m_schedstat >= 0) {
        char text[96];
        const ssize_t n = ::pread(m_schedstat, text, sizeof text - 1, 0);
        long long run = 0;
        long long wait = 0;
        if (n > 0) {
            text[n] = '\0';
            if (std::sscanf(text, "%lld %lld", &run, &wait) == 2) {
                s.cpu = run;
                s.wait = wait;
                return s;
            }
        }
    }
    s.cpu = threadCpuNs();
    return s;
}

void LoopStallMonitor::tick()
{
    const Sample now = sample();
    ++m_ticks;
    if (m_haveLast) {
        const qint64 late = now.clock - m_last.clock - std::chrono::nanoseconds(m_interval).count();
        const qint64 cpu = now.cpu - m_last.cpu;
        const bool waitKnown = now.wait >= 0 && m_last.wait >= 0;
        const qint64 wait = waitKnown ? now.wait - m_last.wait : -1;
        const qint64 own = std::max<qint64>(0, waitKnown ? late - wait : late);
        const qint64 busy = std::max<qint64>(0, std::min(late, cpu));
        const qint64 blocked = waitKnown ? std::max<qint64>(0, late - wait - cpu) : 0;
        if (late > m_total.longest) {
            m_longestCpu = cpu;
            m_longestWait = wait;
        }
        for (Longest* longest : { &m_total, &m_window }) {
            longest->longest = std::max(longest->longest, late);
            longest->own = std::max(longest->own, own);
            longest->busy = std::max(longest->busy, busy);
            longest->blocked = std::max(longest->blocked, blocked);
        }
        const qint64 limit = std::chrono::nanoseconds(threshold).count();
        m_overThreshold += late > limit;
        m_ownOverThreshold += own > limit;
    }
    m_last = now;
    m_haveLast = true;
    if (!m_reportPath.isEmpty() && now.clock - m_lastReport >= std::chrono::nanoseconds(reportInterval).count()) {
        writeReport();
        m_lastReport = now.clock;
        // The report is the monitor's own work, not the program's: the
        // next gap is measured from its end.
        m_last = sample();
    }
}

bool LoopStallMonitor::writeReport()
{
    if (m_reportPath.isEmpty())
        return false;
    ++m_reports;
    const QString over = QString::number(threshold.count());
    const std::pair<QString, QString> lines[] = {
        { QStringLiteral("longest_stall_ms"), ms(m_total.longest) },
        { QStringLiteral("longest_stall_cpu_ms"), ms(m_longestCpu) },
        { QStringLiteral("longest_stall_wait_ms"), m_longestWait < 0 ? QStringLiteral("-1") : ms(m_longestWait) },
        { QStringLiteral("longest_own_ms"), ms(m_total.own) },
        { QStringLiteral("longest_busy_ms"), ms(m_total.busy) },
        { QStringLiteral("longest_blocked_ms"), ms(m_total.blocked) },
        { QStringLiteral("stalls_over_%1ms").arg(over), QString::number(m_overThreshold) },
        { QStringLiteral("own_stalls_over_%1ms").arg(over), QString::number(m_ownOverThreshold) },
        { QStringLiteral("window_longest_ms"), ms(m_window.longest) },
        { QStringLiteral("window_longest_own_ms"), ms(m_window.own) },
        { QStringLiteral("window_longest_busy_ms"), ms(m_window.busy) },
        { QStringLiteral("window_longest_blocked_ms"), ms(m_window.blocked) },
        { QStringLiteral("wait_known"), QString::number(int(knowsWaitTime())) },
        { QStringLiteral("report"), QString::number(m_reports) },
        { QStringLiteral("uptime_ms"), QString::number(m_clock.isValid() ? m_clock.elapsed() : 0) },
        { QStringLiteral("ticks"), QString::number(m_ticks) },
        { QStringLiteral("interval_ms"), QString::number(m_interval.count()) },
    };
    QString text;
    for (const auto& [key, value] : lines)
        text += key + QLatin1Char('=') + value + QLatin1Char('\n');
    m_window = {};
    const QByteArray bytes = text.toUtf8();
    const QString temporary = QStringLiteral("%1.%2.tmp").arg(m_reportPath).arg(QCoreApplication::applicationPid());
    QFile file(temporary);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size()) {
        qCWarning(lcFoundation).noquote() << "cannot write the stall report" << temporary << file.errorString();
        file.remove();
        return false;
    }
    file.close();
    if (std::rename(QFile::encodeName(temporary).constData(), QFile::encodeName(m_reportPath).constData()) != 0) {
        qCWarning(lcFoundation).noquote()
            << "cannot rename the stall report to" << m_reportPath << std::strerror(errno);
        QFile::remove(temporary);
        return false;
    }
    return true;
}

} // namespace quirepad
