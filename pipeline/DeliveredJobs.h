#pragma once

#include "foundation/safefile.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>

namespace quirepad {

// Delivered spool jobs wait here until what was written for them is on
// disk; then they may leave the spool. The file systems written to are
// flushed once per group of jobs (kMaxJobs, or kMaxWaitMs after the first
// one), so a crash delivers at most one group a second time and never
// loses a job, while a big batch pays one flush per group instead of one
// per file.
class DeliveredJobs
{
public:
    static constexpr int kMaxJobs = 64;
    static constexpr qint64 kMaxWaitMs = 250;

    struct Job {
        QString name; // in the spool
        FileIdentity identity;
        QString writtenFolder; // where the delivery was written; may be empty
    };

    void add(Job job);
    bool isEmpty() const { return m_jobs.isEmpty(); }
    bool isDue() const;
    // Flushes every file system written to (once each) and answers the
    // jobs that may now leave the spool.
    QList<Job> takeFlushed();

private:
    QList<Job> m_jobs;
    QElapsedTimer m_since;
};

} // namespace quirepad
