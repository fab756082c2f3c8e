#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace quirepad::backend {

// The account that receives a job's files.
struct JobOwner {
    std::string name;
    uid_t uid = 0;
    gid_t gid = 0;
};

// The account of a user name, if there is one.
std::optional<JobOwner> lookup_user(const std::string& name);

// The user sitting at this machine, who receives jobs printed from other
// machines: $QUIREPAD_CONSOLE_USER when it names an account, else the user
// of a live USER_PROCESS utmp entry on a local console line (a graphical
// display ":N" first, then a virtual terminal "ttyN" or "console").
// $QUIREPAD_UTMP_FILE replaces the system utmp file (tests, unusual
// systems). Messages about ignored settings go to *warning.
std::optional<JobOwner> console_user(std::string* warning);

} // namespace quirepad::backend
