#pragma once

namespace quirepad {

class AppSession;
class CommandLine;

// "quirepad airprint status | feed url": the services on the network.
void addNetworkCommands(CommandLine& commandLine, AppSession& session);

} // namespace quirepad
