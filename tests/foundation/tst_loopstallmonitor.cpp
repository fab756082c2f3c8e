#include "TestRegistry.h"

#include "foundation/LoopStallMonitor.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMap>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <ctime>

using namespace quirepad;

namespace {

QMap<QString, QString> readReport(const QString& path)
{
    QMap<QString, QString> values;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return values;
    for (const QByteArray& line : file.readAll().split('\n')) {
        const qsizetype eq = line.indexOf('=');
        if (eq > 0)
            values.insert(QString::fromUtf8(line.left(eq)), QString::fromUtf8(line.mid(eq + 1)));
    }
    return values;
}

qint64 threadCpuMs()
{
    timespec ts {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return qint64(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Holds the thread without returning to the event loop until it has run
// for ms of CPU time (at least as long on the clock, however busy the
// machine is).
void busy(int ms)
{
    const qint64 end = threadCpuMs() + ms;
    while (threadCpuMs() < end) { }
}

} // namespace

class LoopStallMonitorTest : public QObject
{
    Q_OBJECT

private slots:
    void aBlockedLoopIsReported()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString path = dir.filePath(QStringLiteral("stalls"));
        {
            LoopStallMonitor monitor(path);
            monitor.start();
            QTest::qWait(30);
            QVERIFY(monitor.ticks() > 0);
            busy(50);
            QTest::qWait(30);
            QVERIFY2(monitor.longestStallMs() >= 45, qPrintable(QString::number(monitor.longestStallMs())));
            QVERIFY2(monitor.longestBusyMs() >= 45, qPrintable(QString::number(monitor.longestBusyMs())));
            QVERIFY(monitor.longestStallCpuMs() >= 45);
            QVERIFY(monitor.longestOwnMs() >= 45);
            QVERIFY(monitor.stallsOverThreshold() >= 1);
            QVERIFY(monitor.ownStallsOverThreshold() >= 1);
        }
        // Destroyed: the last report is on disk, and only the report.
        const QMap<QString, QString> report = readReport(path);
        QVERIFY2(report.value(QStringLiteral("longest_stall_ms")).toDouble() >= 45,
            qPrintable(report.value(QStringLiteral("longest_stall_ms"))));
        QVERIFY(report.value(QStringLiteral("longest_busy_ms")).toDouble() >= 45);
        QVERIFY(report.value(QStringLiteral("longest_own_ms")).toDouble() >= 45);
        QVERIFY(report.value(QStringLiteral("stalls_over_20ms")).toInt() >= 1);
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList { QStringLiteral("stalls") });
    }

    void aBlockingCallIsAStallButNotBusy()
    {
        // Blocked in a call (here a sleep): the clock runs, the thread's
        // CPU time does not.
        LoopStallMonitor monitor;
        monitor.start();
        QTest::qWait(30);
        QThread::msleep(50);
        QTest::qWait(30);
        QVERIFY2(monitor.longestStallMs() >= 45, qPrintable(QString::number(monitor.longestStallMs())));
        QVERIFY2(monitor.longestStallCpuMs() < 25, qPrintable(QString::number(monitor.longestStallCpuMs())));
        QVERIFY(monitor.longestBusyMs() < 25);
        // It is the loop's own doing, not the machine's (generous bounds:
        // on a busy machine the thread may wait a while for a CPU when the
        // sleep ends, and that part is not its own).
        QVERIFY2(monitor.longestOwnMs() >= 20, qPrintable(QString::number(monitor.longestOwnMs())));
        if (monitor.knowsWaitTime())
            QVERIFY2(monitor.longestBlockedMs() >= 20, qPrintable(QString::number(monitor.longestBlockedMs())));
    }

    void anIdleLoopReportsShortStalls()
    {
        // Another process may take the CPU for a while on a busy machine:
        // one quiet attempt of three is enough.
        double best = 1e9;
        for (int attempt = 0; attempt < 3 && best >= LoopStallMonitor::threshold.count(); ++attempt) {
            LoopStallMonitor monitor;
            monitor.start();
            QTest::qWait(200);
            QVERIFY(monitor.ticks() > 10);
            best = std::min(best, monitor.longestStallMs());
        }
        QVERIFY2(best < LoopStallMonitor::threshold.count(), qPrintable(QString::number(best)));
    }

    void workBeforeTheLoopRunsIsNotCounted()
    {
        LoopStallMonitor monitor;
        monitor.start();
        busy(50); // as a program does between starting the monitor and exec()
        QTest::qWait(20);
        QVERIFY(monitor.ticks() > 0);
        QVERIFY2(monitor.longestStallMs() < 45, qPrintable(QString::number(monitor.longestStallMs())));
    }

    void reportsOnceASecond()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString path = dir.filePath(QStringLiteral("stalls"));
        LoopStallMonitor monitor(path);
        monitor.start();
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(path), 5000);
        const int first = readReport(path).value(QStringLiteral("report")).toInt();
        QVERIFY(first >= 1);
        QTRY_VERIFY_WITH_TIMEOUT(readReport(path).value(QStringLiteral("report")).toInt() > first, 5000);
        const QMap<QString, QString> report = readReport(path);
        for (const char* key : { "longest_stall_ms", "longest_stall_cpu_ms", "longest_stall_wait_ms", "longest_own_ms",
                 "longest_busy_ms", "longest_blocked_ms", "stalls_over_20ms", "own_stalls_over_20ms",
                 "window_longest_ms", "window_longest_own_ms", "window_longest_busy_ms", "window_longest_blocked_ms",
                 "wait_known", "uptime_ms", "ticks" })
            QVERIFY2(report.contains(QLatin1String(key)), key);
    }

    void startsOnlyWhenTheEnvironmentNamesAFile()
    {
        qunsetenv("QUIREPAD_LOOP_MONITOR");
        QObject owner;
        QCOMPARE(LoopStallMonitor::startFromEnvironment(&owner), nullptr);

        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString path = dir.filePath(QStringLiteral("from-env"));
        qputenv("QUIREPAD_LOOP_MONITOR", QFile::encodeName(path));
        {
            QObject parent;
            LoopStallMonitor* monitor = LoopStallMonitor::startFromEnvironment(&parent);
            qunsetenv("QUIREPAD_LOOP_MONITOR");
            QVERIFY(monitor);
            QCOMPARE(monitor->parent(), &parent);
            QCOMPARE(monitor->reportPath(), path);
            QTRY_VERIFY_WITH_TIMEOUT(monitor->ticks() > 2, 5000);
        }
        QVERIFY(QFile::exists(path));
        QVERIFY(readReport(path).contains(QStringLiteral("longest_stall_ms")));
    }
};

QUIREPAD_REGISTER_TEST(LoopStallMonitorTest);
#include "tst_loopstallmonitor.moc"
