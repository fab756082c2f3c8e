#pragma once

#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/types.h>

namespace quirepad::backend {

// A failure that ends the job; status is the CUPS backend exit status.
class BackendError : public std::runtime_error
{
public:
    BackendError(int status, const std::string& message)
        : std::runtime_error(message)
        , m_status(status)
    {
    }
    int status() const { return m_status; }

private:
    int m_status;
};

// Set by the SIGTERM handler: CUPS cancels the job.
extern volatile std::sig_atomic_t g_canceled;

// Where the print data comes from: the file CUPS named on the command line
// (read again from the start for every copy) or standard input (read once).
struct Document {
    int fd = -1;
    bool rereadable = false;
};

// Who gets the job files, and with which permissions.
struct FileAccess {
    bool chown = false; // only when running as root
    uid_t uid = 0;
    gid_t gid = 0;
    mode_t mode = 0600;
};

// The spool folder. Every job is written under a hidden temporary name
// (".quirepad-XXXXXXXXXXXX.part"), flushed to disk, given its owner and
// mode, and only then renamed into place, the ".info" companion first; no
// existing file is ever replaced. Temporary files never outlive the object.
class Spool
{
public:
    // Takes over an open descriptor of the (checked) spool folder.
    Spool(int dirfd, const std::string& path);
    ~Spool();
    Spool(const Spool&) = delete;
    Spool& operator=(const Spool&) = delete;

    // Writes one job: the document, its info text, under the first free name
    // made from base (see candidate_name). Answers the file name used.
    // Throws BackendError: FAILED for unreadable or empty input, RETRY for
    // a write failure (full disk ...), STOP when the spool cannot be used.
    std::string addJob(
        const Document& document, const std::string& info, const std::string& base, const FileAccess& access);

    // Removes every job this object placed (after a later failure, so that
    // CUPS retrying the job does not leave duplicates behind).
    void rollback();

    // Removes what killed backends left: our hidden temporary files
    // (".quirepad-<12 hex digits>.part") older than maxAgeSeconds. Only
    // regular files with one link; links and anything else stay untouched.
    // Answers how many went.
    int removeStaleTemporaries(long maxAgeSeconds);

    const std::string& path() const { return m_path; }

private:
    class TempFile;
    void copyDocument(const Document& document, TempFile& out);
    void writeText(const std::string& text, TempFile& out);
    void finish(TempFile& file, const FileAccess& access);
    std::string place(TempFile& doc, TempFile& info, const std::string& base);

    std::string m_path;
    int m_dirfd = -1;
    std::vector<std::string> m_placed;
};

} // namespace quirepad::backend
