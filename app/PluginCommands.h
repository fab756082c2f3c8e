#pragma once

namespace quirepad {

class AppSession;
class CommandLine;

// "quirepad plugins list|install|remove|samples|create" and the same for
// "filters": the user's own workflows, the packages that bring them and the
// samples they can start from.
void addPluginCommands(CommandLine& commandLine, AppSession& session);

} // namespace quirepad
