#include "pipeline/SpoolFolder.h"

#include "pipeline/jobinfo.h"

#include <QFile>
#include <QSet>
#include <QLoggingCategory>

#include <algorithm>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>

namespace quirepad {

Q_LOGGING_CATEGORY(lcSpoolFolder, "quirepad.spool", QtInfoMsg)

namespace {

const QString kMarker = QStringLiteral("-D3F2UG-");
const QString kRemote = QStringLiteral("remote:");
constexpr qint64 kInfoLimit = 1 << 20;
const QByteArray kRetiredPrefix = ".quirepad-done-";

// The process never changes its user: asked once.
uid_t myUid()
{
    static const uid_t uid = ::geteuid();
    return uid;
}

safefile::Owner me()
{
    return {myUid(), false};
}

// The folders may be root's (installed) or the user's own (a private setup).
safefile::Owner folderOwners()
{
    return {myUid(), true};
}

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

} // namespace

SpoolFolder::SpoolFolder()
{
    open(SpoolLocations::sharedDirectory());
}

SpoolFolder::SpoolFolder(const QString& sharedDirectory)
{
    open(sharedDirectory);
}

void SpoolFolder::open(const QString& sharedDirectory)
{
    // Random per instance, then counted: no retired name is guessable, and
    // none costs a call for randomness.
    unsigned char bytes[6];
    ::arc4random_buf(bytes, sizeof bytes);
    m_retiredPrefix = kRetiredPrefix + QByteArray(reinterpret_cast<const char*>(bytes), sizeof bytes).toHex() + '-';

    QString shared = sharedDirectory;
    while (shared.size() > 1 && shared.endsWith(u'/'))
        shared.chop(1);
    m_path = shared + QStringLiteral("/quirepad_spool/");
    QString why;
    const UniqueFd sharedFd = safefile::openFolder(AT_FDCWD, QFile::encodeName(shared), folderOwners(), &why);
    if (!sharedFd) {
        m_problem = QStringLiteral("the shared folder %1 cannot be used: %2").arg(shared, why);
        return;
    }
    m_spool = safefile::openFolder(sharedFd.get(), "quirepad_spool", folderOwners(), &why);
    if (!m_spool)
        m_problem = QStringLiteral("the spool folder %1 cannot be used: %2").arg(m_path, why);
}

void SpoolFolder::logOnce(const QString& name, const struct stat& st, const QString& why)
{
    // Once per process: the same planted file is seen again at every scan.
    static QSet<QString> logged;
    const QString key = QStringLiteral("%1:%2:%3").arg(name).arg(st.st_ino).arg(why);
    if (logged.contains(key))
        return;
    logged.insert(key);
    qCWarning(lcSpoolFolder).noquote() << QStringLiteral("%1%2 is left alone: %3").arg(m_path, name, why);
}

SpoolFolder::Jobs SpoolFolder::jobs(const QString& userName)
{
    Jobs jobs;
    if (!isOpen())
        return jobs;
    const int fd = ::dup(m_spool.get());
    if (fd < 0)
        return jobs;
    std::unique_ptr<DIR, DirCloser> dir(::fdopendir(fd));
    if (!dir) {
        ::close(fd);
        return jobs;
    }
    ::rewinddir(dir.get());
    const QString localPrefix = userName + kMarker;
    QStringList pdf, ps;
    while (const dirent* entry = ::readdir(dir.get())) {
        const QString name = QFile::decodeName(entry->d_name);
        const bool isPdf = name.endsWith(QLatin1String(".pdf"));
        if (!isPdf && !name.endsWith(QLatin1String(".ps")))
            continue;
        if (!name.startsWith(localPrefix) && !name.startsWith(kRemote))
            continue;
        struct stat st {};
        if (::fstatat(m_spool.get(), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue; // gone meanwhile
        if (const QString refused = safefile::refusal(st, me()); !refused.isEmpty()) {
            // Other users' remote jobs are simply not ours; the rest with our
            // name is worth a line in the log.
            if (!(name.startsWith(kRemote) && S_ISREG(st.st_mode) && st.st_uid != myUid()))
                logOnce(name, st, refused);
            continue;
        }
        (isPdf ? pdf : ps) << name;
    }
    std::sort(pdf.begin(), pdf.end());
    std::sort(ps.begin(), ps.end());
    for (const QString& name : pdf + ps)
        (name.startsWith(kRemote) ? jobs.remote : jobs.local) << name;
    return jobs;
}

std::optional<SpoolFolder::Job> SpoolFolder::openJob(const QString& name, QString* why)
{
    if (!isOpen() || name.contains(u'/')) {
        if (why)
            *why = isOpen() ? QStringLiteral("not a name in the spool") : m_problem;
        return std::nullopt;
    }
    struct stat st {};
    UniqueFd fd = safefile::openFile(m_spool.get(), QFile::encodeName(name), O_RDONLY, me(), why, &st);
    if (!fd)
        return std::nullopt;
    return Job{std::move(fd), FileIdentity::of(st), name};
}

QVariantMap SpoolFolder::readInfo(const QString& jobName)
{
    if (!isOpen() || jobName.contains(u'/'))
        return {};
    const QString name = jobName + QStringLiteral(".info");
    QString why;
    struct stat st {};
    const UniqueFd fd = safefile::openFile(m_spool.get(), QFile::encodeName(name), O_RDONLY, me(), &why, &st);
    if (!fd) {
        if (why != QLatin1String("No such file or directory"))
            logOnce(name, st, why);
        return {};
    }
    if (st.st_size > kInfoLimit)
        return {};
    const std::optional<QByteArray> text = safefile::readAll(fd.get(), kInfoLimit, st.st_size);
    return text && text->size() <= kInfoLimit ? parse_info(*text) : QVariantMap();
}

bool SpoolFolder::removeJob(const QString& name, const FileIdentity& identity)
{
    if (!isOpen())
        return false;
    QString why;
    const bool removed = safefile::removeFile(m_spool.get(), QFile::encodeName(name), me(), identity, &why);
    if (!removed)
        qCWarning(lcSpoolFolder).noquote() << "cannot remove" << m_path + name << ":" << why;
    // The info goes with its job; a missing one is no error.
    safefile::removeFile(m_spool.get(), QFile::encodeName(name + QStringLiteral(".info")), me());
    return removed;
}

namespace {
constexpr time_t kOrphanInfoSeconds = 10 * 60;
} // namespace

bool SpoolFolder::stillIs(const QByteArray& name, const FileIdentity& identity) const
{
    struct stat st {};
    return ::fstatat(m_spool.get(), name.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0
           && safefile::refusal(st, me()).isEmpty() && identity == FileIdentity::of(st);
}

bool SpoolFolder::retire(const QByteArray& name, const FileIdentity& identity)
{
    if (!stillIs(name, identity))
        return false;
    for (int attempt = 0; attempt < 8; ++attempt) {
        const QByteArray hidden = m_retiredPrefix + QByteArray::number(++m_retiredCount);
        if (::renameat2(m_spool.get(), name.constData(), m_spool.get(), hidden.constData(), RENAME_NOREPLACE) == 0) {
            const std::lock_guard lock(m_retiredMutex);
            m_retired.append(hidden);
            return true;
        }
        if (errno != EEXIST)
            break;
    }
    return false;
}

bool SpoolFolder::retireJob(const QString& name, const FileIdentity& identity)
{
    if (!isOpen())
        return false;
    if (!retire(QFile::encodeName(name), identity)) {
        qCWarning(lcSpoolFolder).noquote() << "cannot take" << m_path + name << "out of the queue; removing it instead";
        return removeJob(name, identity);
    }
    // The info stays under its name until the purge: without its job it is
    // no job, and the backend never puts a new job beside an info that is
    // there (it takes the next free name).
    const std::lock_guard lock(m_retiredMutex);
    m_retired.append(QFile::encodeName(name + QStringLiteral(".info")));
    return true;
}

int SpoolFolder::moveJob(const QString& name, const FileIdentity& identity, const QByteArray& target, bool replace)
{
    const QByteArray job = QFile::encodeName(name);
    if (!isOpen() || !stillIs(job, identity))
        return EXDEV;
    const int moved = replace ? ::renameat(m_spool.get(), job.constData(), AT_FDCWD, target.constData())
                              : ::renameat2(m_spool.get(), job.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE);
    if (moved != 0)
        return errno;
    const std::lock_guard lock(m_retiredMutex);
    m_retired.append(job + ".info");
    return 0;
}

void SpoolFolder::purgeRetired(bool leftovers)
{
    if (!isOpen())
        return;
    QList<QByteArray> names;
    {
        const std::lock_guard lock(m_retiredMutex);
        names = std::exchange(m_retired, {});
    }
    if (leftovers) {
        const int fd = ::dup(m_spool.get());
        std::unique_ptr<DIR, DirCloser> dir(fd < 0 ? nullptr : ::fdopendir(fd));
        if (!dir && fd >= 0)
            ::close(fd);
        if (dir) {
            ::rewinddir(dir.get());
            const time_t now = ::time(nullptr);
            while (const dirent* entry = ::readdir(dir.get())) {
                const QByteArray name(entry->d_name);
                struct stat st {};
                if (name.startsWith(kRetiredPrefix)) {
                    names << name;
                } else if (name.endsWith(".info") && name.startsWith(QFile::encodeName(m_user))
                           && ::fstatat(m_spool.get(), name.left(name.size() - 5).constData(), &st, AT_SYMLINK_NOFOLLOW) != 0
                           && ::fstatat(m_spool.get(), name.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0
                           && now - st.st_mtime > kOrphanInfoSeconds) {
                    // The info of a job that went without it (a run killed
                    // between the two renames): long enough ago that no
                    // backend is about to put the job beside it.
                    names << name;
                }
            }
        }
    }
    for (const QByteArray& name : std::as_const(names))
        safefile::removeFile(m_spool.get(), name, me()); // only our own files
}

int SpoolFolder::clearQueue()
{
    if (!isOpen())
        return 0;
    const int fd = ::dup(m_spool.get());
    if (fd < 0)
        return 0;
    std::unique_ptr<DIR, DirCloser> dir(::fdopendir(fd));
    if (!dir) {
        ::close(fd);
        return 0;
    }
    ::rewinddir(dir.get());
    QList<QByteArray> names;
    while (const dirent* entry = ::readdir(dir.get()))
        if (entry->d_name[0] != '.') // the backend's files in the making
            names << QByteArray(entry->d_name);
    int removed = 0;
    for (const QByteArray& name : names)
        removed += safefile::removeFile(m_spool.get(), name, me()) ? 1 : 0;
    return removed;
}

} // namespace quirepad
