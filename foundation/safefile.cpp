#include "foundation/safefile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/sendfile.h>
#include <unistd.h>

namespace quirepad {

namespace {

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

void setWhy(QString* why, const QString& text)
{
    if (why)
        *why = text;
}

QString kindOf(mode_t mode)
{
    if (S_ISDIR(mode))
        return QStringLiteral("a folder");
    if (S_ISLNK(mode))
        return QStringLiteral("a symbolic link");
    if (S_ISFIFO(mode))
        return QStringLiteral("a FIFO");
    if (S_ISSOCK(mode))
        return QStringLiteral("a socket");
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return QStringLiteral("a device");
    return QStringLiteral("not a regular file");
}

} // namespace

void UniqueFd::reset(int fd)
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = fd;
}

namespace safefile {

QString refusal(const struct stat& st, Owner owner)
{
    if (!S_ISREG(st.st_mode))
        return kindOf(st.st_mode);
    if (st.st_nlink != 1)
        return QStringLiteral("a file with %1 links").arg(st.st_nlink);
    if (!owner.accepts(st.st_uid))
        return QStringLiteral("owned by uid %1").arg(st.st_uid);
    return {};
}

UniqueFd openFile(int dirfd, const QByteArray& name, int flags, Owner owner, QString* why, struct stat* out)
{
    UniqueFd fd(::openat(dirfd, name.constData(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY, 0600));
    if (!fd) {
        setWhy(why, errno == ELOOP ? QStringLiteral("a symbolic link") : errorText(errno));
        return {};
    }
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0) {
        setWhy(why, errorText(errno));
        return {};
    }
    if (const QString refused = refusal(st, owner); !refused.isEmpty()) {
        setWhy(why, refused);
        return {};
    }
    // O_NONBLOCK stays: it only kept the open from waiting on a FIFO, and
    // reads and writes of a regular file ignore it.
    if (out)
        *out = st;
    return fd;
}

UniqueFd openFolder(int dirfd, const QByteArray& name, Owner owner, QString* why)
{
    UniqueFd fd(::openat(dirfd, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        const int error = errno;
        struct stat st {};
        const bool link = error == ELOOP
                          || (error == ENOTDIR && ::fstatat(dirfd, name.constData(), &st, AT_SYMLINK_NOFOLLOW) == 0
                              && S_ISLNK(st.st_mode));
        setWhy(why, link ? QStringLiteral("a symbolic link")
                    : error == ENOTDIR ? QStringLiteral("not a folder")
                                       : errorText(error));
        return {};
    }
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0) {
        setWhy(why, errorText(errno));
        return {};
    }
    if (!owner.accepts(st.st_uid)) {
        setWhy(why, QStringLiteral("owned by uid %1").arg(st.st_uid));
        return {};
    }
    if ((st.st_mode & (S_IWGRP | S_IWOTH)) && !(st.st_mode & S_ISVTX)) {
        setWhy(why, QStringLiteral("writable by others without the sticky bit (mode %1)")
                        .arg(st.st_mode & 07777, 4, 8, QLatin1Char('0')));
        return {};
    }
    return fd;
}

bool removeFile(int dirfd, const QByteArray& name, Owner owner, std::optional<FileIdentity> identity, QString* why)
{
    struct stat st {};
    if (::fstatat(dirfd, name.constData(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        setWhy(why, errorText(errno));
        return false;
    }
    if (const QString refused = refusal(st, owner); !refused.isEmpty()) {
        setWhy(why, refused);
        return false;
    }
    if (identity && !(*identity == FileIdentity::of(st))) {
        setWhy(why, QStringLiteral("replaced by another file"));
        return false;
    }
    // In a sticky folder nobody but the owner (and root) can rename or
    // remove this entry, so the name still stands for the file checked.
    if (::unlinkat(dirfd, name.constData(), 0) != 0) {
        setWhy(why, errorText(errno));
        return false;
    }
    return true;
}

std::optional<QByteArray> readAll(int fd, qint64 limit, qint64 expectedSize)
{
    QByteArray data;
    // A regular file of a known size is read in one call: a read shorter
    // than asked is its end.
    const bool sized = expectedSize >= 0 && expectedSize < limit;
    QByteArray buffer(sized ? qsizetype(expectedSize) + 1 : qsizetype(1 << 16), Qt::Uninitialized);
    while (data.size() <= limit) {
        const ssize_t got = ::read(fd, buffer.data(), size_t(buffer.size()));
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return std::nullopt;
        }
        if (got == 0)
            break;
        data.append(buffer.constData(), qsizetype(got));
        if (sized && got < buffer.size())
            break;
    }
    if (data.size() > limit + 1)
        data.truncate(limit + 1);
    return data;
}

namespace {

// Copies all of in (from its start) to out; answers 0 or the errno.
int copyData(int in, int out)
{
    off_t offset = 0;
    for (;;) {
        // copy_file_range shares blocks where the file system can, and
        // never passes the data through user space.
        const ssize_t n = ::copy_file_range(in, &offset, out, nullptr, 1 << 30, 0);
        if (n > 0)
            continue;
        if (n == 0)
            return 0;
        if (errno == EINTR)
            continue;
        if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)
            return errno;
        break;
    }
    // Older kernels and some file systems: plain reads and writes.
    char buffer[1 << 16];
    for (;;) {
        const ssize_t got = ::pread(in, buffer, sizeof buffer, offset);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return errno;
        if (got == 0)
            return 0;
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = ::write(out, buffer + done, size_t(got - done));
            if (put < 0 && errno == EINTR)
                continue;
            if (put < 0)
                return errno;
            done += put;
        }
        offset += got;
    }
}

} // namespace

bool copyToNewFile(int fd, const QString& path, QString* why, int* error)
{
    const auto failed = [&](int code) {
        setWhy(why, errorText(code));
        if (error)
            *error = code;
        return false;
    };
    UniqueFd out(::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!out)
        return failed(errno);
    if (const int code = copyData(fd, out.get()))
        return failed(code);
    if (::close(out.release()) != 0)
        return failed(errno);
    return true;
}

UniqueFd copyToUnnamedFile(int fd, const QByteArray& folder, int* error)
{
    UniqueFd out(::open(folder.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (!out) {
        *error = errno;
        return {};
    }
    if (const int code = copyData(fd, out.get())) {
        *error = code;
        return {};
    }
    *error = 0;
    return out;
}

int linkUnnamedFile(int fd, const QByteArray& path)
{
    // A name that exists (a link too) is never replaced. Linux 6.10 and
    // later name a file by its descriptor for the process that opened it;
    // before that, only through /proc, the way open(2) documents.
    // (Older kernels answer ENOENT, as for a missing folder.)
    static std::atomic<bool> byDescriptor = true;
    const bool tried = byDescriptor;
    if (tried) {
        if (::linkat(fd, "", AT_FDCWD, path.constData(), AT_EMPTY_PATH) == 0)
            return 0;
        if (errno != ENOENT && errno != EPERM && errno != EINVAL)
            return errno;
    }
    const QByteArray self = "/proc/self/fd/" + QByteArray::number(fd);
    if (::linkat(AT_FDCWD, self.constData(), AT_FDCWD, path.constData(), AT_SYMLINK_FOLLOW) != 0)
        return errno;
    byDescriptor = false; // /proc can, the descriptor could not
    return 0;
}

} // namespace safefile

PrivateDirState inspect_private_dir(const QString& dir, QString* reason)
{
    struct stat info = {};
    if (::lstat(QFile::encodeName(dir).constData(), &info) != 0) {
        if (errno == ENOENT)
            return PrivateDirState::Missing;
        *reason = QStringLiteral("cannot inspect folder %1: %2").arg(dir, errorText(errno));
        return PrivateDirState::Unsafe;
    }
    if (!S_ISDIR(info.st_mode)) {
        *reason = QStringLiteral("%1 is not a folder").arg(dir);
        return PrivateDirState::Unsafe;
    }
    if (info.st_uid != ::geteuid()) {
        *reason = QStringLiteral("folder %1 is owned by uid %2, not by this user (uid %3)")
                      .arg(dir)
                      .arg(info.st_uid)
                      .arg(::geteuid());
        return PrivateDirState::Unsafe;
    }
    if ((info.st_mode & 077) != 0) {
        *reason = QStringLiteral("folder %1 is accessible to other users (mode %2, expected 700)")
                      .arg(dir)
                      .arg(info.st_mode & 0777, 3, 8, QLatin1Char('0'));
        return PrivateDirState::Unsafe;
    }
    return PrivateDirState::Safe;
}

bool ensure_private_dir(const QString& dir, QString* reason)
{
    if (inspect_private_dir(dir, reason) == PrivateDirState::Missing) {
        const QString parent = QFileInfo(dir).absolutePath();
        if (!QDir().mkpath(parent)) {
            *reason = QStringLiteral("cannot create folder %1").arg(parent);
            return false;
        }
        if (::mkdir(QFile::encodeName(dir).constData(), 0700) != 0 && errno != EEXIST) {
            *reason = QStringLiteral("cannot create folder %1: %2").arg(dir, errorText(errno));
            return false;
        }
    }
    // Checked again after creating: whoever won a race for the name must
    // still pass.
    switch (inspect_private_dir(dir, reason)) {
    case PrivateDirState::Safe:
        return true;
    case PrivateDirState::Missing:
        *reason = QStringLiteral("folder %1 vanished").arg(dir);
        return false;
    case PrivateDirState::Unsafe:
        return false;
    }
    return false;
}

} // namespace quirepad
