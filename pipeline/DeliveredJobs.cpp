#include "pipeline/DeliveredJobs.h"

#include <QFile>
#include <QLoggingCategory>
#include <QSet>

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcFlush, "quirepad.spool", QtInfoMsg)

void DeliveredJobs::add(Job job)
{
    if (m_jobs.isEmpty())
        m_since.start();
    m_jobs.append(std::move(job));
}

bool DeliveredJobs::isDue() const
{
    return m_jobs.size() >= kMaxJobs || (!m_jobs.isEmpty() && m_since.elapsed() >= kMaxWaitMs);
}

QList<DeliveredJobs::Job> DeliveredJobs::takeFlushed()
{
    QSet<QString> folders;
    for (const Job& job : std::as_const(m_jobs))
        if (!job.writtenFolder.isEmpty())
            folders.insert(job.writtenFolder);
    QSet<dev_t> flushed;
    for (const QString& folder : std::as_const(folders)) {
        const UniqueFd fd(::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        struct stat st {};
        if (!fd || ::fstat(fd.get(), &st) != 0 || flushed.contains(st.st_dev))
            continue;
        // The new files, their data and the names in their folders.
        if (::syncfs(fd.get()) != 0)
            qCWarning(lcFlush).noquote() << "cannot flush" << folder << ":" << QString::fromLocal8Bit(std::strerror(errno));
        flushed.insert(st.st_dev);
    }
    return std::exchange(m_jobs, {});
}

} // namespace quirepad
