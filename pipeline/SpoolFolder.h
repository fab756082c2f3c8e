#pragma once

#include "foundation/safefile.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <atomic>
#include <mutex>
#include <optional>

namespace quirepad {

// The spool folder as this user's instance sees it. The folder is shared
// with every local user, so nothing in it is trusted: the shared folder and
// the spool are opened once (no links, owned by root or this user, sticky
// when others may write), and every name in it is used relative to that
// descriptor, checked on its own descriptor (a regular file with one link,
// owned by this user), never followed and never waited on.
class SpoolFolder
{
public:
    // Opens the folders named by SpoolLocations. Check isOpen().
    SpoolFolder();
    // Opens a given shared folder (tests).
    explicit SpoolFolder(const QString& sharedDirectory);

    bool isOpen() const { return m_spool.isValid(); }
    // Why the folder cannot be used; empty when it can.
    QString problem() const { return m_problem; }
    QString path() const { return m_path; }

    // This user's jobs, by name: "<user>-D3F2UG-..." and (given to this
    // user by the backend) "remote:..." files ending in ".pdf", then ".ps".
    // Anything else with such a name (a link, a folder, a FIFO, another
    // user's file, a file with more links) is skipped and logged once.
    struct Jobs {
        QStringList remote;
        QStringList local;
    };
    Jobs jobs(const QString& userName);

    // One job, opened and checked.
    struct Job {
        UniqueFd fd;
        FileIdentity identity;
        QString name;
    };
    std::optional<Job> openJob(const QString& name, QString* why = nullptr);
    // The job's ".info", read through a checked descriptor; empty when
    // there is none or it is not usable.
    QVariantMap readInfo(const QString& jobName);
    // Removes the job (only the file that was opened as it) and its info.
    bool removeJob(const QString& name, const FileIdentity& identity);
    // Takes a delivered job out of the queue at once by renaming it to a
    // hidden name of ours, ".quirepad-done-XXXXXXXXXXXX-N"; purgeRetired()
    // removes it and its info later. May be called from another thread
    // (the only call that may). A rename frees no inode, so
    // the deliveries being written meanwhile are not slowed down by the
    // file system's search among freshly freed ones.
    bool retireJob(const QString& name, const FileIdentity& identity);
    // Moves a job (the file that was opened as it) to target, never
    // replacing a file there unless asked; its info goes with the next
    // purge. Answers 0 or the errno; EXDEV when it cannot be moved (another
    // file system, or the name no longer is that file): copy it instead.
    int moveJob(const QString& name, const FileIdentity& identity, const QByteArray& target, bool replace);
    // Removes what was retired, and (with leftovers) what a killed run
    // left: retired files of ours, and infos of this user's whose job has
    // been gone for ten minutes.
    void purgeRetired(bool leftovers = false);
    // The user whose jobs the folder serves (for the leftovers).
    void setUser(const QString& userName) { m_user = userName + QStringLiteral("-D3F2UG-"); }
    // Removes every job file and info of this user's; answers how many
    // files went.
    int clearQueue();

private:
    void open(const QString& sharedDirectory);
    void logOnce(const QString& name, const struct stat& st, const QString& why);

    // Whether name is still the checked file that was opened as identity.
    bool stillIs(const QByteArray& name, const FileIdentity& identity) const;
    bool retire(const QByteArray& name, const FileIdentity& identity);

    UniqueFd m_spool;
    std::mutex m_retiredMutex;
    QList<QByteArray> m_retired;
    QByteArray m_retiredPrefix;
    std::atomic<quint64> m_retiredCount = 0;
    QString m_user;
    QString m_path;
    QString m_problem;
};

} // namespace quirepad
