#pragma once

namespace quirepad {

class AppSession;
class CommandLine;

// "quirepad deliver ..." and "quirepad workflows list|install-samples".
void addDeliveryCommands(CommandLine& commandLine, AppSession& session);

} // namespace quirepad
