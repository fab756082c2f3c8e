#include "RequestRunner.h"

#include "AppSession.h"
#include "CommandLine.h"
#include "CommandLineDialogService.h"
#include "ScopedDialogService.h"

#include "pipeline/jobinfo.h"

#include <QGuiApplication>
#include <QTextStream>

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
    if (first == SpoolLocations::endTrigger() || first.endsWith(QLatin1String(".qpdplugin"))
        || first.endsWith(QLatin1String(".qpdfilter"))) {
        delegate.openFiles(paths); // a scan, or a package this version declines
        return {};
    }
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        delegate.applicationContext().insert(QStringLiteral("do_follow_mouse"), currentPointerPosition());
    // Delivered now, so that what goes wrong reaches the caller. Files that
    // arrive while a batch runs follow it, and answer to the desktop.
    if (!delegate.processPDFFiles(paths))
        return { 1, {}, QStringLiteral("quirepad: stopped before every file was delivered\n") };
    return { 0, QStringLiteral("%1 file(s) taken into the queue\n").arg(paths.size()), {} };
}

} // namespace quirepad
