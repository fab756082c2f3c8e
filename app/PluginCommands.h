#pragma once

namespace quirepad {

class AppSession;
class CommandLine;

// "quirepad plugins list|install|remove" and the same for "filters": the
// user's own workflows and the packages that bring them.
void addPluginCommands(CommandLine& commandLine, AppSession& session);

} // namespace quirepad
