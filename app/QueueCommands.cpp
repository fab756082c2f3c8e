#include "QueueCommands.h"

#include "AppSession.h"
#include "CommandLine.h"

#include "pipeline/DriverInstaller.h"
#include "pipeline/jobinfo.h"

#include <QTextStream>

namespace quirepad {

void addQueueCommands(CommandLine& commandLine, AppSession& session)
{
    commandLine.addCommand({QStringLiteral("scan"), QString(),
                            QStringLiteral("take this user's print jobs from the spool now"),
                            [&session](const CommandInvocation& call) {
                                if (!call.arguments.isEmpty())
                                    return call.fail(QStringLiteral("scan takes no arguments"), 2);
                                int taken = 0;
                                QObject::connect(&session.delegate(), &MainAppDelegate::jobFinished, &session.delegate(),
                                                 [&taken](const QString&, bool removed) { taken += removed ? 1 : 0; });
                                session.delegate().retryAgrain();
                                call.out << taken << " job(s) delivered\n";
                                return 0;
                            }});
    commandLine.addCommand({QStringLiteral("stop"), QString(),
                            QStringLiteral("stop the running batch after the current job"),
                            [&session](const CommandInvocation& call) {
                                if (!session.isInstance())
                                    return call.fail(QStringLiteral("no Quirepad is running"));
                                session.delegate().stopProcessing();
                                return 0;
                            }});
    commandLine.addCommand({QStringLiteral("clear-queue"), QString(),
                            QStringLiteral("delete every job in the spool that this user may delete"),
                            [&session](const CommandInvocation& call) {
                                if (!call.arguments.isEmpty())
                                    return call.fail(QStringLiteral("clear-queue takes no arguments"), 2);
                                session.delegate().clearQueue();
                                return 0;
                            }});
    commandLine.addCommand({QStringLiteral("install-driver"), QString(),
                            QStringLiteral("install the CUPS backend, its PPD and the \"Print_to_Quirepad\" queue\n"
                                           "(as root, or through pkexec)"),
                            [](const CommandInvocation& call) {
                                const DriverInstaller installer;
                                const int status = installer.install();
                                if (status != 0)
                                    return call.fail(QStringLiteral("the driver installer ended with status %1").arg(status));
                                call.out << "the print driver is installed; spool: " << SpoolLocations::spoolDirectory()
                                         << '\n';
                                return 0;
                            }});
}

} // namespace quirepad
