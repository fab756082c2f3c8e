#include "JobQueueCommands.h"

#include "AppSession.h"
#include "CommandLine.h"

#include "pipeline/JobQueue.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QTextStream>

#include <cstdio>

#include <unistd.h>

namespace quirepad {

namespace {

std::function<void()>& queueWindowHandler()
{
    static std::function<void()> handler;
    return handler;
}

QString ageText(qint64 seconds)
{
    if (seconds < 60)
        return QStringLiteral("%1s").arg(seconds);
    if (seconds < 3600)
        return QStringLiteral("%1m").arg(seconds / 60);
    if (seconds < 86400)
        return QStringLiteral("%1h").arg(seconds / 3600);
    return QStringLiteral("%1d").arg(seconds / 86400);
}

int list(const JobQueue& queue, const CommandInvocation& call, bool json)
{
    const QList<QueuedJob> jobs = queue.jobs();
    const QDateTime now = QDateTime::currentDateTime();
    if (json) {
        QJsonArray array;
        for (const QueuedJob& job : jobs)
            array.append(QJsonObject { { QStringLiteral("id"), job.id }, { QStringLiteral("title"), job.title },
                { QStringLiteral("owner"), job.owner },
                { QStringLiteral("queued"),
                    job.queued.toOffsetFromUtc(job.queued.offsetFromUtc()).toString(Qt::ISODate) },
                { QStringLiteral("age_seconds"), qMax<qint64>(0, job.queued.secsTo(now)) },
                { QStringLiteral("size"), job.size }, { QStringLiteral("reason"), job.reasonText() },
                { QStringLiteral("remote"), job.remote } });
        call.out << QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
        return 0;
    }
    if (jobs.isEmpty()) {
        call.out << "no print jobs wait\n";
        return 0;
    }
    int titleWidth = 5;
    for (const QueuedJob& job : jobs)
        titleWidth = qMin(40, qMax(titleWidth, int(job.title.size())));
    const QLocale locale;
    call.out << QStringLiteral("%1  %2  %3  %4  %5  %6\n")
                    .arg(QStringLiteral("ID"), -8)
                    .arg(QStringLiteral("TITLE"), -titleWidth)
                    .arg(QStringLiteral("OWNER"), -10)
                    .arg(QStringLiteral("AGE"), 4)
                    .arg(QStringLiteral("SIZE"), 9)
                    .arg(QStringLiteral("WHY"));
    for (const QueuedJob& job : jobs) {
        QString title = job.title;
        if (title.size() > titleWidth)
            title = title.left(titleWidth - 1) + QChar(0x2026);
        call.out << QStringLiteral("%1  %2  %3  %4  %5  %6\n")
                        .arg(job.id, -8)
                        .arg(title, -titleWidth)
                        .arg(job.owner, -10)
                        .arg(ageText(qMax<qint64>(0, job.queued.secsTo(now))), 4)
                        .arg(locale.formattedDataSize(job.size, 1, QLocale::DataSizeTraditionalFormat), 9)
                        .arg(job.reasonText());
    }
    return 0;
}

// Asks on the terminal; only where this process has one.
bool confirmOnTerminal(int count, QTextStream& out)
{
    if (!::isatty(STDIN_FILENO))
        return false;
    out << QStringLiteral("Remove %n waiting print job(s)? [y/N] ")
               .replace(QStringLiteral("%n"), QString::number(count));
    out.flush();
    char answer[16] = {};
    if (!std::fgets(answer, sizeof answer, stdin))
        return false;
    return answer[0] == 'y' || answer[0] == 'Y';
}

int run(AppSession& session, const CommandInvocation& call)
{
    const QStringList& args = call.arguments;
    const QString sub = args.value(0);
    JobQueue queue(session.delegate());
    if (args.isEmpty() || (args.size() == 1 && sub == QLatin1String("--json")))
        return list(queue, call, !args.isEmpty());
    QString why;
    if (sub == QLatin1String("retry") && args.size() <= 2) {
        if (args.size() == 1) {
            queue.retryAll();
            return 0;
        }
        return queue.retry(args.at(1), &why) ? 0 : call.fail(why);
    }
    if (sub == QLatin1String("deliver") && args.size() == 3)
        return queue.deliver(args.at(1), args.at(2), &why) ? 0 : call.fail(why);
    if (sub == QLatin1String("remove") && args.size() == 2 && args.at(1) != QLatin1String("--all"))
        return queue.remove(args.at(1), &why) ? 0 : call.fail(why);
    if (sub == QLatin1String("remove") && args.at(1) == QLatin1String("--all")
        && (args.size() == 2 || (args.size() == 3 && args.at(2) == QLatin1String("--yes")))) {
        const qsizetype waiting = queue.jobs().size();
        // A forwarded command runs in the instance, which has no terminal
        // of the caller's to ask on.
        if (args.size() == 2 && (session.isInstance() || !confirmOnTerminal(int(waiting), call.out)))
            return call.fail(session.isInstance() || !::isatty(STDIN_FILENO)
                    ? QStringLiteral("queue remove --all asks first; confirm with --yes")
                    : QStringLiteral("nothing removed"),
                session.isInstance() || !::isatty(STDIN_FILENO) ? 2 : 1);
        call.out << queue.removeAll() << " job(s) removed\n";
        return 0;
    }
    if (sub == QLatin1String("show") && args.size() == 1) {
        if (!session.isInstance())
            return call.fail(QStringLiteral("no Quirepad is running"));
        if (!queueWindowHandler())
            return call.fail(QStringLiteral("the running Quirepad has no windows (--headless)"));
        queueWindowHandler()();
        call.out << "the queue is open\n";
        return 0;
    }
    return call.fail(
        QStringLiteral("queue: unknown or incomplete arguments: %1 (see quirepad queue --help)").arg(args.join(u' ')),
        2);
}

} // namespace

void setQueueWindowHandler(std::function<void()> handler)
{
    queueWindowHandler() = std::move(handler);
}

void addJobQueueCommands(CommandLine& commandLine, AppSession& session)
{
    commandLine.addCommand({ QStringLiteral("queue"),
        QStringLiteral("[--json] | retry [ID] | deliver ID DESTINATION | remove ID | remove --all [--yes] | show"),
        QStringLiteral("list this user's print jobs waiting in the spool (ID, title, owner, age, size, why);\n"
                       "--json prints them as an array of objects (id, title, owner, queued, age_seconds,\n"
                       "size, reason, remote); retry delivers one job (or all) again; deliver sends a job\n"
                       "to a destination whatever it names; remove deletes a job, --all every one (asks\n"
                       "first unless --yes); show opens the queue window of the running Quirepad"),
        [&session](const CommandInvocation& call) { return run(session, call); } });
}

} // namespace quirepad
