#include "pipeline/MainAppDelegate.h"

#include "foundation/DesktopEntry.h"
#include "foundation/DialogService.h"
#include "foundation/ProcessRunner.h"
#include "foundation/SettingsSchema.h"
#include "foundation/TempArea.h"
#include "foundation/safefile.h"
#include "foundation/UserDefaults.h"
#include "foundation/desktop.h"
#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "foundation/process.h"
#include "foundation/session.h"
#include "pipeline/DriverInstaller.h"
#include "pipeline/PluginInstaller.h"
#include "pipeline/ProcessorFactory.h"
#include "pipeline/ReaderProcessor.h"
#include "pipeline/DeliveredJobs.h"
#include "store/DestinationItem.h"
#include "store/ManagedObjectContext.h"
#include "pipeline/SpoolFolder.h"
#include "pipeline/TriggerWatcher.h"
#include "pipeline/jobinfo.h"

#include "foundation/runloop.h"

#include <QElapsedTimer>
#include <QPointer>
#include <QScopeGuard>

#include <QCursor>
#include <QDir>
#include <QSet>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QLoggingCategory>
#include <QPainter>
#include <QPdfWriter>
#include <QStandardPaths>
#include <QTimer>

#include <cerrno>

#include <signal.h>
#include <unistd.h>

namespace quirepad {

Q_LOGGING_CATEGORY(lcSpool, "quirepad.spool", QtInfoMsg)

namespace {
const QString kMarker = QStringLiteral("-D3F2UG-");
}

QPoint currentPointerPosition()
{
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) ? QCursor::pos() : QPoint();
}

MainAppDelegate::MainAppDelegate(QObject* parent)
    : MainAppDelegateBase(parent)
    , m_chooser(std::make_unique<HeadlessDestinationChooser>())
    , m_sessionActive([] { return is_active_session(); })
{
    TempArea::instance().prepare();
    m_scanSoon.setSingleShot(true);
    m_scanSoon.setInterval(0);
    m_scanSoon.callOnTimeout(this, [this] { processAllFiles(); });
    m_noNap.setSingleShot(true);
    m_noNap.setInterval(0);
    m_noNap.callOnTimeout(this, [] { disable_app_nap(10); });
}

MainAppDelegate::~MainAppDelegate() = default;

void MainAppDelegate::setDestinationChooser(std::unique_ptr<DestinationChooser> chooser)
{
    m_chooser = chooser ? std::move(chooser) : std::make_unique<HeadlessDestinationChooser>();
}

void MainAppDelegate::schedule(double seconds, std::function<void()> call)
{
    QTimer::singleShot(qMax(0, int(seconds * m_timeScale * 1000.0)), Qt::PreciseTimer, this, std::move(call));
}

void MainAppDelegate::applicationDidFinishLaunching()
{
    installCUPSSupport(false);
    m_workflows.installWorkflows();
    removeStalePartialFiles();
    SpoolFolder leftovers;
    leftovers.setUser(user_name());
    leftovers.purgeRetired(true); // what a killed run had taken out of the queue

    // More than one installed copy of the program confuses the desktop.
    QStringList installs;
    for (const QString& dir : DesktopEntry::applicationDirs()) {
        const QString entry = dir + QStringLiteral("/com.halvern.Quirepad.desktop");
        if (QFileInfo::exists(entry))
            installs << entry;
    }
    if (installs.size() > 1)
        MYDisplayAlert(QStringLiteral("You have more then one instance of Quirepad installed.\nPlease make sure you remove "
                                      "all other instances of Quirepad from your disk. You might also want to reinstall "
                                      "the latest version afterwards, just to be on the safe side\n\n(%1)")
                           .arg(installs.join(QStringLiteral(", "))));

    if (!directory_exists(SpoolLocations::sharedDirectory()))
        MYDisplayAlert(QStringLiteral("The Quirepad shared directory doesn't exist. Install the Quirepad Print Driver first."));
    const QString start = SpoolLocations::startTrigger();
    if (!touch_file(start) || !file_exists(start))
        MYDisplayAlert(QStringLiteral("The Quirepad is not able to write to the shared directory. You may have to "
                                      "reinstall the Quirepad Print Driver."));
    if (!m_inAgentMode && UserDefaults::standard().boolValue(SettingKey::ForceIntroWindow))
        qCInfo(lcSpool) << "the introduction window is asked for; it is shown by the desktop interface";
    m_workflows.refreshPluginList();
    if (!m_inAgentMode)
        MYDisplayNotification(QStringLiteral("Quirepad ready"),
                              tr("Documents printed to Quirepad are delivered from now on. Its queue and "
                                 "preferences are in its menu, or run “quirepad preferences”."));
    startWatchingSpool();
    // Jobs left from before (kept after a failure, or printed while the
    // program was not running) are taken now rather than at the next print.
    scanSoon();
}

void MainAppDelegate::scanSoon()
{
    // The backend renames a job into the spool only once it is complete,
    // so a job that shows is whole: the scan runs on the next turn of the
    // event loop, and triggers that arrive before it are one scan.
    if (!m_scanSoon.isActive())
        m_scanSoon.start();
}

void MainAppDelegate::startWatchingSpool()
{
    m_watcher = std::make_unique<TriggerWatcher>(SpoolLocations::sharedDirectory(), SpoolLocations::endTrigger());
    connect(m_watcher.get(), &TriggerWatcher::triggered, this, [this](const QString& trigger) { openFiles({trigger}); });
    // A slow safety net under the trigger: a missed notification (or a job
    // kept for a reason that went away) is taken within a minute.
    m_safetyRescan.setInterval(int(kSafetyRescanSeconds * 1000 * m_timeScale));
    m_safetyRescan.callOnTimeout(this, [this] {
        m_watcher->rewatch();
        if (!m_running)
            processAllFiles();
    });
    m_safetyRescan.start();
}

void MainAppDelegate::forgetKeptJobsNotIn(const SpoolJobs& jobs)
{
    for (auto it = m_keptJobs.begin(); it != m_keptJobs.end();)
        it = jobs.local.contains(it.key()) || jobs.remote.contains(it.key()) ? std::next(it) : m_keptJobs.erase(it);
}

void MainAppDelegate::removeStalePartialFiles()
{
    // Deliveries of a killed run left hidden partial files in the
    // destinations' folders: ".quirepad-<pid>-<random>.part" of a process
    // that is gone.
    ManagedObjectContext* context = managedObjectContext();
    if (!context)
        return;
    QSet<QString> folders;
    for (DestinationItem* item : __get_all_entities(QStringLiteral("Destination"), *context))
        if (std::unique_ptr<CopyFileProcessor> processor = copyProcessorForName(*context, item->recid()))
            folders.insert(processor->outputDir());
    const QString prefix = CopyFileProcessor::partialFilePrefix();
    for (const QString& folder : std::as_const(folders)) {
        const QDir dir(folder);
        for (const QFileInfo& file : dir.entryInfoList({prefix + QStringLiteral("*.part")}, QDir::Files | QDir::Hidden | QDir::NoSymLinks)) {
            const qint64 pid = file.fileName().mid(prefix.size()).section(u'-', 0, 0).toLongLong();
            const bool alive = pid > 0 && (::kill(pid_t(pid), 0) == 0 || errno == EPERM);
            if (alive || file.ownerId() != ::geteuid())
                continue;
            qCInfo(lcSpool).noquote() << "removing a partial delivery of a killed run:" << file.filePath();
            QFile::remove(file.filePath());
        }
    }
}

void MainAppDelegate::openFiles(const QStringList& paths)
{
    if (paths.isEmpty())
        return;
    m_inAgentMode = true;
    // Asked of logind after the scan this call starts (a timer started
    // last, on leaving): the job never waits for the bus.
    const auto noNap = qScopeGuard([this] { m_noNap.start(); });
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        applicationContext().insert(QStringLiteral("do_follow_mouse"), currentPointerPosition());

    const QString first = paths.first();
    if (first == SpoolLocations::endTrigger()) {
        if (!m_sessionActive()) {
            qCInfo(lcSpool) << "the user session is not active (using fast user switching?), do not process changes";
            return;
        }
        m_rerunTimer = 1;
        scanSoon();
        return;
    }
    QStringList documents;
    for (const QString& path : paths) {
        if (PluginInstaller::isPackage(path))
            installPackage(path);
        else
            documents << path;
    }
    if (!documents.isEmpty())
        schedule(0, [this, documents] { processPDFFiles(documents); });
}

PluginInstaller::Result MainAppDelegate::installPackage(const QString& path)
{
    PluginInstaller installer(&m_workflows);
    const PluginInstaller::Result result = installer.install(path);
    if (result.outcome == PluginInstaller::Outcome::Failed)
        MYDisplayAlert(QStringLiteral("%1 was installed only in part\n%2").arg(result.name, result.error));
    else if (result.outcome == PluginInstaller::Outcome::Installed && !result.kept.isEmpty())
        MYDisplayNotification(QStringLiteral("%1 installed").arg(result.name),
                              QStringLiteral("Files already there were kept: %1").arg(result.kept.join(QStringLiteral(", "))),
                              result.targetFolder);
    return result;
}

void MainAppDelegate::processAllFiles()
{
    SpoolJobs jobs;
    if (m_running) {
        // A batch is under way (this scan came from a wait inside it): the
        // spool is looked at again as soon as the batch ends.
        qCInfo(lcSpool) << "a batch is running; the spool is scanned again when it ends";
        m_scanMissed = true;
    } else {
        jobs = waitingJobs();
        forgetKeptJobsNotIn(jobs);
    }
    emit spoolScanned(int(jobs.remote.size()), int(jobs.local.size()));
    UserDefaults& defaults = UserDefaults::standard();
    // Remote jobs first, then the local ones in the same scan: a remote job
    // that stays (its delivery failed) never holds the local ones back.
    if (!jobs.remote.isEmpty()) {
        if (jobs.remote.size() < kProgressFrom)
            MYDisplayNotification(QStringLiteral("Quirepad"), QStringLiteral("processing files printed remotely"));
        processPDFFiles(jobs.remote, defaults.stringValue(SettingKey::RemoteDestinationName));
    }
    if (!jobs.local.isEmpty()) {
        if (jobs.local.size() < kProgressFrom)
            MYDisplayNotification(QStringLiteral("Quirepad"), QStringLiteral("processing files"));
        processPDFFiles(jobs.local, defaults.stringValue(SettingKey::DestinationName));
    }
    if (m_rerunTimer > 0 && m_rerunTimer < 10) {
        qCInfo(lcSpool).noquote() << QStringLiteral("try rerun in %1").arg(m_rerunTimer);
        schedule(double(m_rerunTimer), [this] { processAllFiles(); });
        m_rerunTimer *= 2;
    }
}

MainAppDelegate::SpoolJobs MainAppDelegate::waitingJobs() const
{
    const std::shared_ptr<SpoolFolder> folder = spoolFolder();
    SpoolFolder& spool = *folder;
    if (!spool.isOpen()) {
        if (spool.problem() != m_reportedSpoolProblem) {
            m_reportedSpoolProblem = spool.problem();
            qCWarning(lcSpool).noquote() << "no print jobs are taken:" << spool.problem();
        }
        return {};
    }
    m_reportedSpoolProblem.clear();
    const SpoolFolder::Jobs found = spool.jobs(user_name());
    SpoolJobs jobs;
    for (const QString& name : found.local)
        jobs.local << spool.path() + name;
    if (!found.remote.isEmpty() && m_sessionActive())
        for (const QString& name : found.remote)
            jobs.remote << spool.path() + name;
    return jobs;
}

std::shared_ptr<SpoolFolder> MainAppDelegate::spoolFolder() const
{
    // Opened again for every scan, so a folder made (or mended) by the
    // installer after launch is seen.
    if (!m_running || !m_spool)
        m_spool = std::make_shared<SpoolFolder>();
    return m_spool;
}

bool MainAppDelegate::is_running()
{
    sleep_main_loop(0);
    return m_running;
}

bool MainAppDelegate::isSpoolJob(const QString& path) const
{
    return path.startsWith(SpoolLocations::spoolDirectory());
}

void MainAppDelegate::setCurrentFileInfo(const QVariantMap& info)
{
    m_currentFileInfo = info;
    emit currentFileInfoChanged(info);
}

QString MainAppDelegate::destinationLabel(const QString& name)
{
    ManagedObjectContext* context = managedObjectContext();
    if (!context || name.isEmpty())
        return name;
    for (DestinationItem* item : __get_all_entities(QStringLiteral("Destination"), *context))
        if (item->recid() == name || item->name() == name)
            return item->name();
    return name;
}

void MainAppDelegate::notifyBatchProgress(int number, int total, const QString& title)
{
    emit batchProgress(number, total, title);
    Notification notification;
    notification.tag = QStringLiteral("batch");
    notification.title = tr("Delivering %1 of %2").arg(number).arg(total);
    notification.text = title;
    notification.progress = total > 0 ? (number - 1) * 100 / total : 0;
    const QPointer<MainAppDelegate> self(this);
    notification.actions << Notification::Action{QStringLiteral("stop"), tr("Stop"), [self] {
                                                     if (self)
                                                         self->stopProcessing();
                                                 }};
    MYDisplayNotification(notification);
}

void MainAppDelegate::notifyBatchEnd(int total, int delivered, const QStringList& folders)
{
    // The progress gives way to one summary in its place.
    Notification notification;
    notification.tag = QStringLiteral("batch");
    notification.title = tr("%1 of %2 documents delivered").arg(delivered).arg(total);
    const int kept = total - delivered;
    if (kept > 0) {
        notification.text = kept == 1 ? tr("1 document waits in the queue.") : tr("%1 documents wait in the queue.").arg(kept);
        const QPointer<MainAppDelegate> self(this);
        notification.actions << Notification::Action{QStringLiteral("queue"), tr("Show Queue"), [self] {
                                                         if (self)
                                                             emit self->queueRequested();
                                                     }};
    }
    if (folders.size() == 1)
        notification.revealPath = folders.first();
    MYDisplayNotification(notification);
}

bool MainAppDelegate::processPDFFiles(const QStringList& paths, const QString& destination, bool overriding)
{
    if (paths.isEmpty())
        return false;
    if (m_running) {
        // A batch is under way (this call came from a wait inside it, such
        // as the destination panel): these files follow when it is done.
        m_followingBatches.append({paths, destination, overriding});
        return true;
    }
    m_workflows.refreshPluginList();
    m_running = true;
    m_batchPaths = paths;
    emit runningChanged(true);
    // A long batch tells its progress in one notification, not each job.
    const bool showsProgress = paths.size() >= kProgressFrom;
    int number = 0;
    int deliveredCount = 0;
    QStringList deliveredFolders;
    const auto endBatch = qScopeGuard([&] {
        m_batchPaths.clear();
        m_asking = false;
        if (showsProgress)
            notifyBatchEnd(int(paths.size()), deliveredCount, deliveredFolders);
    });

    ManagedObjectContext* context = managedObjectContext();
    // The batch keeps its folder, whatever a scan in one of its waits opens.
    const std::shared_ptr<SpoolFolder> folder = spoolFolder();
    SpoolFolder& spool = *folder;
    QString batchDestination = destination;
    bool nobodyToAsk = false;
    DeliveredJobs delivered(folder);
    // Events are looked at between jobs, at most every few milliseconds:
    // a batch of small jobs does not spend its time on the event loop.
    constexpr qint64 kEventsEveryMs = 4;
    QElapsedTimer sinceEvents;
    sinceEvents.start();
    for (const QString& path : paths) {
        if (sinceEvents.elapsed() >= kEventsEveryMs) {
            sleep_main_loop(0);
            sinceEvents.start();
        }
        if (!m_running) {
            delivered.finish();
            purgeLater(folder);
            return false; // stopped: the rest stay in the spool
        }
        // Temporary files of this job go when it is done.
        const TempArea::JobScope scope;
        const bool spoolJob = isSpoolJob(path);
        std::optional<SpoolFolder::Job> job;
        QString working = path;
        QVariantMap jobInfo;
        if (spoolJob) {
            // A job is used only through a checked descriptor: the shared
            // folder is nobody's to trust.
            QString why;
            job = spool.openJob(path_basename(path), &why);
            if (!job) {
                qCWarning(lcSpool).noquote() << path << "is left alone:" << why;
                emit jobFinished(path, false);
                continue;
            }
            jobInfo = spool.readInfo(job->name);
        } else {
            jobInfo = read_info(path + QStringLiteral(".info"));
        }
        const QString name = jobInfo.value(QStringLiteral("NAME")).toString();
        QVariantMap fileInfo{{QStringLiteral("path"), path}};
        if (jobInfo.contains(QStringLiteral("TITLE"))) {
            fileInfo.insert(QStringLiteral("title"), jobInfo.value(QStringLiteral("TITLE")));
        } else {
            const QString title = path.endsWith(QLatin1String("D3F2UG-ScreenShot.pdf")) ? QStringLiteral("Current Screenshot")
                                                                                        : path_basename_noext(path);
            fileInfo.insert(QStringLiteral("title"), title);
            jobInfo.insert(QStringLiteral("TITLE"), title);
        }
        setCurrentFileInfo(fileInfo);
        ++number;
        if (showsProgress)
            notifyBatchProgress(number, int(paths.size()), fileInfo.value(QStringLiteral("title")).toString());

        // The destination the job names, unless the batch's is to go first.
        QString used = overriding && !batchDestination.isEmpty() ? QString() : name;
        std::unique_ptr<CopyFileProcessor> processor = context ? copyProcessorForName(*context, used) : nullptr;
        bool cancelled = false;
        if (!processor) {
            if (batchDestination.isEmpty() && !nobodyToAsk) {
                m_asking = true;
                emit currentFileInfoChanged(m_currentFileInfo); // the queue shows the question
                const DestinationChooser::Answer answer = m_chooser->chooseDestination();
                m_asking = false;
                if (answer.outcome == DestinationChooser::Outcome::Chosen)
                    batchDestination = answer.name; // asked once per batch
                else if (answer.outcome == DestinationChooser::Outcome::Cancelled)
                    cancelled = true;
                else
                    nobodyToAsk = true;
            }
            if (!batchDestination.isEmpty() && context) {
                processor = copyProcessorForName(*context, batchDestination);
                used = batchDestination;
            }
        }
        // A reader's volume scan gives up when the batch is stopped.
        if (auto* reader = dynamic_cast<ReaderProcessor*>(processor.get()))
            reader->setRunningCheck([this] { return is_running(); });
        if (processor) {
            processor->notifies = !showsProgress;
            if (processor->notifies)
                processor->destinationLabel = destinationLabel(used);
        }

        if (job && processor) {
            // A plain copy reads the job through its descriptor; anything
            // that hands the file on (compression, a filter, a workflow, an
            // application) works on a private copy.
            if (processor->readsSourceOnly()) {
                processor->setSource(path, job->fd.get());
                processor->setMover([&spool, &job](const QByteArray& target, bool replace) {
                    return spool.moveJob(job->name, job->identity, target, replace);
                });
            } else {
                QString why;
                working = scope.dir().isEmpty() ? QString() : scope.dir() + QLatin1Char('/') + path_basename(path);
                if (working.isEmpty() || !safefile::copyToNewFile(job->fd.get(), working, &why)) {
                    keep(path, fileInfo.value(QStringLiteral("title")).toString(),
                         QStringLiteral("it could not be copied for processing (%1)")
                             .arg(working.isEmpty() ? QStringLiteral("no private temporary folder") : why));
                    emit jobFinished(path, false);
                    setCurrentFileInfo({});
                    continue;
                }
            }
        }
        bool remove = false;
        QString keptBecause;
        if (processor) {
            processor->setContext(jobInfo);
            remove = processor->processFile(working);
            if (!remove)
                keptBecause = processor->failureReason();
        } else if (cancelled) {
            remove = true; // the user declined: the job is discarded
        } else if (nobodyToAsk) {
            keptBecause = QStringLiteral("it names no destination, and nobody can be asked for one now");
        } else {
            keptBecause = QStringLiteral("there is no destination named “%1”").arg(name.isEmpty() ? batchDestination : name);
        }
        const QString title = fileInfo.value(QStringLiteral("title")).toString();
        if (!remove)
            keep(path, title, keptBecause.isEmpty() ? QStringLiteral("it could not be delivered") : keptBecause,
                 !showsProgress);
        else
            m_keptJobs.remove(path);
        if (cancelled) {
            MYDisplayNotification(tr("Print job discarded"), tr("“%1” was not delivered and has left the queue.").arg(title));
        } else if (remove && processor) {
            ++deliveredCount;
            if (!processor->resultFile.isEmpty() && !deliveredFolders.contains(path_dirname(processor->resultFile)))
                deliveredFolders << path_dirname(processor->resultFile);
        }
        const bool removed = remove && job.has_value();
        // A moved job left the spool as it was delivered.
        if (removed && !(processor && processor->sourceMoved()))
            delivered.add({job->name, job->identity,
                           processor && !processor->resultFile.isEmpty() ? path_dirname(processor->resultFile) : QString()});
        emit jobFinished(path, removed);
        setCurrentFileInfo({});
    }
    delivered.finish();
    purgeLater(folder);
    m_running = false;
    emit runningChanged(false);
    if (!m_followingBatches.isEmpty()) {
        const Batch next = m_followingBatches.takeFirst();
        schedule(0, [this, next] { processPDFFiles(next.paths, next.destination, next.overriding); });
    } else if (m_scanMissed) {
        // A print arrived while the batch ran: look at the spool again now.
        m_scanMissed = false;
        schedule(0, [this] { processAllFiles(); });
    }
    return true;
}

void MainAppDelegate::purgeLater(const std::shared_ptr<SpoolFolder>& folder)
{
    if (m_purge.valid())
        m_purge.wait();
    m_purge = std::async(std::launch::async, [folder] { folder->purgeRetired(); });
}

void MainAppDelegate::waitForPurge()
{
    if (m_purge.valid())
        m_purge.get();
}

void MainAppDelegate::keep(const QString& path, const QString& title, const QString& reason, bool tell)
{
    qCWarning(lcSpool).noquote() << path << "stays in the queue:" << reason;
    const bool toldAlready = m_keptJobs.value(path).reason == reason;
    m_keptJobs.insert(path, KeptJob{title, reason, path});
    emit jobKept(path, title, reason);
    // Told once per job and reason, not at every rescan.
    if (toldAlready || !tell)
        return;
    Notification notification;
    notification.title = tr("Not delivered: %1").arg(title);
    notification.text = QStringLiteral("“%1” waits in the print queue: %2").arg(title, reason);
    const QPointer<MainAppDelegate> self(this);
    notification.actions << Notification::Action{QStringLiteral("queue"), tr("Show Queue"), [self] {
                                                     if (self)
                                                         emit self->queueRequested();
                                                 }};
    MYDisplayNotification(notification);
}

QList<MainAppDelegate::KeptJob> MainAppDelegate::keptJobs() const
{
    return m_keptJobs.values();
}

void MainAppDelegate::retryAgrain()
{
    processAllFiles();
}

void MainAppDelegate::clearQueue()
{
    const int removed = SpoolFolder().clearQueue();
    qCInfo(lcSpool) << "queue cleared:" << removed << "file(s) removed";
}

void MainAppDelegate::stopProcessing()
{
    if (!m_followingBatches.isEmpty())
        qCInfo(lcSpool) << "stopped:" << m_followingBatches.size() << "waiting batch(es) of files dropped";
    m_followingBatches.clear();
    m_running = false;
    emit runningChanged(false);
}

void MainAppDelegate::choosePDFFiles(const QString& destination)
{
    const QStringList chosen = DialogService::current().chooseOpenFiles(QStringLiteral("PDF documents (*.pdf)"));
    if (!chosen.isEmpty())
        schedule(0, [this, chosen, destination] { processPDFFiles(chosen, destination); });
}

void MainAppDelegate::printDocuments(const QStringList& paths)
{
    const QString destination = UserDefaults::standard().stringValue(SettingKey::DestinationName);
    for (const QString& path : paths) {
        if (path_extension(path) == QLatin1String("pdf")) {
            processPDFFiles({path}, destination);
            continue;
        }
        // Anything else is printed to our own queue and comes back as a job.
        const ProcessRunner::Result printed =
            ProcessRunner(QStringLiteral("lp"), {QStringLiteral("-d"), QStringLiteral("Print_to_Quirepad"), path})
                .setTimeout(std::chrono::seconds(60))
                .run();
        if (!printed.succeeded())
            MYDisplayAlert(QStringLiteral("%1 could not be printed to Quirepad.").arg(path_basename(path)));
    }
}

void MainAppDelegate::takeScreenShot()
{
    // The picture is taken in a private folder; the PDF made from it lives
    // until Quirepad ends (it is delivered after this function returns).
    const QString folder = TempArea::instance().makeDir(QStringLiteral("screenshot"));
    if (folder.isEmpty())
        return;
    const QString image = folder + QStringLiteral("/ScreenShot.png");
    const QString pdf = folder + QStringLiteral("/%1-D3F2UG-ScreenShot.pdf").arg(user_name());
    struct Tool {
        const char* program;
        QStringList arguments;
    };
    const QList<Tool> tools{
        {"gnome-screenshot", {QStringLiteral("-a"), QStringLiteral("-f"), image}},
        {"spectacle", {QStringLiteral("-r"), QStringLiteral("-b"), QStringLiteral("-n"), QStringLiteral("-o"), image}},
        {"import", {image}},
    };
    rm_file(image);
    bool taken = false;
    for (const Tool& tool : tools) {
        const QString program = QStandardPaths::findExecutable(QString::fromLatin1(tool.program));
        if (program.isEmpty())
            continue;
        ProcessRunner(program, tool.arguments).setTimeout(std::chrono::minutes(2)).run();
        taken = file_exists(image);
        break;
    }
    if (!taken && !QStandardPaths::findExecutable(QStringLiteral("grim")).isEmpty()
        && !QStandardPaths::findExecutable(QStringLiteral("slurp")).isEmpty()) {
        const QString region = eval_shell(QStringLiteral("slurp"));
        if (!region.isEmpty())
            ProcessRunner(QStringLiteral("grim"), {QStringLiteral("-g"), region, image}).run();
        taken = file_exists(image);
    }
    if (!taken) {
        qCWarning(lcSpool) << "no screenshot was taken (no tool, or cancelled)";
        return;
    }
    const QImage picture(image);
    QPdfWriter writer(pdf);
    writer.setPageSize(QPageSize(picture.size(), QPageSize::Point));
    writer.setPageMargins(QMarginsF());
    writer.setResolution(72);
    QPainter painter(&writer);
    painter.drawImage(QPoint(0, 0), picture);
    painter.end();
    rm_file(image);
    if (file_exists(pdf))
        schedule(0, [this, pdf] { processScreenShop(pdf); });
}

void MainAppDelegate::processScreenShop(const QString& path)
{
    processPDFFiles({path}, UserDefaults::standard().stringValue(SettingKey::ScreenshotDestinationName));
}

void MainAppDelegate::installCUPSSupport(bool force)
{
    const DriverInstaller installer;
    if (!force && installer.isCurrent())
        return;
    if (!MYDisplayQuestion(QStringLiteral("The print driver is out of date,\n would you like to install it?"),
                           QStringLiteral("Yes"), QStringLiteral("No")))
        return;
    UserDefaults::standard().setValue(SettingKey::ForceIntroWindow, true);
    const int status = installer.install();
    if (status != 0)
        MYDisplayAlert(QStringLiteral("The print driver could not be installed.\nThe installer ended with status %1.")
                           .arg(status));
    else
        MYDisplayNotification(QStringLiteral("Quirepad"), QStringLiteral("The print driver is installed."));
}

} // namespace quirepad
