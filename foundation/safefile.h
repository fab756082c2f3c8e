#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

#include <sys/stat.h>
#include <sys/types.h>

namespace quirepad {

// Owns one file descriptor; closes it when it goes.
class UniqueFd
{
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return m_fd; }
    bool isValid() const { return m_fd >= 0; }
    explicit operator bool() const { return isValid(); }
    int release()
    {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }
    void reset(int fd = -1);

private:
    int m_fd = -1;
};

// Which file a name stood for when it was checked.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileIdentity&) const = default;
    static FileIdentity of(const struct stat& st) { return {st.st_dev, st.st_ino}; }
};

// Folders and files that other users can write into are handled through
// these: nothing is followed, nothing blocks, and a file is only used when
// it is a regular file with one link, owned by the expected user, as seen
// on its own open descriptor.
namespace safefile {

// The owners a check accepts: one user, or that user and root.
struct Owner {
    uid_t uid;
    bool rootToo = false;
    bool accepts(uid_t owner) const { return owner == uid || (rootToo && owner == 0); }
};

// Why a file of a shared folder was refused; empty when it is usable.
QString refusal(const struct stat& st, Owner owner);

// Opens name relative to dirfd (or an absolute or cwd-relative path with
// AT_FDCWD) without following a final link and without blocking, then
// checks the descriptor: a regular file, one link, owned as asked.
// flags adds to O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY; O_CREAT is
// allowed (the new file gets mode 0600). The reason of a refusal goes to
// *why.
UniqueFd openFile(int dirfd, const QByteArray& name, int flags, Owner owner, QString* why = nullptr,
                  struct stat* st = nullptr);

// Opens a folder without following a final link and checks that it is
// one owned as asked, and closed to others' writes unless sticky.
UniqueFd openFolder(int dirfd, const QByteArray& name, Owner owner, QString* why = nullptr);

// Removes name from dirfd when it is still a regular file with one link,
// owned as asked (and the same file as identity, when given). Never
// recurses. Answers whether it was removed.
bool removeFile(int dirfd, const QByteArray& name, Owner owner, std::optional<FileIdentity> identity = {},
                QString* why = nullptr);

// Reads at most limit + 1 bytes from an open file (more than limit: the
// caller sees the size and decides). With the size of a regular file
// known (fstat), one read usually does.
std::optional<QByteArray> readAll(int fd, qint64 limit, qint64 expectedSize = -1);

// Copies an open file into a new file at path (created exclusively, mode
// 0600, no link followed). Answers whether all of it was written.
// *error gets the errno of a failure.
bool copyToNewFile(int fd, const QString& path, QString* why = nullptr, int* error = nullptr);

// Copies an open file into a new file without a name in folder
// (O_TMPFILE, mode 0600): nobody sees it, and nothing is left behind when
// the process dies, until linkUnnamedFile() names it. Invalid with the
// errno in *error (EOPNOTSUPP, EISDIR: the file system cannot).
UniqueFd copyToUnnamedFile(int fd, const QByteArray& folder, int* error);
// Gives such a file its name; never replaces an existing one (EEXIST).
// Answers 0 or the errno.
int linkUnnamedFile(int fd, const QByteArray& path);

} // namespace safefile

// A folder of the user's own, closed to everybody else: created with mode
// 0700 when missing (its parents as needed); an existing one must be a
// real folder (no link), owned by this user, with no access for others.
enum class PrivateDirState { Missing, Safe, Unsafe };
PrivateDirState inspect_private_dir(const QString& dir, QString* reason);
bool ensure_private_dir(const QString& dir, QString* reason);

} // namespace quirepad
