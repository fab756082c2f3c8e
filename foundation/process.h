#pragma once

#include "foundation/ProcessRunner.h"

#include <QString>
#include <QStringList>

#include <chrono>

namespace quirepad {

// Runs a command line with /bin/ksh in the application folder (a path to an
// existing file runs as a script) and answers its standard output with one
// trailing newline dropped; a null string when it printed nothing, exited
// with a status other than 0, or ran past the time limit.
QString eval_shell(const QString& command,
                   std::chrono::milliseconds timeout = ProcessRunner::defaultTimeout);

// Runs an executable with the arguments as they are (no shell), logs its
// output as ">>>output" and answers its exit status (-1 when it could not
// start, crashed or was killed at the time limit).
int exec_command(const QString& path, const QStringList& arguments,
                 std::chrono::milliseconds timeout = ProcessRunner::defaultTimeout);

} // namespace quirepad
