#include "RequestRunner.h"

#include "AppSession.h"
#include "CommandLine.h"
#include "CommandLineDialogService.h"
#include "ScopedDialogService.h"

#include "pipeline/PluginInstaller.h"
#include "pipeline/jobinfo.h"

#include <QGuiApplication>
#include <QTextStream>
#include <QTimer>

namespace quirepad {

namespace {

// What the dialogs would have said goes after the command's own messages;
// a reason the command already gave is not repeated.
void addReports(InstanceReply& reply, const QList<CommandLineDialogService::Report>& reports)
{
    for (const CommandLineDialogService::Report& report : reports) {
        if (report.failure && reply.status == 0)
            reply.status = 1;
        if (!report.detail.isEmpty() && reply.err.contains(report.detail))
            continue;
        reply.err += QStringLiteral("quirepad: %1\n").arg(report.text);
    }
}

} // namespace

RequestRunner::RequestRunner(const CommandLine& commandLine, AppSession& session)
    : m_commandLine(commandLine)
    , m_session(session)
{
}

InstanceReply RequestRunner::run(const InstanceRequest& request) const
{
    const ScopedDialogService<CommandLineDialogService> dialogs;
    InstanceReply reply
        = request.kind == InstanceRequest::Kind::Open ? openFiles(request.arguments) : runCommand(request);
    addReports(reply, dialogs.service().reports());
    return reply;
}

InstanceReply RequestRunner::runCommand(const InstanceRequest& request) const
{
    QString out, err;
    QTextStream outStream(&out), errStream(&err);
    const int status = m_commandLine.execute(request.arguments, outStream, errStream, request.workingDirectory);
    outStream.flush();
    errStream.flush();
    return { status, out, err };
}

InstanceReply RequestRunner::openFiles(const QStringList& paths) const
{
    MainAppDelegate& delegate = m_session.delegate();
    const QString& first = paths.value(0);
    if (first == SpoolLocations::endTrigger()) {
        delegate.openFiles(paths); // a scan
        return {};
    }
    if (PluginInstaller::isPackage(first))
        return installPackages(paths);
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        delegate.applicationContext().insert(QStringLiteral("do_follow_mouse"), currentPointerPosition());
    // Delivered now, so that what goes wrong reaches the caller. Files that
    // arrive while a batch runs follow it, and answer to the desktop.
    if (!delegate.processPDFFiles(paths))
        return { 1, {}, QStringLiteral("quirepad: stopped before every file was delivered\n") };
    return { 0, QStringLiteral("%1 file(s) taken into the queue\n").arg(paths.size()), {} };
}

InstanceReply RequestRunner::installPackages(const QStringList& paths) const
{
    MainAppDelegate& delegate = m_session.delegate();
    // With windows the running program asks the user itself, once this
    // request has been answered; the desktop hands packages over this way.
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        QTimer::singleShot(0, &delegate, [&delegate, paths] { delegate.openFiles(paths); });
        return { 0, QStringLiteral("the running Quirepad asks before installing %1\n").arg(paths.join(QStringLiteral(", "))), {} };
    }
    // Without them, naming the package on the command line is the consent.
    InstanceReply reply;
    for (const QString& path : paths) {
        PluginInstaller installer(&delegate.workflowLibrary());
        installer.setInteractive(false);
        const PluginInstaller::Result result = installer.install(path);
        if (result.outcome == PluginInstaller::Outcome::Installed) {
            reply.out += QStringLiteral("installed %1 into %2\n").arg(result.name, result.targetFolder);
        } else {
            reply.status = 1;
            reply.err += QStringLiteral("quirepad: %1: %2\n").arg(path, result.error.simplified());
        }
    }
    return reply;
}

} // namespace quirepad
