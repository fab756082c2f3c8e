#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

#include <chrono>

namespace quirepad {

// Watches how long the event loop of its thread goes without serving a
// due timer. A precise timer fires every few milliseconds; each firing
// that comes later than the interval after the previous one counts the
// difference as a stall. The first firing only sets the baseline, so the
// work done before the loop starts is not counted.
//
// A stall is the loop's own doing (a handler running long, or blocked in a
// call) or the thread waiting for a CPU on a busy machine. The thread's
// scheduler statistics over each gap tell them apart: its own part is the
// stall less the time it waited to run; of that, the busy part is the CPU
// time it used in the gap and the blocked part the rest (each at most the
// stall itself). Where the kernel keeps no such statistics, the whole
// stall counts as its own and nothing as blocked.
//
// With a report path it writes, once a second and when it is destroyed,
// the longest stall so far and its parts, the longest own and busy parts
// of any stall, how many stalls (and own parts) went over the threshold,
// and the same longest figures since the previous report, as KEY=value
// lines (readable by a shell's `.`). The report is written beside the path
// and renamed over it, so a reader never sees half of one; it is not
// synced (a diagnostic, not data).
class LoopStallMonitor : public QObject
{
    Q_OBJECT

public:
    static constexpr std::chrono::milliseconds defaultInterval { 2 };
    static constexpr std::chrono::milliseconds threshold { 20 };
    static constexpr std::chrono::milliseconds reportInterval { 1000 };

    explicit LoopStallMonitor(const QString& reportPath = {}, QObject* parent = nullptr,
        std::chrono::milliseconds interval = defaultInterval);
    ~LoopStallMonitor() override;

    // A started monitor reporting to the file QUIREPAD_LOOP_MONITOR names,
    // or nullptr when that variable is unset or empty.
    static LoopStallMonitor* startFromEnvironment(QObject* parent);

    void start();
    void stop();

    QString reportPath() const { return m_reportPath; }
    quint64 ticks() const { return m_ticks; }

    // Since start, in milliseconds: the longest stall, the CPU time the
    // thread used and the time it waited for a CPU in that one (-1: not
    // known), the longest own, busy and blocked parts of any stall.
    double longestStallMs() const { return m_total.longest / 1e6; }
    double longestStallCpuMs() const { return m_longestCpu / 1e6; }
    double longestStallWaitMs() const { return m_longestWait < 0 ? -1 : m_longestWait / 1e6; }
    double longestOwnMs() const { return m_total.own / 1e6; }
    double longestBusyMs() const { return m_total.busy / 1e6; }
    double longestBlockedMs() const { return m_total.blocked / 1e6; }
    int stallsOverThreshold() const { return m_overThreshold; }
    int ownStallsOverThreshold() const { return m_ownOverThreshold; }
    // Whether the time spent waiting for a CPU is known here.
    bool knowsWaitTime() const { return m_schedstat >= 0; }

    // Writes the report now (starting a new window); answers whether it
    // was written.
    bool writeReport();

private:
    struct Sample {
        qint64 clock = 0;
        qint64 cpu = 0;
        qint64 wait = -1;
    };
    struct Longest {
        qint64 longest = 0;
        qint64 own = 0;
        qint64 busy = 0;
        qint64 blocked = 0;
    };

    Sample sample() const;
    void tick();

    QString m_reportPath;
    std::chrono::milliseconds m_interval;
    QTimer m_timer;
    QElapsedTimer m_clock;
    int m_schedstat = -1; // this thread's /proc schedstat, kept open
    bool m_haveLast = false;
    Sample m_last;
    Longest m_total;
    Longest m_window;
    qint64 m_longestCpu = 0;
    qint64 m_longestWait = -1;
    qint64 m_lastReport = 0;
    int m_overThreshold = 0;
    int m_ownOverThreshold = 0;
    quint64 m_ticks = 0;
    quint64 m_reports = 0;
};

} // namespace quirepad
