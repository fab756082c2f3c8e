#include "pipeline/DeliveredJobs.h"

#include "pipeline/SpoolFolder.h"

#include <QFile>
#include <QLoggingCategory>
#include <QSet>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcFlush, "quirepad.spool", QtInfoMsg)

namespace {

// Flushes the file system of each folder once. Runs on the flush thread:
// plain system calls only.
void flushFolders(const std::vector<QByteArray>& folders)
{
    std::vector<dev_t> flushed;
    for (const QByteArray& folder : folders) {
        const UniqueFd fd(::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        struct stat st {};
        if (!fd || ::fstat(fd.get(), &st) != 0)
            continue;
        if (std::find(flushed.begin(), flushed.end(), st.st_dev) != flushed.end())
            continue;
        // The new files, their data and the names in their folders.
        if (::syncfs(fd.get()) != 0)
            qCWarning(lcFlush).noquote() << "cannot flush" << QFile::decodeName(folder) << ":"
                                         << QString::fromLocal8Bit(std::strerror(errno));
        flushed.push_back(st.st_dev);
    }
}

} // namespace

DeliveredJobs::DeliveredJobs(std::shared_ptr<SpoolFolder> spool)
    : m_spool(std::move(spool))
{
}

DeliveredJobs::~DeliveredJobs()
{
    if (m_group.valid())
        m_group.wait();
}

void DeliveredJobs::add(Job job)
{
    if (m_gathering.isEmpty())
        m_since.start();
    m_gathering.append(std::move(job));
    if (m_group.valid() && m_group.wait_for(std::chrono::seconds(0)) == std::future_status::ready)
        m_group.get();
    const bool due = m_gathering.size() >= kMaxJobs || m_since.elapsed() >= kMaxWaitMs;
    if (due && !m_group.valid())
        startGroup();
}

void DeliveredJobs::startGroup()
{
    QSet<QString> unique;
    std::vector<QByteArray> folders;
    for (const Job& job : std::as_const(m_gathering))
        if (!job.writtenFolder.isEmpty() && !unique.contains(job.writtenFolder)) {
            unique.insert(job.writtenFolder);
            folders.push_back(QFile::encodeName(job.writtenFolder));
        }
    m_group = std::async(std::launch::async, [spool = m_spool, folders = std::move(folders),
                                              jobs = std::exchange(m_gathering, {})] {
        flushFolders(folders);
        for (const Job& job : jobs)
            spool->retireJob(job.name, job.identity);
    });
}

void DeliveredJobs::finish()
{
    if (m_group.valid())
        m_group.get();
    if (!m_gathering.isEmpty()) {
        startGroup();
        m_group.get();
    }
}

} // namespace quirepad
