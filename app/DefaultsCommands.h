#pragma once

namespace quirepad {

class AppSession;
class CommandLine;

// "quirepad defaults read|write|delete": the user's settings.
void addDefaultsCommands(CommandLine& commandLine, AppSession& session);

} // namespace quirepad
