#pragma once

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

#include <optional>

namespace quirepad {

class MainAppDelegate;

// One of this user's jobs waiting in the spool.
struct QueuedJob {
    enum class Reason {
        Kept, // its delivery failed (why says why)
        Choosing, // the user is being asked where it goes
        ConsoleAway, // printed remotely; waits for the console session
        Delivering, // the running batch is delivering it now
        InBatch, // in the running batch, after the current job
        NextInLine, // taken at the next scan
    };

    QString id; // short and stable: what the user names it by
    QString name; // the file's name in the spool
    QString title;
    QString owner;
    QDateTime queued;
    qint64 size = 0;
    bool remote = false;
    Reason reason = Reason::NextInLine;
    QString why; // kept jobs: the failure, as a sentence

    // Why the job waits, for the user.
    QString reasonText() const;
    // A word for the reason ("kept", "choosing", ...), for scripts.
    static QString reasonKey(Reason reason);
};

// The model of this user's waiting jobs: read from the spool (every job
// through a checked descriptor of SpoolFolder, never by path), with the
// pipeline's view of each (kept, being asked about, in the batch). Offers
// what the user can do with them and tells when they change.
class JobQueue : public QObject
{
    Q_OBJECT

public:
    explicit JobQueue(MainAppDelegate& delegate, QObject* parent = nullptr);
    ~JobQueue() override;

    // The jobs as they are now, oldest first.
    QList<QueuedJob> jobs() const;
    std::optional<QueuedJob> find(const QString& id) const;

    // Delivers the job again (or every job) the usual way.
    bool retry(const QString& id, QString* why = nullptr);
    void retryAll();
    // Delivers the job to the destination (a recid or a name), whatever
    // the job itself names.
    bool deliver(const QString& id, const QString& destination, QString* why = nullptr);
    // Removes the job from the spool; not one the running batch holds.
    bool remove(const QString& id, QString* why = nullptr);
    // Removes every job the running batch does not hold; answers how many
    // went. The caller has asked the user.
    int removeAll();

signals:
    // The spool or the pipeline's view of it changed.
    void changed();

private:
    QString spoolPath(const QString& name) const;
    bool held(const QueuedJob& job) const;

    MainAppDelegate& m_delegate;
    QTimer m_changed;
};

} // namespace quirepad
