#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/DialogService.h"
#include "foundation/ScriptedDialogService.h"
#include "foundation/UserDefaults.h"
#include "foundation/fileutil.h"
#include "foundation/session.h"
#include "pipeline/CopyFileProcessor.h"
#include "pipeline/DriverInstaller.h"
#include "pipeline/MainAppDelegate.h"
#include "pipeline/SpoolFolder.h"
#include "pipeline/jobinfo.h"
#include "store/DestinationTemplates.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace quirepad;
using namespace quirepad::test;

namespace {


// Answers the destination question from a list and counts the questions.
class RecordingChooser : public DestinationChooser
{
public:
    QList<Answer> answers;
    int* asked;
    explicit RecordingChooser(int* counter)
        : asked(counter)
    {
    }
    Answer chooseDestination() override
    {
        ++*asked;
        return answers.isEmpty() ? Answer{Outcome::Unavailable, {}} : answers.takeFirst();
    }
};

} // namespace

class SpoolIntakeTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    QString m_spool;
    int m_case = 0;
    ScriptedDialogService* m_dialogs = nullptr;
    std::unique_ptr<MainAppDelegate> m_delegate;
    int m_asked = 0;
    RecordingChooser* m_chooser = nullptr;

    QString job(const QString& name, const QByteArray& info = {})
    {
        const QString path = m_spool + name;
        writeFile(path, "%PDF-1.4 " + name.toUtf8());
        if (!info.isNull())
            writeFile(path + ".info", info);
        return path;
    }
    QString folderDestination(const QString& name, const QString& base = {})
    {
        const QString out = (base.isEmpty() ? m_root.path() : base) + QStringLiteral("/out/%1-%2").arg(name).arg(m_case);
        DestinationItem* item =
            DestinationTemplates(*m_delegate->managedObjectContext()).createDestination("F", name);
        item->setValue("name_pattern", "%t.pdf");
        item->setValue("config.output_dir", QUrl::fromLocalFile(out + "/").toString(QUrl::FullyEncoded));
        return out;
    }
    QStringList spoolFiles() const
    {
        m_delegate->waitForPurge();
        QStringList names = QDir(m_spool).entryList(QDir::Files | QDir::Hidden);
        names.sort();
        return names;
    }

private slots:
    void initTestCase()
    {
        qputenv("HOME", m_root.filePath("home").toUtf8());
        qputenv("XDG_DATA_HOME", m_root.filePath("data").toUtf8());
        qputenv("XDG_CONFIG_HOME", m_root.filePath("config").toUtf8());
        qputenv("XDG_DATA_DIRS", m_root.filePath("system").toUtf8());
        qputenv("QUIREPAD_SHARED_DIR", m_root.filePath("shared").toUtf8());
        m_spool = SpoolLocations::spoolDirectory();
        QVERIFY(QDir().mkpath(m_spool));
    }

    void init()
    {
        ++m_case;
        QDir(m_spool).removeRecursively();
        QDir().mkpath(m_spool);
        qputenv("XDG_DATA_HOME", m_root.filePath(QStringLiteral("data%1").arg(m_case)).toUtf8());
        UserDefaults::setStandard(std::make_unique<UserDefaults>(m_root.filePath(QStringLiteral("settings%1.conf").arg(m_case))));
        auto dialogs = std::make_unique<ScriptedDialogService>();
        m_dialogs = dialogs.get();
        DialogService::setCurrent(std::move(dialogs));
        m_delegate = std::make_unique<MainAppDelegate>();
        m_delegate->registerDefaults();
        m_asked = 0;
        auto chooser = std::make_unique<RecordingChooser>(&m_asked);
        m_chooser = chooser.get();
        m_delegate->setDestinationChooser(std::move(chooser));
        m_delegate->setSessionProbe([] { return true; });
    }

    void cleanup()
    {
        m_delegate.reset();
        UserDefaults::setStandard(nullptr);
    }

    void infoLines_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QVariantMap>("expected");
        QTest::newRow("trimmed") << QByteArray("TITLE = My Doc \n") << QVariantMap{{"TITLE", "My Doc"}};
        QTest::newRow("first = splits") << QByteArray("URL=a=b") << QVariantMap{{"URL", "a=b"}};
        QTest::newRow("skipped lines") << QByteArray("=x\nTITLE=   \nnoequals\n\nUSER=ann")
                                       << QVariantMap{{"USER", "ann"}};
        QTest::newRow("later wins, case kept") << QByteArray("NAME=a\nname=b\nNAME=c") << QVariantMap{{"NAME", "c"}, {"name", "b"}};
        QTest::newRow("UTF-8") << QByteArray("TITLE=Zo\xc3\xab") << QVariantMap{{"TITLE", QStringLiteral("Zoë")}};
        QTest::newRow("CR LF") << QByteArray("HOST=lab\r\nUSER=ann\r\n") << QVariantMap{{"HOST", "lab"}, {"USER", "ann"}};
        QTest::newRow("oversized") << (QByteArray("TITLE=x\n") + QByteArray(1 << 20, 'a')) << QVariantMap{};
        // Keys exactly as the backend writes them; values without controls.
        QTest::newRow("NUL in a value") << (QByteArray("TITLE=Contract.pdf") + '\0' + QByteArray(".x\nUSER=ann")) << QVariantMap{{"USER", "ann"}};
        QTest::newRow("controls in values")
            << QByteArray("TITLE=a\x1b[2Jb\nHOST=x\x7fy\nNAME=z\xc2\x85\nUSER=ann") << QVariantMap{{"USER", "ann"}};
        QTest::newRow("look-alike keys") << QByteArray("NAME\xc2\xa0=Evil\nN AME=Evil\nNAME=Work")
                                         << QVariantMap{{"NAME", "Work"}};
    }

    void infoLines()
    {
        QFETCH(QByteArray, text);
        QFETCH(QVariantMap, expected);
        const QString path = m_root.filePath("job.info");
        QVERIFY(writeFile(path, text));
        QCOMPARE(read_info(path), expected);
        QVERIFY(read_info(m_root.filePath("missing.info")).isEmpty());
    }

    // Things planted at a job's name by someone else: none is listed,
    // opened, delivered or removed, and what they point at stays as it was.
    void hostileEntriesAreLeftAlone_data()
    {
        QTest::addColumn<QString>("kind");
        for (const char* kind : {"link to a file", "link to a folder", "FIFO", "folder", "second hard link",
                                 "another user's file"})
            QTest::newRow(kind) << QString::fromLatin1(kind);
    }

    void hostileEntriesAreLeftAlone()
    {
        QFETCH(QString, kind);
        const QString out = folderDestination("Out");
        UserDefaults::standard().setValue("destination_name", "Out");
        const QString target = m_root.filePath(QStringLiteral("precious-%1").arg(m_case));
        QVERIFY(QDir().mkpath(target + "-dir"));
        QVERIFY(writeFile(target + "-dir/inside", "keep") && writeFile(target, "keep", QFile::ReadOwner | QFile::WriteOwner));
        const QString planted = m_spool + user_name() + "-D3F2UG-Planted.pdf";
        const QByteArray native = QFile::encodeName(planted);
        if (kind == "link to a file")
            QVERIFY(QFile::link(target, planted));
        else if (kind == "link to a folder")
            QVERIFY(QFile::link(target + "-dir", planted));
        else if (kind == "FIFO")
            QVERIFY(::mkfifo(native.constData(), 0600) == 0);
        else if (kind == "folder")
            QVERIFY(QDir().mkpath(planted) && writeFile(planted + "/inside", "keep"));
        else if (kind == "second hard link")
            QVERIFY(::link(QFile::encodeName(target).constData(), native.constData()) == 0);
        else if (::geteuid() != 0)
            QSKIP("giving a file to another user needs root");
        else
            QVERIFY(writeFile(planted, "%PDF-1.4 theirs") && ::chown(native.constData(), 65534, 65534) == 0);
        QVERIFY(writeFile(planted + ".info", "NAME=Out\nTITLE=Planted\n"));
        job(user_name() + "-D3F2UG-real.pdf", "TITLE=Real\n");

        QCOMPARE(m_delegate->waitingJobs().local, QStringList{m_spool + user_name() + "-D3F2UG-real.pdf"});
        m_delegate->processAllFiles();
        m_delegate->clearQueue();
        QVERIFY(QFile::exists(out + "/Real.pdf"));
        QVERIFY(!QFile::exists(out + "/Planted.pdf"));
        QVERIFY(QFileInfo(planted).isSymLink() || QFileInfo::exists(planted));
        QCOMPARE(readFile(target), QByteArray("keep"));
        QCOMPARE(readFile(target + "-dir/inside"), QByteArray("keep"));
        struct stat st {};
        QVERIFY(::stat(QFile::encodeName(target).constData(), &st) == 0);
        QCOMPARE(st.st_mode & 07777, mode_t(0600));
    }

    // A spool that others could tamper with is not used at all.
    void unsafeSpoolFoldersAreRefused_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("reason");
        QTest::newRow("link") << "link" << "a symbolic link";
        QTest::newRow("writable by all, not sticky") << "0777" << "without the sticky bit";
        QTest::newRow("another user's") << "chown" << "owned by uid 65534";
    }

    void unsafeSpoolFoldersAreRefused()
    {
        QFETCH(QString, kind);
        QFETCH(QString, reason);
        if (kind == "chown" && ::geteuid() != 0)
            QSKIP("giving a folder to another user needs root");
        job(user_name() + "-D3F2UG-a.pdf", "TITLE=a\n");
        const QString spool = QDir::cleanPath(m_spool);
        const QByteArray native = QFile::encodeName(spool);
        if (kind == "link") {
            QVERIFY(QFile::rename(spool, spool + "-elsewhere") && QFile::link(spool + "-elsewhere", spool));
        } else {
            QVERIFY(::chmod(native.constData(), 0777) == 0);
            if (kind == "chown")
                QVERIFY(::chmod(native.constData(), 01777) == 0 && ::chown(native.constData(), 65534, 65534) == 0);
        }
        const SpoolFolder folder;
        QVERIFY(!folder.isOpen());
        QVERIFY2(folder.problem().contains(reason), qPrintable(folder.problem()));
        QCOMPARE(m_delegate->waitingJobs().local, QStringList());
        if (kind == "link")
            QVERIFY(QFile::remove(spool) && QFile::rename(spool + "-elsewhere", spool));
        else
            QVERIFY(::chmod(native.constData(), 0755) == 0 && ::chown(native.constData(), ::geteuid(), ::getegid()) == 0);
    }

    void remoteFirstThenOwnJobsNeverOthers()
    {
        const QString remoteOut = folderDestination("Remote");
        const QString localOut = folderDestination("Local");
        UserDefaults::standard().setValue("remote_destination_name", "Remote");
        UserDefaults::standard().setValue("destination_name", "Local");
        job(user_name() + "-D3F2UG-a.pdf", "TITLE=Mine\n");
        job("someoneelse-D3F2UG-b.pdf", "TITLE=Theirs\n");
        job("remote:c.ps", "TITLE=From afar\n");

        QStringList order;
        connect(m_delegate.get(), &MainAppDelegate::jobFinished, this,
                [&order](const QString& path) { order << path_basename(path); });
        m_delegate->processAllFiles();
        // Remote first, then the local ones in the same scan.
        QCOMPARE(order, (QStringList{"remote:c.ps", user_name() + "-D3F2UG-a.pdf"}));
        QVERIFY(QFile::exists(remoteOut + "/From afar.pdf"));
        QVERIFY(QFile::exists(localOut + "/Mine.pdf"));
        QCOMPARE(spoolFiles(), (QStringList{"someoneelse-D3F2UG-b.pdf", "someoneelse-D3F2UG-b.pdf.info"}));
        m_delegate->processAllFiles();
        QCOMPARE(spoolFiles().size(), 2); // another user's job is never touched
        QCOMPARE(m_asked, 0);
    }

    void remoteJobsWaitForAnActiveSession()
    {
        folderDestination("Local");
        UserDefaults::standard().setValue("destination_name", "Local");
        m_delegate->setSessionProbe([] { return false; });
        job("remote:c.pdf", "TITLE=x\n");
        job(user_name() + "-D3F2UG-a.pdf");
        m_delegate->processAllFiles();
        QCOMPARE(spoolFiles(), (QStringList{"remote:c.pdf", "remote:c.pdf.info"}));
        // A trigger in an inactive session does nothing at all.
        QSignalSpy scans(m_delegate.get(), &MainAppDelegate::spoolScanned);
        m_delegate->openFiles({SpoolLocations::endTrigger()});
        QTest::qWait(300);
        QCOMPARE(scans.size(), 0);
        QCOMPARE(m_delegate->rerunTimer(), 0);
    }

    void rescansAfterATrigger()
    {
        m_delegate->setTimeScale(0.05); // 1, 2, 4, 8 s become 50, 100, 200, 400 ms
        QSignalSpy scans(m_delegate.get(), &MainAppDelegate::spoolScanned);
        QElapsedTimer clock;
        clock.start();
        QList<qint64> at;
        connect(m_delegate.get(), &MainAppDelegate::spoolScanned, this, [&] { at << clock.elapsed(); });
        // Triggers that come together are one scan, at once (a job in the
        // spool is whole), then the rescans.
        for (int i = 0; i < 3; ++i)
            m_delegate->openFiles({SpoolLocations::endTrigger()});
        QTRY_COMPARE_WITH_TIMEOUT(scans.size(), 5, 5000);
        QTest::qWait(900); // the series has ended: no sixth scan
        QCOMPARE(scans.size(), 5);
        QCOMPARE(m_delegate->rerunTimer(), 16);
        const QList<qint64> minimumGaps{0, 50, 100, 200, 400};
        QVERIFY2(at[0] < 50, qPrintable(QString::number(at[0])));
        qint64 previous = 0;
        for (int i = 0; i < 5; ++i) {
            QVERIFY2(at[i] - previous >= minimumGaps[i] - 2, qPrintable(QStringLiteral("scan %1 at %2").arg(i).arg(at[i])));
            previous = at[i];
        }

        // A second trigger during a series puts the timer back to 1 and
        // prolongs the series: the scan already scheduled still runs.
        scans.clear();
        m_delegate->openFiles({SpoolLocations::endTrigger()});
        QTRY_COMPARE_WITH_TIMEOUT(scans.size(), 2, 5000);
        m_delegate->openFiles({SpoolLocations::endTrigger()});
        QCOMPARE(m_delegate->rerunTimer(), 1);
        QTest::qWait(2500);
        QVERIFY2(scans.size() > 5, qPrintable(QString::number(scans.size())));
        QCOMPARE(m_delegate->rerunTimer(), 16);
    }

    void oneQuestionPerBatch()
    {
        const QString out = folderDestination("Chosen");
        m_chooser->answers << DestinationChooser::Answer{DestinationChooser::Outcome::Chosen, "Chosen"};
        for (const char* name : {"a", "b", "c"})
            job(user_name() + "-D3F2UG-" + name + ".pdf", QByteArray("TITLE=") + name);
        m_delegate->processAllFiles();
        QCOMPARE(m_asked, 1);
        QCOMPARE(QDir(out).entryList(QDir::Files).size(), 3);
        QVERIFY(spoolFiles().isEmpty());
    }

    // A named destination needs no question. A job is moved into a folder
    // on the spool's file system (the same file, nothing copied) and
    // copied into one elsewhere; either way it leaves the spool, info too.
    void aNamedDestinationNeedsNoQuestion_data()
    {
        QTest::addColumn<bool>("sameFileSystem");
        QTest::newRow("same file system: moved") << true;
        QTest::newRow("another file system: copied") << false;
    }

    void aNamedDestinationNeedsNoQuestion()
    {
        QFETCH(bool, sameFileSystem);
        QTemporaryDir elsewhere(QStringLiteral("/dev/shm/quirepad-test-XXXXXX"));
        struct stat spoolSt {}, elsewhereSt {};
        if (!sameFileSystem
            && (!elsewhere.isValid() || ::stat(QFile::encodeName(m_spool).constData(), &spoolSt) != 0
                || ::stat(QFile::encodeName(elsewhere.path()).constData(), &elsewhereSt) != 0
                || spoolSt.st_dev == elsewhereSt.st_dev))
            QSKIP("no second file system (/dev/shm) here");
        const QString out = folderDestination("Named", sameFileSystem ? QString() : elsewhere.path());
        const QString path = job(user_name() + "-D3F2UG-n.pdf", "NAME=Named\nTITLE=Direct\n");
        struct stat queued {};
        QCOMPARE(::stat(QFile::encodeName(path).constData(), &queued), 0);
        m_delegate->processAllFiles();
        QCOMPARE(m_asked, 0);
        QCOMPARE(readFile(out + "/Direct.pdf"), "%PDF-1.4 " + path_basename(path).toUtf8());
        struct stat delivered {};
        QCOMPARE(::stat(QFile::encodeName(out + "/Direct.pdf").constData(), &delivered), 0);
        QCOMPARE(delivered.st_ino == queued.st_ino, sameFileSystem);
        QCOMPARE(spoolFiles(), QStringList());
    }

    void titlesWithoutInfo()
    {
        const QString out = folderDestination("Titles");
        UserDefaults::standard().setValue("destination_name", "Titles");
        QVariantMap seen;
        connect(m_delegate.get(), &MainAppDelegate::currentFileInfoChanged, this, [&](const QVariantMap& info) {
            if (!info.isEmpty())
                seen = info;
        });
        const QString path = job(user_name() + "-D3F2UG-Plain name.pdf");
        m_delegate->processAllFiles();
        QCOMPARE(seen.value("path").toString(), path);
        QCOMPARE(seen.value("title").toString(), QStringLiteral(u"root-D3F2UG-Plain name").replace("root", user_name()));
        QVERIFY(m_delegate->currentFileInfo().isEmpty());
        QVERIFY(QFile::exists(out + "/" + seen.value("title").toString() + ".pdf"));
    }

    void stopLeavesTheRest()
    {
        const QString out = folderDestination("Stopper");
        UserDefaults::standard().setValue("destination_name", "Stopper");
        for (const char* name : {"1", "2", "3"})
            job(user_name() + "-D3F2UG-" + name + ".pdf", QByteArray("TITLE=") + name);
        connect(m_delegate.get(), &MainAppDelegate::jobFinished, this, [this] { m_delegate->stopProcessing(); });
        m_delegate->processAllFiles();
        QCOMPARE(QDir(out).entryList(QDir::Files), QStringList{"1.pdf"});
        QCOMPARE(spoolFiles().size(), 4); // two jobs with their info files
        QVERIFY(!m_delegate->running());
    }

    void failedDeliveriesStay()
    {
        const QString out = folderDestination("Blocked");
        QVERIFY(QDir().mkpath(path_dirname(out)));
        QVERIFY(writeFile(out, "a file where the folder should be"));
        UserDefaults::standard().setValue("destination_name", "Blocked");
        job(user_name() + "-D3F2UG-keep.pdf", "TITLE=Keep me\n");
        m_delegate->processAllFiles();
        m_delegate->processAllFiles();
        QCOMPARE(spoolFiles(), (QStringList{user_name() + "-D3F2UG-keep.pdf", user_name() + "-D3F2UG-keep.pdf.info"}));
        // The error, then a notification naming the document and the
        // reason: once, not at every rescan; the reason stays listed.
        QStringList told;
        for (const auto& interaction : m_dialogs->interactions())
            if (interaction.kind == ScriptedDialogService::Kind::Error
                || interaction.informative.startsWith("“Keep me” waits in the print queue: "))
                told << ScriptedDialogService::kindName(interaction.kind);
        QCOMPARE(told, (QStringList{"error", "notification", "error"}));
        QCOMPARE(m_delegate->keptJobs().size(), 1);
        QVERIFY(m_delegate->keptJobs().first().reason.startsWith("unable to create dir "));
        QFile::remove(out);
        m_delegate->processAllFiles();
        QVERIFY(m_delegate->keptJobs().isEmpty());
    }

    void unansweredQuestionsKeepCancelledDiscard_data()
    {
        QTest::addColumn<int>("outcome");
        QTest::addColumn<bool>("kept");
        QTest::newRow("no display") << int(DestinationChooser::Outcome::Unavailable) << true;
        QTest::newRow("user cancelled") << int(DestinationChooser::Outcome::Cancelled) << false;
        QTest::newRow("unknown name chosen") << int(DestinationChooser::Outcome::Chosen) << true;
    }

    void unansweredQuestionsKeepCancelledDiscard()
    {
        QFETCH(int, outcome);
        QFETCH(bool, kept);
        m_chooser->answers << DestinationChooser::Answer{DestinationChooser::Outcome(outcome), "No such destination"};
        job(user_name() + "-D3F2UG-q.pdf", "TITLE=Q\n");
        m_delegate->processAllFiles();
        QCOMPARE(m_asked, 1);
        QCOMPARE(spoolFiles().isEmpty(), !kept);
    }

    void ownFilesAreDeliveredAndLeftInPlace()
    {
        const QString out = folderDestination("Own");
        DestinationItem* own = m_delegate->managedObjectContext()->firstEntity("Destination", Predicate::equals("name", "Own"));
        own->setBool(true, "do_compress");
        const QString projectDir = qEnvironmentVariable("QUIREPAD_SOURCE_DIR", QDir::currentPath());
        if (CopyFileProcessor::isInTemporaryPlace(projectDir))
            QSKIP("the source tree lies in a temporary place");
        const QString mine = projectDir + "/README.md";
        QFile readme(mine);
        QVERIFY(readme.open(QIODevice::ReadOnly));
        const QByteArray before = readme.readAll();
        readme.close();
        QVERIFY(m_delegate->processPDFFiles({mine}, "Own"));
        QVERIFY(QFile::exists(mine));
        QVERIFY(readme.open(QIODevice::ReadOnly));
        QCOMPARE(readme.readAll(), before);
        QVERIFY(QFile::exists(out + "/README.pdf")); // named by the pattern
    }

    void triggerFileWakesTheQueue()
    {
        m_delegate->setTimeScale(0.05);
        m_delegate->startWatchingSpool();
        QSignalSpy scans(m_delegate.get(), &MainAppDelegate::spoolScanned);
        QVERIFY(touch_file(SpoolLocations::endTrigger()));
        QTRY_VERIFY_WITH_TIMEOUT(scans.size() >= 1, 5000);
        QVERIFY(m_delegate->inAgentMode());
    }

    void launchChecks()
    {
        // The shared folder exists (the spool is in it): the start trigger is
        // made writable for everyone, and outside agent mode "ready" is shown.
        m_delegate->setTimeScale(0.05);
        m_delegate->applicationDidFinishLaunching();
        QFileInfo start(SpoolLocations::startTrigger());
        QVERIFY(start.exists());
        QCOMPARE(int(start.permissions() & 0x0fff) , int(QFile::permissions(start.filePath()) & 0x0fff));
        QVERIFY(QFile::permissions(start.filePath()).testFlag(QFile::WriteOther));
        bool ready = false, driverAsked = false;
        for (const auto& interaction : m_dialogs->interactions()) {
            ready |= interaction.message == QLatin1String("Quirepad ready");
            driverAsked |= interaction.message == QLatin1String("The print driver is out of date,");
        }
        QVERIFY(ready);
        QCOMPARE(driverAsked, !DriverInstaller().isCurrent());

        // Without the shared folder both alerts appear.
        qputenv("QUIREPAD_SHARED_DIR", m_root.filePath("no-such-shared").toUtf8());
        m_dialogs->clearInteractions();
        MainAppDelegate other;
        other.setInAgentMode(true);
        other.applicationDidFinishLaunching();
        qputenv("QUIREPAD_SHARED_DIR", m_root.filePath("shared").toUtf8());
        QStringList alerts;
        for (const auto& interaction : m_dialogs->interactions())
            if (interaction.kind == ScriptedDialogService::Kind::Alert)
                alerts << interaction.message;
        QVERIFY(alerts.contains("The Quirepad shared directory doesn't exist. Install the Quirepad Print Driver first."));
        QVERIFY(alerts.contains("The Quirepad is not able to write to the shared directory. You may have to reinstall the Quirepad Print Driver."));
        for (const auto& interaction : m_dialogs->interactions())
            QVERIFY(interaction.message != QLatin1String("Quirepad ready")); // agent mode
    }
};

QUIREPAD_REGISTER_TEST(SpoolIntakeTest);
#include "tst_spool.moc"
