#include "pipeline/JobQueue.h"

#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"
#include "foundation/fileutil.h"
#include "foundation/session.h"
#include "pipeline/MainAppDelegate.h"
#include "pipeline/ProcessorFactory.h"
#include "pipeline/SpoolFolder.h"
#include "pipeline/jobinfo.h"
#include "store/MainAppDelegateBase.h"

#include <QCryptographicHash>
#include <QLoggingCategory>

#include <algorithm>

#include <sys/stat.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcJobQueue, "quirepad.queue", QtInfoMsg)

namespace {

const QString kMarker = QStringLiteral("-D3F2UG-");

// Stable across processes and refreshes: the name and the file it is.
QString jobId(const QString& name, const struct stat& st)
{
    QCryptographicHash hash(QCryptographicHash::Sha1);
    hash.addData(name.toUtf8());
    hash.addData(QByteArray::number(quint64(st.st_dev)) + '/' + QByteArray::number(quint64(st.st_ino)));
    return QString::fromLatin1(hash.result().toHex().left(8));
}

QString titleFromName(const QString& name)
{
    QString title = name;
    const qsizetype at = title.indexOf(kMarker);
    if (at >= 0)
        title = title.mid(at + kMarker.size());
    const qsizetype dot = title.lastIndexOf(u'.');
    return dot > 0 ? title.left(dot) : title;
}

} // namespace

QString QueuedJob::reasonText() const
{
    switch (reason) {
    case Reason::Kept:
        return JobQueue::tr("Not delivered: %1").arg(why);
    case Reason::Choosing:
        return JobQueue::tr("Waiting for a destination choice");
    case Reason::ConsoleAway:
        return JobQueue::tr("Printed remotely; waits for a session at the console");
    case Reason::Delivering:
        return JobQueue::tr("Being delivered now");
    case Reason::InBatch:
        return JobQueue::tr("In the batch now");
    case Reason::NextInLine:
        break;
    }
    return JobQueue::tr("Next in line");
}

QString QueuedJob::reasonKey(Reason reason)
{
    switch (reason) {
    case Reason::Kept:
        return QStringLiteral("kept");
    case Reason::Choosing:
        return QStringLiteral("choosing");
    case Reason::ConsoleAway:
        return QStringLiteral("console");
    case Reason::Delivering:
        return QStringLiteral("delivering");
    case Reason::InBatch:
        return QStringLiteral("batch");
    case Reason::NextInLine:
        break;
    }
    return QStringLiteral("next");
}

JobQueue::JobQueue(MainAppDelegate& delegate, QObject* parent)
    : QObject(parent)
    , m_delegate(delegate)
{
    // Reports come in bursts (a batch): one change per turn of the loop.
    m_changed.setSingleShot(true);
    m_changed.setInterval(0);
    connect(&m_changed, &QTimer::timeout, this, &JobQueue::changed);
    const auto soon = [this] { m_changed.start(); };
    connect(&m_delegate, &MainAppDelegate::spoolScanned, this, soon);
    connect(&m_delegate, &MainAppDelegate::jobFinished, this, soon);
    connect(&m_delegate, &MainAppDelegate::jobKept, this, soon);
    connect(&m_delegate, &MainAppDelegate::runningChanged, this, soon);
    connect(&m_delegate, &MainAppDelegate::currentFileInfoChanged, this, soon);
}

JobQueue::~JobQueue() = default;

QList<QueuedJob> JobQueue::jobs() const
{
    SpoolFolder spool;
    if (!spool.isOpen())
        return {};
    const SpoolFolder::Jobs found = spool.jobs(user_name());
    QHash<QString, QString> kept; // by name
    for (const MainAppDelegate::KeptJob& job : m_delegate.keptJobs())
        kept.insert(path_basename(job.path), job.reason);
    QStringList batch;
    for (const QString& path : m_delegate.batchPaths())
        batch << path_basename(path);
    const QString current = path_basename(m_delegate.currentFileInfo().value(QStringLiteral("path")).toString());
    const bool consoleActive = m_delegate.consoleSessionActive();

    QList<QueuedJob> jobs;
    for (const QStringList* names : { &found.remote, &found.local }) {
        for (const QString& name : *names) {
            const std::optional<SpoolFolder::Job> opened = spool.openJob(name);
            struct stat st {
            };
            if (!opened || ::fstat(opened->fd.get(), &st) != 0)
                continue;
            QueuedJob job;
            job.name = name;
            job.id = jobId(name, st);
            job.size = qint64(st.st_size);
            job.queued = QDateTime::fromSecsSinceEpoch(qint64(st.st_mtim.tv_sec));
            job.remote = names == &found.remote;
            const QVariantMap info = spool.readInfo(name);
            job.title = info.value(QStringLiteral("TITLE")).toString();
            if (job.title.isEmpty())
                job.title = titleFromName(name);
            job.owner = info.value(QStringLiteral("USER")).toString();
            if (job.owner.isEmpty())
                job.owner = job.remote ? QStringLiteral("remote") : user_name();
            if (name == current && m_delegate.running())
                job.reason = m_delegate.isAsking() ? QueuedJob::Reason::Choosing : QueuedJob::Reason::Delivering;
            else if (kept.contains(name)) {
                job.reason = QueuedJob::Reason::Kept;
                job.why = kept.value(name);
            } else if (batch.contains(name) && m_delegate.running())
                job.reason = QueuedJob::Reason::InBatch;
            else if (job.remote && !consoleActive)
                job.reason = QueuedJob::Reason::ConsoleAway;
            jobs << job;
        }
    }
    std::stable_sort(
        jobs.begin(), jobs.end(), [](const QueuedJob& a, const QueuedJob& b) { return a.queued < b.queued; });
    return jobs;
}

std::optional<QueuedJob> JobQueue::find(const QString& id) const
{
    for (const QueuedJob& job : jobs())
        if (job.id == id)
            return job;
    return std::nullopt;
}

QString JobQueue::spoolPath(const QString& name) const
{
    return SpoolLocations::spoolDirectory() + name;
}

bool JobQueue::held(const QueuedJob& job) const
{
    return job.reason == QueuedJob::Reason::Delivering || job.reason == QueuedJob::Reason::Choosing
        || job.reason == QueuedJob::Reason::InBatch;
}

bool JobQueue::retry(const QString& id, QString* why)
{
    const std::optional<QueuedJob> job = find(id);
    if (!job) {
        if (why)
            *why = tr("no job %1 waits in the queue").arg(id);
        return false;
    }
    const QString fallback = UserDefaults::standard().stringValue(
        job->remote ? SettingKey::RemoteDestinationName : SettingKey::DestinationName);
    return m_delegate.processPDFFiles({ spoolPath(job->name) }, fallback);
}

void JobQueue::retryAll()
{
    m_delegate.retryAgrain();
}

bool JobQueue::deliver(const QString& id, const QString& destination, QString* why)
{
    const std::optional<QueuedJob> job = find(id);
    ManagedObjectContext* context = m_delegate.managedObjectContext();
    if (!job || !context || !copyProcessorForName(*context, destination)) {
        if (why)
            *why = !job ? tr("no job %1 waits in the queue").arg(id)
                        : tr("there is no destination named “%1”").arg(destination);
        return false;
    }
    return m_delegate.processPDFFiles({ spoolPath(job->name) }, destination, true);
}

bool JobQueue::remove(const QString& id, QString* why)
{
    const std::optional<QueuedJob> job = find(id);
    if (!job || held(*job)) {
        if (why)
            *why = !job ? tr("no job %1 waits in the queue").arg(id)
                        : tr("“%1” is being delivered; stop the batch first").arg(job->title);
        return false;
    }
    SpoolFolder spool;
    QString problem;
    const std::optional<SpoolFolder::Job> opened = spool.isOpen() ? spool.openJob(job->name, &problem) : std::nullopt;
    if (!opened || !spool.removeJob(job->name, opened->identity)) {
        if (why)
            *why = tr("“%1” could not be removed%2")
                       .arg(job->title, problem.isEmpty() ? QString() : QStringLiteral(": ") + problem);
        return false;
    }
    qCInfo(lcJobQueue).noquote() << "removed from the queue:" << job->name;
    m_changed.start();
    return true;
}

int JobQueue::removeAll()
{
    int removed = 0;
    for (const QueuedJob& job : jobs())
        removed += !held(job) && remove(job.id) ? 1 : 0;
    return removed;
}

} // namespace quirepad
