#pragma once

#include <QString>

namespace quirepad {

// Whether this process's login session is the active one on its seat
// (logind). Without logind there is no way to tell, and the answer is yes.
bool is_active_session();

// The short login name of the user running the program.
QString user_name();

} // namespace quirepad
