#pragma once

namespace quirepad {

class AppSession;
class CommandLine;

// "quirepad print-web-view URL [options]": a web page to PDF.
void addCaptureCommands(CommandLine& commandLine, AppSession& session);

} // namespace quirepad
