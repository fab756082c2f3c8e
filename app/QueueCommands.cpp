#include "QueueCommands.h"

#include "AppSession.h"
#include "CommandLine.h"

#include "foundation/ProcessRunner.h"
#include "pipeline/DriverInstaller.h"
#include "pipeline/jobinfo.h"

#include <QStandardPaths>
#include <QTextStream>

#include <unistd.h>

namespace quirepad {

namespace {

int scan(AppSession& session, const CommandInvocation& call)
{
    if (!call.arguments.isEmpty())
        return call.fail(QStringLiteral("scan takes no arguments"), 2);
    int taken = 0;
    // The count belongs to this run of the command: the connection goes
    // with this context object when the command returns.
    const QObject counting;
    QObject::connect(&session.delegate(), &MainAppDelegate::jobFinished, &counting,
        [&taken](const QString&, bool removed) { taken += removed ? 1 : 0; });
    session.delegate().retryAgrain();
    call.out << taken << " job(s) delivered\n";
    return 0;
}

// The installer's options a user may pass on; everything else is refused.
bool takeInstallerOptions(const CommandInvocation& call, QStringList& options, QString& problem)
{
    const QStringList& args = call.arguments;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& arg = args.at(i);
        if (arg == QLatin1String("--share") || arg == QLatin1String("--no-queue")) {
            options << arg;
        } else if (arg == QLatin1String("--cupsd-conf")) {
            if (i + 1 >= args.size()) {
                problem = QStringLiteral("--cupsd-conf needs a file");
                return false;
            }
            options << arg << call.absolutePath(args.at(++i));
        } else {
            problem = QStringLiteral("install-driver: unknown argument %1").arg(arg);
            return false;
        }
    }
    return true;
}

void writeLines(QTextStream& stream, const QByteArray& text)
{
    if (text.isEmpty())
        return;
    stream << QString::fromLocal8Bit(text);
    if (!text.endsWith('\n'))
        stream << '\n';
}

int installDriver(const AppSession& session, const CommandInvocation& call)
{
    QStringList arguments;
    QString problem;
    if (!takeInstallerOptions(call, arguments, problem))
        return call.fail(problem, 2);
    const DriverInstaller& installer = session.driverInstaller();
    const ProcessRunner::Result result = installer.run(arguments);
    writeLines(call.out, result.standardOutput);
    writeLines(call.err, result.standardError);
    if (!result.started)
        return call.fail(QStringLiteral("the driver installer %1 could not be started: %2")
                             .arg(installer.installerScript(), result.errorString));
    if (result.timedOut || result.interrupted || result.crashed)
        return call.fail(QStringLiteral("the driver installer did not finish (%1)")
                             .arg(result.timedOut         ? QStringLiteral("it took too long")
                                     : result.interrupted ? QStringLiteral("Quirepad is ending")
                                                          : QStringLiteral("it crashed")));
    if (result.exitCode != 0)
        return call.fail(QStringLiteral("the driver installer ended with status %1").arg(result.exitCode));
    call.out << "the print driver is installed; spool: " << SpoolLocations::spoolDirectory() << '\n';
    return 0;
}

} // namespace

void addQueueCommands(CommandLine& commandLine, AppSession& session)
{
    commandLine.addCommand(
        { QStringLiteral("scan"), QString(), QStringLiteral("take this user's print jobs from the spool now"),
            [&session](const CommandInvocation& call) { return scan(session, call); }, {}, QStringList() });
    commandLine.addCommand(
        { QStringLiteral("stop"), QString(), QStringLiteral("stop the running batch after the current job"),
            [&session](const CommandInvocation& call) {
                if (!call.arguments.isEmpty())
                    return call.fail(QStringLiteral("stop takes no arguments"), 2);
                if (!session.isInstance())
                    return call.fail(QStringLiteral("no Quirepad is running"));
                session.delegate().stopProcessing();
                return 0;
            },
            {}, QStringList() });
    commandLine.addCommand({ QStringLiteral("clear-queue"), QString(),
        QStringLiteral("delete every job in the spool that this user may delete"),
        [&session](const CommandInvocation& call) {
            if (!call.arguments.isEmpty())
                return call.fail(QStringLiteral("clear-queue takes no arguments"), 2);
            session.delegate().clearQueue();
            return 0;
        },
        {}, QStringList() });
    commandLine.addCommand({ QStringLiteral("install-driver"),
        QStringLiteral("[--share] [--no-queue] [--cupsd-conf FILE]"),
        QStringLiteral("install the CUPS backend, its PPD and the print queue\n"
                       "The queue is \"Print_to_Quirepad\". As root, or through pkexec, for the shared folder in use\n"
                       "($QUIREPAD_SHARED_DIR).\n"
                       "  --share            share the queue with other devices\n"
                       "  --no-queue         leave the CUPS queues alone\n"
                       "  --cupsd-conf FILE  the scheduler's configuration file"),
        [&session](const CommandInvocation& call) { return installDriver(session, call); }, {},
        QStringList { QStringLiteral("--share"), QStringLiteral("--no-queue"), QStringLiteral("--cupsd-conf=") } });
}

} // namespace quirepad
