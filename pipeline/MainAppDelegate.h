#pragma once

#include "pipeline/DestinationChooser.h"
#include "pipeline/PluginInstaller.h"
#include "pipeline/WorkflowLibrary.h"
#include "foundation/safefile.h"
#include "pipeline/DeliveredJobs.h"
#include "store/MainAppDelegateBase.h"

#include <QMap>
#include <QPoint>
#include <QTimer>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <future>
#include <memory>

namespace quirepad {

class SpoolFolder;
class TriggerWatcher;

// The application controller: wakes up on the print backend's trigger,
// scans the spool for this user's jobs, asks for or applies a destination
// and delivers each job; takes files handed over in other ways into the
// same queue; checks the driver and the shared directory at launch.
class MainAppDelegate : public MainAppDelegateBase
{
    Q_OBJECT

public:
    explicit MainAppDelegate(QObject* parent = nullptr);
    ~MainAppDelegate() override;

    void setDestinationChooser(std::unique_ptr<DestinationChooser> chooser);
    // Tests shrink the rescan delays (1.0 = real seconds).
    void setTimeScale(double scale) { m_timeScale = scale; }
    // Tests decide whether the console session counts as active.
    void setSessionProbe(std::function<bool()> probe) { m_sessionActive = std::move(probe); }

    void applicationDidFinishLaunching();
    // Documents opened with the application, or the end trigger file;
    // plugin and filter packages among them are installed.
    void openFiles(const QStringList& paths);
    // Installs one package (asking first), telling what went wrong.
    PluginInstaller::Result installPackage(const QString& path);
    void startWatchingSpool();
    // A scan on the next turn of the event loop; requests until then are
    // one scan.
    void scanSoon();

    Q_INVOKABLE void processAllFiles();
    // This user's jobs in the spool; "remote:" jobs only while the console
    // session is active.
    struct SpoolJobs {
        QStringList remote;
        QStringList local;
        int count() const { return int(remote.size() + local.size()); }
    };
    SpoolJobs waitingJobs() const;
    // Delivers the files: each to the destination its job names, else to
    // destination (or the one chosen). With overriding, destination goes
    // before what the jobs name.
    bool processPDFFiles(const QStringList& paths, const QString& destination = QString(), bool overriding = false);
    // Whether the console session counts as active (remote jobs are taken).
    bool consoleSessionActive() const { return m_sessionActive(); }
    // The running batch's files, and whether the user is being asked where
    // the current one goes.
    QStringList batchPaths() const { return m_batchPaths; }
    bool isAsking() const { return m_asking; }
    // Batches of more than this many jobs show their progress.
    static constexpr int kProgressFrom = 4;
    // The destination's name as shown to the user (recid or name given).
    QString destinationLabel(const QString& name);

    void retryAgrain();
    void clearQueue();
    // Asks for PDF files and sends them to the destination (none: the
    // usual choice).
    void choosePDFFiles(const QString& destination = QString());
    void printDocuments(const QStringList& paths);
    void takeScreenShot();
    void processScreenShop(const QString& path);
    void stopProcessing();
    void installCUPSSupport(bool force);
    void installDriver() { installCUPSSupport(true); }

    // Runs pending events once (so a Stop can get in), then answers running.
    bool is_running();
    // Waits until what the last batch took out of the queue is removed.
    void waitForPurge();
    bool running() const { return m_running; }
    bool inAgentMode() const { return m_inAgentMode; }
    void setInAgentMode(bool agent) { m_inAgentMode = agent; }
    qint64 rerunTimer() const { return m_rerunTimer; }
    QVariantMap currentFileInfo() const { return m_currentFileInfo; }
    WorkflowLibrary& workflowLibrary() { return m_workflows; }
    // The jobs that stay in the spool for a reason, as last seen.
    struct KeptJob {
        QString title;
        QString reason;
        QString path;
    };
    QList<KeptJob> keptJobs() const;
    static constexpr double kSafetyRescanSeconds = 60.0;

signals:
    void currentFileInfoChanged(const QVariantMap& info);
    void runningChanged(bool running);
    void spoolScanned(int remoteJobs, int localJobs);
    void jobFinished(const QString& path, bool removedFromSpool);
    // A job stays in the spool, and why (a sentence for the user).
    void jobKept(const QString& path, const QString& title, const QString& reason);
    // A long batch moved on: delivering job number (from 1) of total.
    void batchProgress(int number, int total, const QString& title);
    // The user asked (from a notification) to see the queue.
    void queueRequested();

private:
    bool isSpoolJob(const QString& path) const;
    void keep(const QString& path, const QString& title, const QString& reason, bool tell = true);
    void purgeLater(const std::shared_ptr<SpoolFolder>& folder);
    void forgetKeptJobsNotIn(const SpoolJobs& jobs);
    void removeStalePartialFiles();
    std::shared_ptr<SpoolFolder> spoolFolder() const;
    void setCurrentFileInfo(const QVariantMap& info);
    void schedule(double seconds, std::function<void()> call);

    struct Batch {
        QStringList paths;
        QString destination;
        bool overriding = false;
    };
    void notifyBatchProgress(int number, int total, const QString& title);
    void notifyBatchEnd(int total, int delivered, const QStringList& folders);

    std::unique_ptr<DestinationChooser> m_chooser;
    QList<Batch> m_followingBatches; // files that arrived during a batch
    std::unique_ptr<TriggerWatcher> m_watcher;
    mutable std::shared_ptr<SpoolFolder> m_spool;
    // The removal of what the last batch took out of the queue: on a thread
    // of its own (with online discard every removal waits for the disk), so
    // that the next print is taken at once.
    std::future<void> m_purge;
    mutable QString m_reportedSpoolProblem;
    WorkflowLibrary m_workflows;
    std::function<bool()> m_sessionActive;
    QVariantMap m_currentFileInfo;
    qint64 m_rerunTimer = 0;
    double m_timeScale = 1.0;
    QMap<QString, KeptJob> m_keptJobs; // by spool path
    QTimer m_safetyRescan;
    QTimer m_scanSoon;
    QTimer m_noNap;
    QStringList m_batchPaths;
    bool m_asking = false;
    bool m_scanMissed = false;
    bool m_running = false;
    bool m_inAgentMode = false;
};

// The mouse position recorded when documents arrive, for the panel.
QPoint currentPointerPosition();

} // namespace quirepad
