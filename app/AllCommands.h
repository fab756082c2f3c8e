#pragma once

namespace quirepad {

class AppSession;
class CommandLine;

// Registers every command of the quirepad executable.
void addAllCommands(CommandLine& commandLine, AppSession& session);

} // namespace quirepad
