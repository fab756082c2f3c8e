#pragma once

#include "InstanceMessage.h"

namespace quirepad {

class AppSession;
class CommandLine;

// Does in this process what a command line asked for: runs a command, or
// delivers the files it named. Whether the request came over the socket or
// from this process's own arguments, the work answers to that command
// line: what it would ask or tell in a dialog is added to the reply's
// standard error instead, and a failure reported that way makes the status
// non-zero. Dialogs stay for the work the desktop starts.
class RequestRunner
{
public:
    RequestRunner(const CommandLine& commandLine, AppSession& session);

    InstanceReply run(const InstanceRequest& request) const;

private:
    InstanceReply runCommand(const InstanceRequest& request) const;
    InstanceReply openFiles(const QStringList& paths) const;
    InstanceReply installPackages(const QStringList& paths) const;

    const CommandLine& m_commandLine;
    AppSession& m_session;
};

} // namespace quirepad
