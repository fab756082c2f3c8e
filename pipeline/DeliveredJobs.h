#pragma once

#include "foundation/safefile.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>

#include <future>
#include <memory>

namespace quirepad {

class SpoolFolder;

// Delivered spool jobs wait here until what was written for them is on
// disk; then they leave the spool. The file systems written to are flushed
// once per group of jobs (kMaxJobs, or kMaxWaitMs after the first one), and
// the group is taken out of the queue, on a thread of its own while the
// next group is delivered, so a big batch never waits for the disk; one
// group is handled at a time. A crash therefore delivers again at most the
// group being flushed and the one being gathered, and never loses a job.
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

    explicit DeliveredJobs(std::shared_ptr<SpoolFolder> spool);
    // Waits for the group under way; the jobs gathered after it stay in the
    // spool (they are delivered again next time).
    ~DeliveredJobs();
    DeliveredJobs(const DeliveredJobs&) = delete;
    DeliveredJobs& operator=(const DeliveredJobs&) = delete;

    // Adds a delivered job, and starts on the gathered group when it is due
    // and no other is under way. Never waits.
    void add(Job job);
    // Flushes and takes out everything delivered, and waits for it: the end
    // of a batch.
    void finish();

private:
    void startGroup();
    std::shared_ptr<SpoolFolder> m_spool;
    QList<Job> m_gathering;
    std::future<void> m_group;
    QElapsedTimer m_since;
};

} // namespace quirepad
