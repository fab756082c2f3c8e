#include "jobowner.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <pwd.h>
#include <signal.h>
#include <unistd.h>
#include <utmpx.h>

namespace quirepad::backend {

namespace {

bool process_alive(pid_t pid)
{
    if (pid <= 0)
        return true; // nothing to check against: trust the entry
    return ::kill(pid, 0) == 0 || errno == EPERM;
}

std::string field(const char* text, std::size_t size)
{
    return std::string(text, ::strnlen(text, size));
}

} // namespace

std::optional<JobOwner> lookup_user(const std::string& name)
{
    if (name.empty())
        return std::nullopt;
    long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? std::size_t(size) : 16384);
    passwd entry {};
    passwd* found = nullptr;
    while (::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found) == ERANGE)
        buffer.resize(buffer.size() * 2);
    if (!found)
        return std::nullopt;
    return JobOwner { found->pw_name, found->pw_uid, found->pw_gid };
}

std::optional<JobOwner> console_user(std::string* warning)
{
    if (const char* env = std::getenv("QUIREPAD_CONSOLE_USER"); env && *env) {
        if (auto owner = lookup_user(env))
            return owner;
        if (warning)
            *warning = std::string("QUIREPAD_CONSOLE_USER names no account (") + env + "), looking at the logins";
    }

    if (const char* file = std::getenv("QUIREPAD_UTMP_FILE"); file && *file)
        ::utmpxname(file);
    std::string display, terminal;
    ::setutxent();
    while (const utmpx* entry = ::getutxent()) {
        if (entry->ut_type != USER_PROCESS || !process_alive(entry->ut_pid))
            continue;
        const std::string line = field(entry->ut_line, sizeof entry->ut_line);
        const std::string user = field(entry->ut_user, sizeof entry->ut_user);
        if (user.empty())
            continue;
        if (line.starts_with(':')) {
            if (display.empty())
                display = user;
        } else if (line.starts_with("tty") || line == "console") {
            if (terminal.empty())
                terminal = user;
        }
    }
    ::endutxent();

    for (const std::string& user : { display, terminal })
        if (auto owner = lookup_user(user))
            return owner;
    return std::nullopt;
}

} // namespace quirepad::backend
