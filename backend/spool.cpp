#include "spool.h"

#include "jobname.h"

#include <cups/backend.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quirepad::backend {

volatile std::sig_atomic_t g_canceled = 0;

namespace {

std::string describe(int error)
{
    return std::strerror(error);
}

// Errors that say the spool itself is unusable (permissions, read-only,
// gone) rather than out of room for now.
bool is_configuration_error(int error)
{
    return error == EACCES || error == EPERM || error == EROFS || error == ENOENT || error == ENOTDIR;
}

[[noreturn]] void write_failure(const std::string& what, int error)
{
    throw BackendError(
        is_configuration_error(error) ? CUPS_BACKEND_STOP : CUPS_BACKEND_RETRY, what + ": " + describe(error));
}

void check_canceled()
{
    if (g_canceled)
        throw BackendError(CUPS_BACKEND_FAILED, "Job canceled");
}

std::string random_suffix()
{
    unsigned char bytes[6];
    std::size_t got = 0;
    while (got < sizeof bytes) {
        const ssize_t n = ::getrandom(bytes + got, sizeof bytes - got, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        got += std::size_t(n);
    }
    if (got < sizeof bytes) { // no entropy source: fall back on pid and time
        const auto mix = std::uint64_t(::getpid()) * 0x9E3779B97F4A7C15ull ^ std::uint64_t(::time(nullptr));
        std::memcpy(bytes, &mix, sizeof bytes);
    }
    static const char digits[] = "0123456789abcdef";
    std::string out;
    for (unsigned char b : bytes) {
        out += digits[b >> 4];
        out += digits[b & 15];
    }
    return out;
}

// Renames from to to within one folder without replacing an existing file.
// Answers 0 or an errno value (EEXIST when to is taken).
int rename_noreplace(int dirfd, const std::string& from, const std::string& to)
{
    if (::renameat2(dirfd, from.c_str(), dirfd, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
        return errno;
    // A file system without RENAME_NOREPLACE: a hard link fails the same
    // way on a taken name.
    if (::linkat(dirfd, from.c_str(), dirfd, to.c_str(), 0) == 0) {
        ::unlinkat(dirfd, from.c_str(), 0);
        return 0;
    }
    if (errno == EEXIST || (errno != EPERM && errno != ENOTSUP && errno != EOPNOTSUPP))
        return errno;
    // No hard links either: check, then rename (the spool folder is sticky,
    // so only another job of the same owner could race here).
    struct stat st;
    if (::fstatat(dirfd, to.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
        return EEXIST;
    return ::renameat(dirfd, from.c_str(), dirfd, to.c_str()) == 0 ? 0 : errno;
}

} // namespace

class Spool::TempFile
{
public:
    TempFile(int dirfd, const std::string& spoolPath)
        : m_dirfd(dirfd)
    {
        for (int attempt = 0; attempt < 100; ++attempt) {
            m_name = ".quirepad-" + random_suffix() + ".part";
            m_fd = ::openat(dirfd, m_name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
            if (m_fd >= 0 || errno != EEXIST)
                break;
        }
        if (m_fd < 0)
            write_failure("Unable to create a file in " + spoolPath, errno);
    }
    ~TempFile()
    {
        close();
        if (!m_name.empty())
            ::unlinkat(m_dirfd, m_name.c_str(), 0);
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    int fd() const { return m_fd; }
    const std::string& name() const { return m_name; }
    // Answers 0 or the errno of a failed close (delayed write errors).
    int close()
    {
        int error = 0;
        if (m_fd >= 0 && ::close(m_fd) != 0 && errno != EINTR)
            error = errno;
        m_fd = -1;
        return error;
    }
    // The file was renamed away: nothing left to remove.
    void released() { m_name.clear(); }
    // The file came back under its temporary name.
    void restored(const std::string& name) { m_name = name; }

private:
    int m_dirfd;
    int m_fd = -1;
    std::string m_name;
};

Spool::Spool(int dirfd, const std::string& path)
    : m_path(path)
    , m_dirfd(dirfd)
{
}

Spool::~Spool()
{
    if (m_dirfd >= 0)
        ::close(m_dirfd);
}

void Spool::copyDocument(const Document& document, TempFile& out)
{
    static char buffer[1 << 16];
    off_t offset = 0;
    for (;;) {
        check_canceled();
        const ssize_t got = document.rereadable ? ::pread(document.fd, buffer, sizeof buffer, offset)
                                                : ::read(document.fd, buffer, sizeof buffer);
        if (got < 0) {
            if (errno == EINTR)
                continue;
            throw BackendError(CUPS_BACKEND_FAILED, "Unable to read print data: " + describe(errno));
        }
        if (got == 0)
            break;
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = ::write(out.fd(), buffer + done, std::size_t(got - done));
            if (put < 0) {
                if (errno == EINTR) {
                    check_canceled();
                    continue;
                }
                write_failure("Unable to write to " + m_path, errno);
            }
            done += put;
        }
        offset += got;
    }
    if (offset == 0)
        throw BackendError(CUPS_BACKEND_FAILED, "The print data is empty (0 bytes), nothing to save");
}

void Spool::writeText(const std::string& text, TempFile& out)
{
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t put = ::write(out.fd(), text.data() + done, text.size() - done);
        if (put < 0) {
            if (errno == EINTR)
                continue;
            write_failure("Unable to write to " + m_path, errno);
        }
        done += std::size_t(put);
    }
}

void Spool::finish(TempFile& file, const FileAccess& access)
{
    if (::fsync(file.fd()) != 0)
        write_failure("Unable to write to " + m_path, errno);
    // The mode first, while the file is still root's: it is never readable
    // by anybody but its owner.
    if (::fchmod(file.fd(), access.mode) != 0)
        write_failure("Unable to set permissions in " + m_path, errno);
    if (access.chown && ::fchown(file.fd(), access.uid, access.gid) != 0)
        throw BackendError(CUPS_BACKEND_RETRY,
            "Unable to give the job to uid " + std::to_string(access.uid) + ": " + describe(errno));
    // close() reports delayed write errors of some file systems (NFS).
    if (const int error = file.close())
        write_failure("Unable to write to " + m_path, error);
}

std::string Spool::place(TempFile& doc, TempFile& info, const std::string& base)
{
    for (unsigned n = 0; n < 1000000; ++n) {
        check_canceled();
        const std::string name = candidate_name(base, n);
        const std::string infoName = name + ".info";
        struct stat st;
        if (::fstatat(m_dirfd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0)
            continue;
        if (errno != ENOENT)
            write_failure("Unable to look at " + m_path + "/" + name, errno);

        // The info goes first: a job never shows without it.
        int error = rename_noreplace(m_dirfd, info.name(), infoName);
        if (error == EEXIST)
            continue; // a leftover info: leave it alone and use the next name
        if (error != 0)
            write_failure("Unable to rename into " + m_path, error);
        const std::string infoTemp = info.name();
        info.released();
        m_placed.push_back(infoName);

        error = rename_noreplace(m_dirfd, doc.name(), name);
        if (error == 0) {
            doc.released();
            m_placed.push_back(name);
            if (::fsync(m_dirfd) != 0)
                write_failure("Unable to write to " + m_path, errno);
            return name;
        }
        // Someone took the name in between: take the info back.
        m_placed.pop_back();
        if (::renameat(m_dirfd, infoName.c_str(), m_dirfd, infoTemp.c_str()) == 0)
            info.restored(infoTemp);
        else
            ::unlinkat(m_dirfd, infoName.c_str(), 0);
        if (error != EEXIST)
            write_failure("Unable to rename into " + m_path, error);
        if (info.name().empty())
            throw BackendError(CUPS_BACKEND_RETRY, "Lost the job information while renaming it in " + m_path);
    }
    throw BackendError(CUPS_BACKEND_RETRY, "No free file name left in " + m_path + " for " + base);
}

std::string Spool::addJob(
    const Document& document, const std::string& info, const std::string& base, const FileAccess& access)
{
    TempFile infoFile(m_dirfd, m_path);
    writeText(info, infoFile);
    finish(infoFile, access);

    TempFile docFile(m_dirfd, m_path);
    copyDocument(document, docFile);
    finish(docFile, access);

    return place(docFile, infoFile, base);
}

namespace {

bool is_temporary_name(const char* name)
{
    const std::string_view text(name);
    constexpr std::string_view prefix = ".quirepad-", suffix = ".part";
    if (text.size() != prefix.size() + 12 + suffix.size() || text.substr(0, prefix.size()) != prefix
        || text.substr(text.size() - suffix.size()) != suffix)
        return false;
    for (const char c : text.substr(prefix.size(), 12))
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            return false;
    return true;
}

} // namespace

int Spool::removeStaleTemporaries(long maxAgeSeconds)
{
    const int fd = ::dup(m_dirfd);
    if (fd < 0)
        return 0;
    DIR* dir = ::fdopendir(fd);
    if (!dir) {
        ::close(fd);
        return 0;
    }
    const time_t now = ::time(nullptr);
    int removed = 0;
    while (const dirent* entry = ::readdir(dir)) {
        if (!is_temporary_name(entry->d_name))
            continue;
        struct stat st;
        if (::fstatat(m_dirfd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode)
            || st.st_nlink != 1 || now - st.st_mtime < maxAgeSeconds)
            continue;
        if (::unlinkat(m_dirfd, entry->d_name, 0) == 0) {
            std::fprintf(stderr, "INFO: Removed %s, left by an interrupted job\n", entry->d_name);
            ++removed;
        }
    }
    ::closedir(dir);
    return removed;
}

void Spool::rollback()
{
    for (const std::string& name : m_placed)
        ::unlinkat(m_dirfd, name.c_str(), 0);
    m_placed.clear();
    ::fsync(m_dirfd);
}

} // namespace quirepad::backend
