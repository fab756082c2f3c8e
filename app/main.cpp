#include "AllCommands.h"
#include "AppSession.h"
#include "CommandClient.h"
#include "CommandLine.h"
#include "JobQueueCommands.h"
#include "RequestRunner.h"
#include "ScriptingService.h"
#include "SingleInstance.h"
#include "UnixSignalWatcher.h"
#include "WebCaptureClient.h"

#include "foundation/DialogService.h"
#include "foundation/LoopStallMonitor.h"
#include "foundation/QtDialogService.h"
#include "foundation/Shutdown.h"
#include "foundation/dialogs.h"
#include "network/NetworkServices.h"
#include "pipeline/jobinfo.h"
#include "ui/ApplicationShell.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QTextStream>
#include <QTimer>

#include <memory>

#include <sys/ioctl.h>
#include <unistd.h>

using namespace quirepad;

namespace {

// The user's instance: takes print jobs from the spool, serves forwarded
// commands and files, until SIGINT or SIGTERM; then saves.
int runInstance(QCoreApplication& app, bool withWindows)
{
    QTextStream err(stderr);
    SingleInstance instance;
    if (!instance.tryToRun()) {
        if (instance.errorString().isEmpty() && withWindows) {
            // Starting it again brings up the running one's preferences.
            InstanceRequest request;
            request.kind = InstanceRequest::Kind::Command;
            request.arguments = QStringList { QStringLiteral("preferences") };
            request.workingDirectory = QDir::currentPath();
            const ForwardResult result = SingleInstance::forward(request);
            err << "quirepad: another Quirepad is already running";
            if (result.answered())
                err << "; " << (result.reply.status == 0 ? result.reply.out.trimmed() : result.reply.err.trimmed());
            err << '\n';
            return 0;
        }
        if (instance.errorString().isEmpty()) {
            err << "quirepad: another Quirepad is already running\n";
            return 1;
        }
        err << "quirepad: " << instance.errorString() << '\n';
        return 1;
    }
    if (withWindows)
        DialogService::setCurrent(std::make_unique<QtDialogService>());

    AppSession session;
    session.setInstance(true);
    CommandLine commandLine;
    addAllCommands(commandLine, session);
    const RequestRunner runner(commandLine, session);
    MainAppDelegate& delegate = session.delegate(); // settings registered, store opened
    // With a display: the panel asks for destinations, the tray offers the
    // commands; quitting saves first.
    std::unique_ptr<ApplicationShell> shell;
    if (withWindows) {
        QApplication::setQuitOnLastWindowClosed(false);
        shell = std::make_unique<ApplicationShell>(delegate);
        session.setPreferencesHandler([&shell] { shell->showPreferences(); });
        setQueueWindowHandler([&shell] { shell->showQueue(); });
        shell->startTrayOrWindow(); // the tray icon, or a window where there is no tray
        QObject::connect(shell.get(), &ApplicationShell::quitRequested, &app, [&] {
            delegate.stopProcessing();
            if (delegate.applicationShouldTerminate() == MainAppDelegateBase::TerminateReply::Now)
                Shutdown::request();
        });
    }
    NetworkServices network;
    session.setNetworkServices(&network);
    if (shell) {
        shell->setNetworkStatus([&network] { return std::make_pair(network.feedUrl(), network.airPrintSummary()); });
        QObject::connect(
            &network, &NetworkServices::stateChanged, shell.get(), &ApplicationShell::refreshNetworkStatus);
        QObject::connect(shell.get(), &ApplicationShell::settingsChanged, &network, &NetworkServices::applySettings);
        // A web page from the tray: printed to PDF, then handled like a
        // printed job (the panel asks where it goes).
        QObject::connect(shell.get(), &ApplicationShell::webPagePrintRequested, &app, [&](const QUrl& url) {
            const WebCaptureClient::Result result = session.webCapture().capture(url, {});
            if (result.path.isEmpty()) {
                MYDisplayAlert(QStringLiteral("The page %1 could not be printed: %2")
                                   .arg(url.toString(),
                                       result.error.isEmpty() ? QStringLiteral("it did not load") : result.error));
                return;
            }
            delegate.processPDFFiles({ result.path });
        });
    }
    // Scripts ask for web pages as PDF over the session bus.
    ScriptingService scripting([&session](const QUrl& url, const QVariantMap& parameters) {
        return session.webCapture().capture(url, parameters).path;
    });
    // Offered once the jobs waiting at start are on their way.
    QTimer::singleShot(300, &scripting, &ScriptingService::registerOnSessionBus);
    instance.setHandler([&](const InstanceRequest& request) -> InstanceReply {
        const InstanceReply reply = runner.run(request);
        if (request.kind == InstanceRequest::Kind::Command) {
            // A command may have changed settings or destinations.
            if (shell)
                shell->applySettings();
            network.applySettings();
        }
        return reply;
    });

    // Diagnostics: how long the event loop ever went unserved.
    LoopStallMonitor::startFromEnvironment(&app);

    UnixSignalWatcher signalWatcher;
    QObject::connect(&signalWatcher, &UnixSignalWatcher::terminationRequested, &app, [&] {
        // Whatever the batch waits for (a child, the panel, a dialog, a
        // rescan) stops waiting; the job in hand stays in the spool.
        delegate.stopProcessing();
        Shutdown::request();
    });
    // The launch checks may ask questions: they run inside the event loop,
    // so a termination request during one ends the program.
    QTimer::singleShot(0, &app, [&] {
        delegate.applicationDidFinishLaunching();
        network.start();
        err << "quirepad: running" << (withWindows ? "" : " headless") << " as process "
            << QCoreApplication::applicationPid() << "; spool " << SpoolLocations::spoolDirectory() << '\n';
        err.flush();
    });
    const int status = app.exec();
    setQueueWindowHandler(nullptr);
    shell.reset();
    delegate.saveAction();
    return status;
}

bool allExistingPaths(const QStringList& arguments)
{
    for (const QString& argument : arguments)
        if (!QFileInfo::exists(argument))
            return false;
    return !arguments.isEmpty();
}

bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

// A listing shaped to the terminal says how wide the terminal is: the
// command may run in the instance, which has no terminal.
QStringList withTerminalWidth(const QStringList& arguments)
{
    const bool table = arguments.size() >= 2 && arguments.at(0) == QLatin1String("destinations")
        && arguments.at(1) == QLatin1String("list");
    winsize size {};
    if (!table || arguments.contains(QLatin1String("--width")) || !::isatty(STDOUT_FILENO)
        || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return arguments;
    return arguments + QStringList { QStringLiteral("--width"), QString::number(size.ws_col) };
}

int runCommandLine(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    QTextStream out(stdout);
    QTextStream err(stderr);
    const QString first = arguments.value(0);

    // A command prints its own results; the program's running commentary
    // stays out of the way unless asked for (QT_LOGGING_RULES).
    if (qEnvironmentVariableIsEmpty("QT_LOGGING_RULES"))
        QLoggingCategory::setFilterRules(QStringLiteral("quirepad.*.info=false"));

    AppSession session;
    CommandLine commandLine;
    addAllCommands(commandLine, session);
    // Options, help and a command's usage are answered here: nothing is
    // run, nothing is forwarded.
    if (first.startsWith(u'-') || first == QLatin1String("help")
        || (commandLine.hasCommand(first) && CommandLine::asksForHelp(arguments.mid(1))))
        return commandLine.execute(arguments, out, err);

    InstanceRequest request;
    request.workingDirectory = QDir::currentPath();
    if (commandLine.hasCommand(first)) {
        request.kind = InstanceRequest::Kind::Command;
        request.arguments = withTerminalWidth(arguments);
    } else if (allExistingPaths(arguments)) {
        request.kind = InstanceRequest::Kind::Open;
        for (const QString& path : arguments)
            request.arguments << QFileInfo(path).absoluteFilePath();
    } else {
        return commandLine.execute(arguments, out, err); // reports the unknown command
    }

    // A running instance does the work; without one, this process does.
    // Once the request went to an instance it is never done here as well.
    const RequestRunner runner(commandLine, session);
    CommandClient client([&runner](const InstanceRequest& here) { return runner.run(here); });
    ForwardOptions options;
    options.waiting = [&err] {
        err << QStringLiteral("quirepad: waiting for the running Quirepad\u2026\n");
        err.flush();
    };
    client.setOptions(std::move(options));
    const InstanceReply result = client.run(request);
    out << result.out;
    err << result.err;
    out.flush();
    err.flush();
    return result.status;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication::setApplicationName(QStringLiteral("Quirepad"));
    QCoreApplication::setOrganizationName(QStringLiteral("Quirepad"));
    const QString first = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();

    if (first == QLatin1String("--headless")) {
        if (argc > 2) {
            QTextStream(stderr) << "quirepad: --headless takes no arguments\n";
            return 2;
        }
        QCoreApplication app(argc, argv);
        return runInstance(app, false);
    }
    if (argc == 1) {
        if (!hasDisplay()) {
            QTextStream(stderr) << "quirepad: no display to show windows on; start it with --headless, "
                                   "or see quirepad --help\n";
            return 2;
        }
        QApplication app(argc, argv);
        app.setQuitOnLastWindowClosed(false);
        return runInstance(app, true);
    }
    return runCommandLine(argc, argv);
}
