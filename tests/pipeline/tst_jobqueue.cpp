#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/DialogService.h"
#include "foundation/ScriptedDialogService.h"
#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"
#include "foundation/session.h"
#include "pipeline/JobQueue.h"
#include "pipeline/MainAppDelegate.h"
#include "pipeline/jobinfo.h"
#include "store/DestinationTemplates.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace quirepad;
using namespace quirepad::test;

// The waiting jobs as the queue model reads them from a real spool folder.
class JobQueueTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    QString m_spool;
    int m_case = 0;
    std::unique_ptr<MainAppDelegate> m_delegate;
    std::unique_ptr<JobQueue> m_queue;

    QString job(const QString& title, const QByteArray& info = {}, const QString& owner = user_name())
    {
        const QString path = m_spool + owner + "-D3F2UG-" + title + ".pdf";
        writeFile(path, "%PDF-1.4 " + title.toUtf8());
        writeFile(path + ".info", "TITLE=" + title.toUtf8() + "\n" + info);
        return path;
    }
    QString folder(const QString& name)
    {
        const QString out = m_root.filePath(QStringLiteral("out%1/%2").arg(m_case).arg(name));
        DestinationItem* item = DestinationTemplates(*m_delegate->managedObjectContext()).createDestination("F", name);
        item->setValue("name_pattern", "%t.pdf");
        item->setValue("config.output_dir", QUrl::fromLocalFile(out + "/").toString(QUrl::FullyEncoded));
        return out;
    }
    QStringList titles() const
    {
        QStringList list;
        for (const QueuedJob& job : m_queue->jobs())
            list << job.title + ": " + QueuedJob::reasonKey(job.reason);
        list.sort();
        return list;
    }

private slots:
    void initTestCase()
    {
        qputenv("HOME", m_root.filePath("home").toUtf8());
        qputenv("XDG_CONFIG_HOME", m_root.filePath("config").toUtf8());
        qputenv("XDG_DATA_DIRS", m_root.filePath("system").toUtf8());
        qputenv("QUIREPAD_SHARED_DIR", m_root.filePath("shared").toUtf8());
        m_spool = SpoolLocations::spoolDirectory();
    }

    void init()
    {
        ++m_case;
        QDir(m_spool).removeRecursively();
        QVERIFY(QDir().mkpath(m_spool));
        qputenv("XDG_DATA_HOME", m_root.filePath(QStringLiteral("data%1").arg(m_case)).toUtf8());
        UserDefaults::setStandard(
            std::make_unique<UserDefaults>(m_root.filePath(QStringLiteral("s%1.conf").arg(m_case))));
        DialogService::setCurrent(std::make_unique<ScriptedDialogService>());
        m_delegate = std::make_unique<MainAppDelegate>();
        m_delegate->registerDefaults();
        m_delegate->setSessionProbe([] { return false; });
        m_queue = std::make_unique<JobQueue>(*m_delegate);
    }

    void cleanup()
    {
        m_queue.reset();
        m_delegate.reset();
        UserDefaults::setStandard(nullptr);
    }

    // Only this user's own regular files are listed; a link is neither
    // listed nor followed, another user's job is not shown.
    void listsOnlyThisUsersJobs()
    {
        job("Quarterly plan", "USER=ann\n");
        job("Theirs", {}, QStringLiteral("someoneelse"));
        const QString secret = m_root.filePath("secret.pdf");
        QVERIFY(writeFile(secret, "%PDF-1.4 secret"));
        QVERIFY(QFile::link(secret, m_spool + user_name() + "-D3F2UG-Link.pdf"));
        if (::geteuid() == 0) {
            const QString given = job("Given away");
            QVERIFY(::chown(QFile::encodeName(given).constData(), 65534, 65534) == 0);
        }
        const QString remote = m_spool + "remote:" + user_name() + "-D3F2UG-Phone.pdf";
        QVERIFY(writeFile(remote, "%PDF-1.4 phone"));

        const QList<QueuedJob> jobs = m_queue->jobs();
        QCOMPARE(titles(), (QStringList { "Phone: console", "Quarterly plan: next" }));
        const QueuedJob plan = jobs.at(jobs.at(0).title == "Phone" ? 1 : 0);
        QCOMPARE(plan.owner, QStringLiteral("ann"));
        QCOMPARE(plan.size, qint64(QByteArray("%PDF-1.4 Quarterly plan").size()));
        QVERIFY(qAbs(plan.queued.secsTo(QDateTime::currentDateTime())) < 3600);
        QCOMPARE(plan.id.size(), 8);
        QCOMPARE(m_queue->find(plan.id)->title, plan.title); // stable between reads
        QCOMPARE(readFile(secret), QByteArray("%PDF-1.4 secret"));
    }

    // A job whose delivery failed says why; retried once the reason went,
    // it leaves the queue; a job is delivered where the user says, whatever
    // it names itself.
    void keptRetriedAndRedirected()
    {
        const QString blocked = folder("Blocked");
        QVERIFY(QDir().mkpath(QFileInfo(blocked).path()) && writeFile(blocked, "a file where the folder goes"));
        const QString other = folder("Other");
        job("Stuck", "NAME=Blocked\n");
        job("Moved", "NAME=Blocked\n");
        QSignalSpy changed(m_queue.get(), &JobQueue::changed);
        m_delegate->processAllFiles();
        QVERIFY(changed.wait(1000));
        QCOMPARE(titles(), (QStringList { "Moved: kept", "Stuck: kept" }));
        QVERIFY(m_queue->jobs().first().reasonText().startsWith("Not delivered: "));

        QString why;
        QVERIFY(!m_queue->deliver(m_queue->jobs().first().id, "Nowhere", &why));
        QVERIFY(why.contains("Nowhere"));
        for (const QueuedJob& queued : m_queue->jobs())
            if (queued.title == "Moved")
                QVERIFY(m_queue->deliver(queued.id, "Other"));
        m_delegate->waitForPurge();
        QVERIFY(QFile::exists(other + "/Moved.pdf"));
        QCOMPARE(titles(), QStringList { "Stuck: kept" });

        QFile::remove(blocked);
        QVERIFY(m_queue->retry(m_queue->jobs().first().id));
        m_delegate->waitForPurge();
        QVERIFY(QFile::exists(blocked + "/Stuck.pdf"));
        QVERIFY(m_queue->jobs().isEmpty());
        QVERIFY(!m_queue->retry("00000000", &why));
    }

    void removesOneOrAll()
    {
        job("One");
        job("Two");
        job("Three");
        const QString id = m_queue->jobs().first().id;
        QVERIFY(m_queue->remove(id));
        QCOMPARE(m_queue->jobs().size(), 2);
        QVERIFY(!m_queue->remove(id));
        QCOMPARE(m_queue->removeAll(), 2);
        QVERIFY(m_queue->jobs().isEmpty());
        QCOMPARE(QDir(m_spool).entryList(QDir::Files), QStringList());
    }
};

QUIREPAD_REGISTER_TEST(JobQueueTest);
#include "tst_jobqueue.moc"
