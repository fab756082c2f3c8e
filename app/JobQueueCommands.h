#pragma once

#include <functional>

namespace quirepad {

class AppSession;
class CommandLine;

// "queue": lists this user's waiting print jobs and retries, redirects or
// removes them; "queue show" opens the running instance's queue window.
void addJobQueueCommands(CommandLine& commandLine, AppSession& session);

// How the running instance shows its queue window; none without windows.
void setQueueWindowHandler(std::function<void()> handler);

} // namespace quirepad
