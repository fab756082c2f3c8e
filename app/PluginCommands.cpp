#include "PluginCommands.h"

#include "AppSession.h"
#include "CommandLine.h"

#include "pipeline/MainAppDelegate.h"
#include "pipeline/PluginInstaller.h"
#include "pipeline/UserWorkflows.h"
#include "pipeline/WorkflowCreator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>

namespace quirepad {

namespace {

constexpr const char* kSynopsis = "list [--json] | install FILE | remove NAME | samples | create SAMPLE NAME";

QString commandName(WorkflowKind kind)
{
    return kind == WorkflowKind::Plugin ? QStringLiteral("plugins") : QStringLiteral("filters");
}

int list(WorkflowKind kind, const CommandInvocation& call)
{
    const QStringList& args = call.arguments;
    if (args.size() > 2 || (args.size() == 2 && args.at(1) != QLatin1String("--json")))
        return call.fail(QStringLiteral("%1 list takes only --json").arg(commandName(kind)), 2);
    const QList<UserWorkflows::Entry> entries = UserWorkflows(kind).list();
    if (args.size() == 2) {
        QJsonArray array;
        for (const UserWorkflows::Entry& entry : entries)
            array.append(
                QJsonObject { { QStringLiteral("name"), entry.name }, { QStringLiteral("path"), entry.path } });
        call.out << QJsonDocument(array).toJson(QJsonDocument::Indented);
        return 0;
    }
    for (const UserWorkflows::Entry& entry : entries)
        call.out << entry.name << "  " << entry.path << '\n';
    return 0;
}

int install(WorkflowKind kind, AppSession& session, const CommandInvocation& call)
{
    if (call.arguments.size() != 2)
        return call.fail(QStringLiteral("usage: %1 install FILE").arg(commandName(kind)), 2);
    const QString path = call.absolutePath(call.arguments.at(1));
    if (PluginInstaller::kindOf(path) != kind)
        return call.fail(
            QStringLiteral("%1 is not a %2 package (.%3)")
                .arg(path, UserWorkflows::kindName(kind),
                    kind == WorkflowKind::Plugin ? QStringLiteral("qpdplugin") : QStringLiteral("qpdfilter")),
            2);
    // Running the command is the user's consent: nothing is asked.
    PluginInstaller installer(&session.delegate().workflowLibrary());
    installer.setInteractive(false);
    const PluginInstaller::Result result = installer.install(path);
    for (const QString& file : result.installed)
        call.out << "installed " << file << '\n';
    for (const QString& file : result.kept)
        call.out << "kept " << file << " (already there; remove it first to replace it)\n";
    if (result.outcome != PluginInstaller::Outcome::Installed)
        return call.fail(result.error.simplified());
    call.out << result.name << " installed into " << result.targetFolder << '\n';
    return 0;
}

int remove(WorkflowKind kind, AppSession& session, const CommandInvocation& call)
{
    if (call.arguments.size() != 2)
        return call.fail(QStringLiteral("usage: %1 remove NAME").arg(commandName(kind)), 2);
    QString why;
    if (!UserWorkflows(kind).remove(call.arguments.at(1), &why))
        return call.fail(why);
    session.delegate().workflowLibrary().refreshPluginList();
    call.out << "removed " << call.arguments.at(1) << '\n';
    return 0;
}

int create(WorkflowKind kind, AppSession& session, const CommandInvocation& call)
{
    if (call.arguments.size() != 3)
        return call.fail(QStringLiteral("usage: %1 create SAMPLE NAME").arg(commandName(kind)), 2);
    if (const std::optional<QString> problem = WorkflowCreator::nameProblem(call.arguments.at(2)))
        return call.fail(*problem, 2);
    // The name is given, so nothing is asked; the copy is not opened.
    WorkflowCreator creator(kind, &session.delegate().workflowLibrary());
    const WorkflowCreator::Result result = creator.create(call.arguments.at(1), call.arguments.at(2), false);
    switch (result.outcome) {
    case WorkflowCreator::Outcome::Created:
        call.out << result.path << '\n';
        return 0;
    case WorkflowCreator::Outcome::Existing:
        return call.fail(
            QStringLiteral("%1 is there already and is kept (remove it first to replace it)").arg(result.path));
    case WorkflowCreator::Outcome::Refused:
        return call.fail(result.error, 2);
    case WorkflowCreator::Outcome::Cancelled:
    case WorkflowCreator::Outcome::Failed:
        break;
    }
    return call.fail(result.error);
}

int samples(WorkflowKind kind, const CommandInvocation& call)
{
    if (call.arguments.size() != 1)
        return call.fail(QStringLiteral("%1 samples takes no arguments").arg(commandName(kind)), 2);
    for (const WorkflowCreator::Sample& sample : WorkflowCreator(kind).samples())
        call.out << sample.id << "  " << sample.title << '\n';
    return 0;
}

int run(WorkflowKind kind, AppSession& session, const CommandInvocation& call)
{
    const QString sub = call.arguments.value(0);
    if (sub == QLatin1String("list"))
        return list(kind, call);
    if (sub == QLatin1String("install"))
        return install(kind, session, call);
    if (sub == QLatin1String("remove"))
        return remove(kind, session, call);
    if (sub == QLatin1String("samples"))
        return samples(kind, call);
    if (sub == QLatin1String("create"))
        return create(kind, session, call);
    return call.fail(QStringLiteral("usage: %1 %2").arg(commandName(kind), QString::fromLatin1(kSynopsis)), 2);
}

} // namespace

void addPluginCommands(CommandLine& commandLine, AppSession& session)
{
    for (const WorkflowKind kind : { WorkflowKind::Plugin, WorkflowKind::Filter }) {
        const bool plugin = kind == WorkflowKind::Plugin;
        commandLine.addCommand({ commandName(kind), QString::fromLatin1(kSynopsis),
            plugin ? QStringLiteral("your plugin workflows: list, install, remove, copy a sample\n"
                                    "The plugin workflows of yours in ${APP_SUPPORT_PLUGINS}: list them,\n"
                                    "install a .qpdplugin package (files already there are kept),\n"
                                    "remove one by name, list the samples, or copy a sample as\n"
                                    "NAME.workflow (printing its path; an existing one is kept)")
                   : QStringLiteral("your filter workflows: list, install, remove, copy a sample\n"
                                    "The filter workflows of yours in ${APP_SUPPORT_PLUGINS}/Filters: list\n"
                                    "them, install a .qpdfilter package (files already there are\n"
                                    "kept), remove one by name, list the samples, or copy a sample\n"
                                    "as NAME.workflow (printing its path; an existing one is kept)"),
            [kind, &session](const CommandInvocation& call) { return run(kind, session, call); }, {},
            QStringList { QStringLiteral("--json") } });
    }
}

} // namespace quirepad
