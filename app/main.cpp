#include "AppSession.h"
#include "CommandLine.h"
#include "DefaultsCommands.h"
#include "DeliveryCommands.h"
#include "DestinationCommands.h"
#include "SingleInstance.h"
#include "UnixSignalWatcher.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QTextStream>

using namespace quirepad;

namespace {

void addCommands(CommandLine& commandLine, AppSession& session)
{
    addDestinationCommands(commandLine, session);
    addDefaultsCommands(commandLine, session);
    addDeliveryCommands(commandLine, session);
}

InstanceReply runHere(const CommandLine& commandLine, const InstanceRequest& request)
{
    if (request.kind == InstanceRequest::Kind::Open) {
        return {1, QString(),
                QStringLiteral("quirepad: received %1 file(s), but documents cannot be processed yet: "
                               "the print pipeline is not built\n")
                    .arg(request.arguments.size())};
    }
    QString out, err;
    QTextStream outStream(&out), errStream(&err);
    const int status = commandLine.execute(request.arguments, outStream, errStream, request.workingDirectory);
    outStream.flush();
    errStream.flush();
    return {status, out, err};
}

// The user's instance without windows: serves forwarded commands and files
// until SIGINT or SIGTERM, then saves.
int runHeadless(QCoreApplication& app)
{
    QTextStream err(stderr);
    SingleInstance instance;
    if (!instance.tryToRun()) {
        err << "quirepad: " << (instance.errorString().isEmpty() ? QStringLiteral("another Quirepad is already running")
                                                                 : instance.errorString())
            << '\n';
        return 1;
    }
    AppSession session;
    CommandLine commandLine;
    addCommands(commandLine, session);
    session.delegate(); // settings registered and the store opened before the first request
    instance.setHandler([&commandLine](const InstanceRequest& request) { return runHere(commandLine, request); });

    UnixSignalWatcher signalWatcher;
    QObject::connect(&signalWatcher, &UnixSignalWatcher::terminationRequested, &app, [&] {
        session.delegate().saveAction();
        app.quit();
    });
    err << "quirepad: running headless as process " << QCoreApplication::applicationPid() << '\n';
    err.flush();
    const int status = app.exec();
    session.delegate().saveAction();
    return status;
}

bool allExistingPaths(const QStringList& arguments)
{
    for (const QString& argument : arguments)
        if (!QFileInfo::exists(argument))
            return false;
    return !arguments.isEmpty();
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Quirepad"));
    QCoreApplication::setOrganizationName(QStringLiteral("Quirepad"));

    const QStringList arguments = QCoreApplication::arguments().mid(1);
    QTextStream out(stdout);
    QTextStream err(stderr);
    const QString first = arguments.value(0);

    if (first == QLatin1String("--headless"))
        return runHeadless(app);

    // A command prints its own results; the program's running commentary
    // stays out of the way unless asked for (QT_LOGGING_RULES).
    if (qEnvironmentVariableIsEmpty("QT_LOGGING_RULES"))
        QLoggingCategory::setFilterRules(QStringLiteral("quirepad.*.info=false"));

    AppSession session;
    CommandLine commandLine;
    addCommands(commandLine, session);
    if (arguments.isEmpty() || first.startsWith(u'-') || first == QLatin1String("help"))
        return commandLine.execute(arguments, out, err);

    InstanceRequest request;
    request.workingDirectory = QDir::currentPath();
    if (commandLine.hasCommand(first)) {
        request.kind = InstanceRequest::Kind::Command;
        request.arguments = arguments;
    } else if (allExistingPaths(arguments)) {
        request.kind = InstanceRequest::Kind::Open;
        for (const QString& path : arguments)
            request.arguments << QFileInfo(path).absoluteFilePath();
    } else {
        return commandLine.execute(arguments, out, err); // reports the unknown command
    }

    // A running instance does the work; without one, this process does.
    const std::optional<InstanceReply> reply = SingleInstance::forward(request);
    const InstanceReply result = reply ? *reply : runHere(commandLine, request);
    out << result.out;
    err << result.err;
    out.flush();
    err.flush();
    return result.status;
}
