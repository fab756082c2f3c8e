#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace quirepad {

class AppSession;
class CommandLine;
struct CommandInvocation;

// "quirepad deliver ..." and "quirepad workflows list|install-samples".
void addDeliveryCommands(CommandLine& commandLine, AppSession& session);

// Delivers private copies of the files to the destination with the id or
// name given, with the job's TITLE, USER and HOST from jobInfo; prints each
// delivered file. Answers the exit status.
int deliverFiles(AppSession& session, const CommandInvocation& call, const QString& id, const QStringList& files,
                 const QVariantMap& jobInfo);

} // namespace quirepad
