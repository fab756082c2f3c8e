#pragma once

namespace quirepad {

class AppSession;
class CommandLine;

// "quirepad scan | stop | clear-queue | install-driver": the job queue.
void addQueueCommands(CommandLine& commandLine, AppSession& session);

} // namespace quirepad
