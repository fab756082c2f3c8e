// quirepad: the CUPS backend of the "Print_to_Quirepad" queue.
//
// Without arguments it prints its device line for CUPS' device discovery.
// As a job it saves the PDF it receives (from the file named in argv[6], or
// from standard input) into the spool folder shared with the Quirepad
// application, next to a "<job>.info" file that describes the job, and then
// touches the end trigger file that every running Quirepad watches.
//
//   quirepad job-id user title copies options [file]
//
// The shared folder is $QUIREPAD_SHARED_DIR (CUPS sets it from a SetEnv line
// in cups-files.conf; CUPS 2.4 ignores SetEnv in cupsd.conf),
// else /var/spool/quirepad. See `man backend` for the status codes.

#include "jobname.h"
#include "jobowner.h"
#include "spool.h"

#include <cups/backend.h>
#include <cups/cups.h>

#include <cerrno>
#include <climits>
#include <optional>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace quirepad::backend;

namespace {

constexpr const char* kDefaultSharedDir = "/var/spool/quirepad";
constexpr const char* kSpoolFolder = "quirepad_spool";
constexpr const char* kEndTrigger = ".quirepad_trigger_file_end";
constexpr const char* kDestinationOption = "quirepad-destination";
constexpr const char* kHostOption = "job-originating-host-name";
// Hidden temporaries older than this were left by a killed job.
constexpr long kStaleTemporarySeconds = 60 * 60;
// CUPS' own default MaxCopies.
constexpr long kMaxCopies = 9999;

void on_sigterm(int)
{
    g_canceled = 1;
}

void install_signal_handlers()
{
    struct sigaction action {
    };
    action.sa_handler = on_sigterm;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0; // no SA_RESTART: a blocking read returns EINTR
    ::sigaction(SIGTERM, &action, nullptr);
    ::signal(SIGPIPE, SIG_IGN);
}

std::string shared_directory()
{
    const char* env = std::getenv("QUIREPAD_SHARED_DIR");
    std::string dir = env && *env ? env : kDefaultSharedDir;
    while (dir.size() > 1 && dir.back() == '/')
        dir.pop_back();
    return dir;
}

// Opens one of the shared folders for use: not a link, a folder owned by
// root (or by whoever runs the backend, in an unprivileged setup), and
// sticky when others may write into it, so that nobody can rename or remove
// another user's files there. Answers the descriptor, or -1 with the
// reason in *why.
int open_shared_folder(int dirfd, const std::string& name, std::string* why)
{
    const int fd = ::openat(dirfd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        const int error = errno;
        struct stat st;
        // O_DIRECTORY wins over O_NOFOLLOW: a link answers ENOTDIR.
        const bool link = error == ELOOP
            || (error == ENOTDIR && ::fstatat(dirfd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0
                && S_ISLNK(st.st_mode));
        *why = link ? "it is a symbolic link" : error == ENOTDIR ? "it is not a folder" : std::strerror(error);
        return -1;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        *why = std::strerror(errno);
    } else if (st.st_uid != 0 && st.st_uid != ::geteuid()) {
        *why = "it is owned by uid " + std::to_string(st.st_uid) + ", not by root";
    } else if ((st.st_mode & (S_IWGRP | S_IWOTH)) && !(st.st_mode & S_ISVTX)) {
        *why = "others may write into it but it lacks the sticky bit";
    } else {
        return fd;
    }
    ::close(fd);
    return -1;
}

std::string host_name()
{
    char name[HOST_NAME_MAX + 1] = {};
    if (::gethostname(name, sizeof name - 1) != 0)
        return {};
    return name;
}

long parse_copies(const char* text)
{
    char* end = nullptr;
    errno = 0;
    const long n = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || n < 1)
        return 1;
    return n > kMaxCopies ? kMaxCopies : n;
}

// The keys the backend writes itself; a job option of the same name would
// otherwise replace them for the application (later lines win there).
bool is_reserved_key(std::string_view key)
{
    for (std::string_view reserved : { "NAME", "TITLE", "USER", "HOST", "JOB_ID", "COPIES" })
        if (key == reserved)
            return true;
    return false;
}

// Option keys go into the info file only when the application reads them
// back exactly as written (letters, digits, "_", "-", "."): a key that it
// would trim or read differently could pass for a reserved one.
bool is_plain_key(std::string_view key)
{
    if (key.empty())
        return false;
    for (const char c : key) {
        const bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_'
            || c == '-' || c == '.';
        if (!ok)
            return false;
    }
    return true;
}

struct Job {
    std::string id;
    std::string user;
    std::string title;
    long copies = 1;
    std::string destination; // quirepad-destination, may be empty
    std::string host; // job-originating-host-name or "localhost"
    bool remote = false;
};

std::string info_text(const Job& job, int numOptions, cups_option_t* options)
{
    std::string text;
    const auto line = [&text](std::string_view key, std::string_view value) {
        text.append(one_line(key)).append("=").append(one_line(value)).append("\n");
    };
    if (!job.destination.empty())
        line("NAME", job.destination);
    line("TITLE", job.title);
    line("USER", job.user);
    line("HOST", job.host);
    line("JOB_ID", job.id);
    line("COPIES", std::to_string(job.copies));
    for (int i = 0; i < numOptions; ++i) {
        const std::string_view key = options[i].name;
        const std::string_view value = options[i].value ? options[i].value : "";
        if (value.empty() || !is_plain_key(key) || key == kDestinationOption || key == kHostOption
            || is_reserved_key(key))
            continue;
        line(key, value);
    }
    return text;
}

// Owner and mode of the job files: the submitting user's for a local job,
// the console user's for a remote one. Nobody to give them to: no access
// (the job is then held in CUPS' queue, never written readable by all).
std::optional<FileAccess> file_access(const Job& job)
{
    FileAccess access;
    std::optional<JobOwner> owner;
    if (job.remote) {
        std::string warning;
        owner = console_user(&warning);
        if (!warning.empty())
            std::fprintf(stderr, "WARNING: %s\n", warning.c_str());
    } else {
        owner = lookup_user(job.user);
        if (!owner) {
            std::fprintf(
                stderr, "DEBUG: No account named \"%s\", giving the job to the console user\n", job.user.c_str());
            owner = console_user(nullptr);
        }
    }
    if (!owner)
        return std::nullopt;
    access.mode = 0600;
    access.uid = owner->uid;
    access.gid = owner->gid;
    access.chown = ::geteuid() == 0;
    std::fprintf(stderr, "DEBUG: Job files go to %s (uid %u)\n", owner->name.c_str(), unsigned(owner->uid));
    return access;
}

// Wakes every running Quirepad: it watches this file with inotify.
void touch_end_trigger(int sharedFd, const std::string& sharedDir)
{
    const std::string path = sharedDir + "/" + kEndTrigger;
    // No O_TRUNC before the checks, O_NOFOLLOW and O_NONBLOCK: the shared
    // folder is writable by everyone, so a link, a FIFO or somebody's file
    // planted there must not make root write elsewhere, hang, or change it.
    const int fd = ::openat(sharedFd, kEndTrigger, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0777);
    if (fd < 0) {
        std::fprintf(stderr, "WARNING: Unable to open %s: %s; running Quirepad applications were not told\n",
            path.c_str(), std::strerror(errno));
        return;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_nlink != 1
        || (st.st_uid != 0 && st.st_uid != ::geteuid())) {
        std::fprintf(stderr, "WARNING: %s is not a plain file of root's, left alone (run install-driver.sh again)\n",
            path.c_str());
        ::close(fd);
        return;
    }
    bool ok = ::ftruncate(fd, 0) == 0 && ::write(fd, "x", 1) == 1;
    if (!ok)
        std::fprintf(stderr, "WARNING: Unable to write %s: %s\n", path.c_str(), std::strerror(errno));
    if ((st.st_mode & 07777) != 0777 && ::fchmod(fd, 0777) != 0)
        std::fprintf(
            stderr, "WARNING: Unable to make %s writable by everyone: %s\n", path.c_str(), std::strerror(errno));
    ::close(fd);
}

int run_job(int argc, char** argv)
{
    Job job;
    job.id = argv[1];
    job.user = argv[2];
    job.title = argv[3];
    job.copies = parse_copies(argv[4]);

    Document document;
    if (argc == 7) {
        document.fd = ::open(argv[6], O_RDONLY | O_CLOEXEC);
        if (document.fd < 0) {
            std::fprintf(stderr, "ERROR: Unable to open print file %s: %s\n", argv[6], std::strerror(errno));
            return CUPS_BACKEND_FAILED;
        }
        document.rereadable = true;
    } else {
        document.fd = STDIN_FILENO;
    }

    const std::string shared = shared_directory();
    const std::string spoolDir = shared + "/" + kSpoolFolder;
    std::string why;
    const int sharedFd = open_shared_folder(AT_FDCWD, shared, &why);
    if (sharedFd < 0) {
        std::fprintf(stderr, "ERROR: The Quirepad folder %s cannot be used: %s; run install-driver.sh again\n",
            shared.c_str(), why.c_str());
        return CUPS_BACKEND_STOP;
    }
    const int spoolFd = open_shared_folder(sharedFd, kSpoolFolder, &why);
    if (spoolFd < 0) {
        std::fprintf(stderr, "ERROR: The Quirepad spool folder %s cannot be used: %s; run install-driver.sh again\n",
            spoolDir.c_str(), why.c_str());
        ::close(sharedFd);
        return CUPS_BACKEND_STOP;
    }

    cups_option_t* options = nullptr;
    const int numOptions = cupsParseOptions(argv[5], 0, &options);
    if (const char* dest = cupsGetOption(kDestinationOption, numOptions, options))
        job.destination = dest;
    const char* origin = cupsGetOption(kHostOption, numOptions, options);
    job.host = origin && *origin ? origin : "localhost";
    job.remote = origin && *origin && !is_local_host(origin, host_name());
    const std::string info = info_text(job, numOptions, options);
    cupsFreeOptions(numOptions, options);

    const std::optional<FileAccess> access = file_access(job);
    if (!access) {
        // Held in CUPS' own spool, readable by nobody else, until someone
        // releases it (lp -i ID -H resume) with a user at the console; the
        // queue goes on with other jobs meanwhile.
        std::fprintf(stderr,
            "ERROR: Nobody is logged in at the console to receive the job from %s; "
            "it is held in the print queue (release it with lp -i %s -H resume)\n",
            job.remote ? job.host.c_str() : job.user.c_str(), job.id.c_str());
        ::close(spoolFd);
        ::close(sharedFd);
        return CUPS_BACKEND_HOLD;
    }
    const std::string base = job_base_name(job.user, job.title, job.remote ? job.host : std::string());
    // The file given on the command line has not been copied yet; standard
    // input has (CUPS' filters made the copies).
    const long jobs = document.rereadable ? job.copies : 1;

    try {
        Spool spool(spoolFd, spoolDir);
        spool.removeStaleTemporaries(kStaleTemporarySeconds);
        try {
            for (long i = 0; i < jobs; ++i) {
                const std::string name = spool.addJob(document, info, base, *access);
                std::fprintf(stderr, "INFO: Saved %s\n", name.c_str());
            }
        } catch (...) {
            spool.rollback();
            throw;
        }
    } catch (const BackendError& error) {
        std::fprintf(
            stderr, "%s: %s\n", error.status() == CUPS_BACKEND_FAILED && g_canceled ? "INFO" : "ERROR", error.what());
        ::close(sharedFd);
        return error.status();
    }
    if (document.rereadable)
        ::close(document.fd);

    touch_end_trigger(sharedFd, shared);
    ::close(sharedFd);
    return CUPS_BACKEND_OK;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 1) {
        std::puts("direct quirepad \"Quirepad\" \"Print to Quirepad\"");
        return CUPS_BACKEND_OK;
    }
    if (argc < 6 || argc > 7) {
        std::fprintf(stderr, "Usage: %s job-id user title copies options [file]\n", argv[0]);
        return CUPS_BACKEND_FAILED;
    }
    install_signal_handlers();
    return run_job(argc, argv);
}
