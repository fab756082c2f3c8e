#include "DeliveryCommands.h"

#include "AppSession.h"
#include "CommandLine.h"

#include "foundation/fileutil.h"
#include "pipeline/ProcessorFactory.h"
#include "pipeline/WorkflowLibrary.h"
#include "pipeline/filters.h"

#include <QTextStream>

namespace quirepad {

namespace {

int deliver(AppSession& session, const CommandInvocation& call)
{
    QStringList files;
    QVariantMap jobInfo;
    QString id;
    const QStringList& args = call.arguments;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString& arg = args.at(i);
        if (arg == QLatin1String("--title") || arg == QLatin1String("--user") || arg == QLatin1String("--host")) {
            if (i + 1 >= args.size())
                return call.fail(QStringLiteral("%1 needs a value").arg(arg), 2);
            jobInfo.insert(arg.mid(2).toUpper(), args.at(++i));
        } else if (arg.startsWith(QLatin1String("--"))) {
            return call.fail(QStringLiteral("unknown option %1").arg(arg), 2);
        } else if (id.isNull()) {
            id = arg;
        } else {
            files << call.absolutePath(arg);
        }
    }
    if (id.isEmpty() || files.isEmpty())
        return call.fail(QStringLiteral("usage: deliver ID FILE... [--title T] [--user U] [--host H]"), 2);
    for (const QString& file : files)
        if (!file_exists(file))
            return call.fail(QStringLiteral("%1 is not a file").arg(file));
    return deliverFiles(session, call, id, files, jobInfo);
}

} // namespace

int deliverFiles(AppSession& session, const CommandInvocation& call, const QString& id, const QStringList& files,
    const QVariantMap& jobInfo)
{
    ManagedObjectContext* context = session.context();
    if (!context)
        return call.fail(QStringLiteral("the destination store is not available"));

    // The user's own files are never changed: compression and filters work
    // on private copies.
    const QStringList copies = make_temp_fl(files);
    int status = 0;
    for (const QString& copy : copies) {
        std::unique_ptr<CopyFileProcessor> processor = copyProcessorForName(*context, id);
        if (!processor)
            return call.fail(QStringLiteral("no destination with id or name '%1'").arg(id));
        QVariantMap info = jobInfo;
        info.insert(QStringLiteral("NAME"), id);
        processor->setContext(info);
        if (!processor->processFile(copy)) {
            status = call.fail(
                QStringLiteral("%1 was not delivered: %2").arg(path_basename(copy), processor->failureReason()));
            continue;
        }
        if (!processor->resultFile.isEmpty())
            call.out << processor->resultFile << '\n';
    }
    return status;
}

namespace {

int workflows(const CommandInvocation& call)
{
    WorkflowLibrary library;
    const QString sub = call.arguments.value(0);
    if (call.arguments.size() != 1 || (sub != QLatin1String("list") && sub != QLatin1String("install-samples")))
        return call.fail(QStringLiteral("usage: workflows list|install-samples"), 2);
    if (sub == QLatin1String("install-samples")) {
        const QStringList installed = library.installWorkflows();
        for (const QString& path : installed)
            call.out << "installed " << path << '\n';
        if (installed.isEmpty())
            call.out << "every sample is already installed\n";
        return 0;
    }
    library.refreshPluginList();
    call.out << "Plugins:\n";
    for (const QString& name : library.allPluginFiles())
        call.out << "  " << name << '\n';
    call.out << "Filters:\n";
    for (const QString& name : library.allFilterFiles())
        call.out << "  " << name << '\n';
    return 0;
}

} // namespace

void addDeliveryCommands(CommandLine& commandLine, AppSession& session)
{
    commandLine.addCommand({ QStringLiteral("deliver"), QStringLiteral("ID FILE... [--title T] [--user U] [--host H]"),
        QStringLiteral("deliver files to a destination as a print job would be\n"
                       "ID is a recid or a name; prints where each file went"),
        [&session](const CommandInvocation& call) { return deliver(session, call); }, {},
        QStringList { QStringLiteral("--title="), QStringLiteral("--user="), QStringLiteral("--host=") } });
    commandLine.addCommand({ QStringLiteral("workflows"), QStringLiteral("list|install-samples"),
        QStringLiteral("list the plugin and filter workflows, or install the samples\n"
                       "The samples go into ${APP_SUPPORT_PLUGINS}; a copy of yours is\n"
                       "never replaced."),
        [](const CommandInvocation& call) { return workflows(call); }, {}, QStringList() });
}

} // namespace quirepad
