#pragma once

#include "foundation/safefile.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>

#include <future>

namespace quirepad {

// Delivered spool jobs wait here until what was written for them is on
// disk; then they may leave the spool. The file systems written to are
// flushed once per group of jobs (kMaxJobs, or kMaxWaitMs after the first
// one), on a thread of its own while the next group is delivered, so a big
// batch never waits for the disk; one group is flushed at a time. A crash
// therefore delivers again at most the group being flushed and the one
// being gathered, and never loses a job.
class DeliveredJobs
{
public:
    static constexpr int kMaxJobs = 32;
    static constexpr qint64 kMaxWaitMs = 250;

    struct Job {
        QString name; // in the spool
        FileIdentity identity;
        QString writtenFolder; // where the delivery was written; may be empty
    };

    DeliveredJobs() = default;
    ~DeliveredJobs();
    DeliveredJobs(const DeliveredJobs&) = delete;
    DeliveredJobs& operator=(const DeliveredJobs&) = delete;

    void add(Job job);
    bool isEmpty() const { return m_gathering.isEmpty() && m_flushing.isEmpty(); }
    // Starts flushing the group gathered so far when it is due and no
    // flush is under way; answers the jobs whose flush has ended (they may
    // leave the spool now). Never waits.
    QList<Job> takeDurable();
    // Flushes everything delivered and waits for it: the end of a batch.
    QList<Job> takeAllDurable();

private:
    void startFlush();
    QList<Job> m_gathering;
    QList<Job> m_flushing;
    std::future<void> m_flush;
    QElapsedTimer m_since;
};

} // namespace quirepad
