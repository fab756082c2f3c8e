#pragma once

namespace quirepad {

class AppSession;
class CommandLine;

// "quirepad destinations ...": list, add, change, remove, reorder, export
// and import destinations.
void addDestinationCommands(CommandLine& commandLine, AppSession& session);

} // namespace quirepad
