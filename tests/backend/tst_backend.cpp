#include "TestRegistry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QTest>

#include <cstring>
#include <optional>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utmpx.h>

// The tests run the staged backend exactly as CUPS does: argv is
// job-id user title copies options [file], the document comes from the file
// or from standard input, the shared folder from QUIREPAD_SHARED_DIR.

namespace {

constexpr const char* kMarker = "-D3F2UG-";
constexpr int kOk = 0; // CUPS_BACKEND_OK
constexpr int kFailed = 1; // CUPS_BACKEND_FAILED
constexpr int kHold = 3; // CUPS_BACKEND_HOLD
constexpr int kStop = 4; // CUPS_BACKEND_STOP
constexpr int kRetry = 6; // CUPS_BACKEND_RETRY

// Throwaway accounts for the ownership tests (created only as root).
constexpr const char* kJobUser = "qpbtest-job";
constexpr const char* kConsoleUser = "qpbtest-console";

struct Run {
    int status = -1;
    QByteArray out, err;
};

QString backendPath()
{
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + "/../share/quirepad/Resources/driver/quirepad");
}

QByteArray currentUser()
{
    const passwd* pw = ::getpwuid(::geteuid());
    return pw ? QByteArray(pw->pw_name) : QByteArray();
}

// A document with every byte value in it, so that any text-mode damage
// shows; the backend itself never looks inside.
QByteArray makeDocument(int size, quint32 seed)
{
    QByteArray data("%PDF-1.4\n%\xe2\xe3\xcf\xd3\n");
    QRandomGenerator random(seed);
    while (data.size() < size)
        data.append(char(random.bounded(256)));
    data.resize(size);
    return data;
}

QByteArray readAll(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size();
}

mode_t modeOf(const QString& path)
{
    struct stat st {
    };
    return ::lstat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_mode & 07777 : mode_t(-1);
}

int runTool(const QString& program, const QStringList& args, QByteArray* output = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, args);
    if (!process.waitForFinished(60000))
        return -1;
    if (output)
        *output = process.readAll();
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

// One utmp record as glibc stores it (the utmp file is an array of these).
QByteArray utmpRecord(const char* line, const char* user, pid_t pid)
{
    utmpx entry {};
    entry.ut_type = USER_PROCESS;
    entry.ut_pid = pid;
    std::strncpy(entry.ut_line, line, sizeof entry.ut_line);
    std::strncpy(entry.ut_user, user, sizeof entry.ut_user);
    return QByteArray(reinterpret_cast<const char*>(&entry), sizeof entry);
}

} // namespace

class BackendTest : public QObject
{
    Q_OBJECT

private:
    QString m_shared;
    QString m_spool;
    std::optional<QTemporaryDir> m_dir;
    bool m_haveUsers = false;

    // The console user receives remote jobs; by default that is the one
    // running the tests, so that no job is handed to anybody else.
    Run run(const QList<QByteArray>& args, const QByteArray& input = QByteArray(),
        const QMap<QString, QString>& env = {}) const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QUIREPAD_SHARED_DIR", m_shared);
        environment.insert("QUIREPAD_CONSOLE_USER", QString::fromLocal8Bit(currentUser()));
        environment.remove("QUIREPAD_UTMP_FILE");
        for (auto it = env.begin(); it != env.end(); ++it)
            it.value().isNull() ? environment.remove(it.key()) : environment.insert(it.key(), it.value());
        QProcess process;
        process.setProcessEnvironment(environment);
        QStringList arguments;
        for (const QByteArray& arg : args)
            arguments << QString::fromUtf8(arg);
        process.start(backendPath(), arguments);
        process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(60000))
            return {}; // the QProcess kills it
        Run result;
        result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        result.out = process.readAllStandardOutput();
        result.err = process.readAllStandardError();
        return result;
    }

    // A job whose document comes from a file named on the command line or
    // from standard input.
    Run runJob(QList<QByteArray> args, const QByteArray& document, bool fromFile) const
    {
        if (!fromFile)
            return run(args, document);
        const QString path = m_dir->filePath("input.pdf");
        if (!writeFile(path, document))
            return {};
        return run(args << QFile::encodeName(path));
    }

    // Everything in the spool, hidden files (unfinished ".part" files) included.
    QStringList spoolEntries() const
    {
        return QDir(m_spool).entryList(
            QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    }

    QStringList jobFiles() const { return QDir(m_spool).entryList({ "*.pdf" }, QDir::Files, QDir::Name); }

    QString triggerPath() const { return m_shared + "/.quirepad_trigger_file_end"; }

private slots:
    void initTestCase()
    {
        QVERIFY2(QFileInfo(backendPath()).isExecutable(), qPrintable("staged backend missing: " + backendPath()));
        if (::geteuid() != 0)
            return;
        QByteArray output;
        for (const char* name : { kJobUser, kConsoleUser }) {
            runTool("userdel", { name }); // a leftover of an interrupted run
            QVERIFY2(
                runTool("useradd", { "-M", "-r", "-s", "/usr/sbin/nologin", name }, &output) == 0, output.constData());
        }
        m_haveUsers = true;
    }

    void cleanupTestCase()
    {
        if (m_haveUsers)
            for (const char* name : { kJobUser, kConsoleUser })
                runTool("userdel", { name });
    }

    void init()
    {
        m_dir.emplace();
        QVERIFY(m_dir->isValid());
        m_shared = m_dir->filePath("shared");
        m_spool = m_shared + "/quirepad_spool";
        QVERIFY(QDir().mkpath(m_spool));
    }

    void cleanup() { m_dir.reset(); }

    void deviceLine()
    {
        const Run r = run({});
        QCOMPARE(r.status, kOk);
        QCOMPARE(r.out, QByteArray("direct quirepad \"Quirepad\" \"Print to Quirepad\"\n"));

        const Run usage = run({ "1", "user", "title" });
        QCOMPARE(usage.status, kFailed);
        QVERIFY2(usage.err.contains("Usage:"), usage.err.constData());
    }

    void job_data()
    {
        QTest::addColumn<bool>("fromFile");
        QTest::addColumn<QByteArray>("copies");
        QTest::addColumn<QByteArray>("options");
        QTest::addColumn<QByteArray>("remoteHost"); // empty: a local job
        QTest::addColumn<int>("jobs");
        QTest::addColumn<QByteArrayList>("info"); // "%u": the USER line

        const QByteArrayList plain { "TITLE=Invoice", "%u", "HOST=localhost", "JOB_ID=42", "COPIES=1" };
        const QByteArrayList three = plain.mid(0, 4) << "COPIES=3";
        const QByteArray none;
        QTest::newRow("file, no options") << true << QByteArray("1") << none << none << 1 << plain;
        QTest::newRow("file, destination and options")
            << true << QByteArray("1")
            << QByteArray("quirepad-destination=Archive job-originating-host-name=localhost media=A4 "
                          "job-uuid=urn:uuid:1234 empty= note='two\nlines' Zebra=1")
            << none << 1
            << QByteArrayList { "NAME=Archive", "TITLE=Invoice", "%u", "HOST=localhost", "JOB_ID=42", "COPIES=1",
                   "job-uuid=urn:uuid:1234", "media=A4", "note=two lines", "Zebra=1" };
        QTest::newRow("stdin, destination and options")
            << false << QByteArray("1") << QByteArray("quirepad-destination='Mail to Ann' sides=one-sided") << none << 1
            << QByteArrayList { "NAME=Mail to Ann", "TITLE=Invoice", "%u", "HOST=localhost", "JOB_ID=42", "COPIES=1",
                   "sides=one-sided" };
        QTest::newRow("options cannot replace the job's own keys")
            << false << QByteArray("1") << QByteArray("TITLE=Other USER=mallory COPIES=9 NAME=x color=yes") << none << 1
            << (plain + QByteArrayList { "color=yes" });
        // Keys the application would read differently (trimmed, spaced)
        // never reach the info file.
        QTest::newRow("look-alike keys dropped")
            << false << QByteArray("1") << QByteArray("NAME\xc2\xa0=Evil 'TITLE\t'=Evil x-y.z_1=ok") << none << 1
            << (plain + QByteArrayList { "x-y.z_1=ok" });
        // Standard input has been copied by CUPS' filters already, a file not.
        QTest::newRow("3 copies from a file") << true << QByteArray("3") << none << none << 3 << three;
        QTest::newRow("3 copies from stdin") << false << QByteArray("3") << none << none << 1 << three;
        QTest::newRow("nonsense count is one copy") << true << QByteArray("x") << none << none << 1 << plain;

        const QList<std::pair<QByteArray, bool>> hosts { { "LOCALHOST", false }, { "127.0.0.1", false },
            { "::1", false }, { QSysInfo::machineHostName().toUtf8(), false }, { "printhost.example", true },
            { "192.0.2.7", true } };
        for (const auto& [host, remote] : hosts)
            QTest::addRow("host %s", host.constData())
                << false << QByteArray("1") << "job-originating-host-name=" + host << (remote ? host : none) << 1
                << QByteArrayList { "TITLE=Invoice", "%u", "HOST=" + host, "JOB_ID=42", "COPIES=1" };
    }

    void job()
    {
        QFETCH(bool, fromFile);
        QFETCH(QByteArray, copies);
        QFETCH(QByteArray, options);
        QFETCH(QByteArray, remoteHost);
        QFETCH(int, jobs);
        QFETCH(QByteArrayList, info);

        const QByteArray user = currentUser();
        const QByteArray document = makeDocument(300 * 1024 + 17, 7);
        const Run r = runJob({ "42", user, "Invoice", copies, options }, document, fromFile);
        QVERIFY2(r.status == kOk, r.err.constData());

        const QByteArray owner = remoteHost.isEmpty() ? user : "remote:" + user + "@" + remoteHost;
        const QString base = QString::fromUtf8(owner + kMarker + "Invoice");
        QStringList expected { base + ".pdf" };
        for (int i = 1; i < jobs; ++i)
            expected << base + QStringLiteral(" %1.pdf").arg(i);
        expected.sort();
        QCOMPARE(jobFiles(), expected);
        QCOMPARE(spoolEntries().size(), 2 * jobs); // no ".part" files left
        info.replace(info.indexOf("%u"), "USER=" + user);
        for (const QString& name : expected) {
            const QString path = m_spool + '/' + name;
            QCOMPARE(readAll(path), document);
            QCOMPARE(readAll(path + ".info"), info.join('\n') + '\n');
            QCOMPARE(modeOf(path), mode_t(0600));
            QCOMPARE(modeOf(path + ".info"), mode_t(0600));
            QCOMPARE(QFileInfo(path).ownerId(), ::geteuid());
        }
    }

    void title_data()
    {
        QTest::addColumn<QByteArray>("title");
        QTest::addColumn<QByteArray>("fileTitle");
        QTest::addColumn<QByteArray>("infoTitle");

        QTest::newRow("slash") << QByteArray("Q1/Q2 figures") << QByteArray("Q1_Q2 figures")
                               << QByteArray("Q1/Q2 figures");
        QTest::newRow("newline and tab") << QByteArray("first\nsecond\tthird") << QByteArray("first_second_third")
                                         << QByteArray("first second third");
        QTest::newRow("leading dots") << QByteArray("...hidden.txt") << QByteArray("hidden.txt")
                                      << QByteArray("...hidden.txt");
        QTest::newRow("only dots") << QByteArray("...") << QByteArray("Untitled") << QByteArray("...");
        QTest::newRow("DEL and C1 controls")
            << QByteArray("x\x7fy\xc2\x85z") << QByteArray("x_y_z") << QByteArray("x y z");
        QTest::newRow("accents kept") << QByteArray("Café – résumé") << QByteArray("Café – résumé")
                                      << QByteArray("Café – résumé");
        // 'a' and 3-byte characters: 200 bytes would cut the 67th character
        // in two, so 199 bytes remain.
        const QByteArray euros = "a" + QByteArray("\xe2\x82\xac").repeated(100);
        QTest::newRow("300 bytes of UTF-8") << euros << euros.left(199) << euros;
    }

    void title()
    {
        QFETCH(QByteArray, title);
        QFETCH(QByteArray, fileTitle);
        QFETCH(QByteArray, infoTitle);

        const QByteArray user = currentUser();
        const Run r = run({ "5", user, title, "1", "" }, makeDocument(1000, 1));
        QVERIFY2(r.status == kOk, r.err.constData());
        const QString name = QFile::decodeName(user + kMarker + fileTitle + ".pdf");
        QCOMPARE(jobFiles(), QStringList { name });
        QVERIFY(readAll(m_spool + '/' + name + ".info").startsWith("TITLE=" + infoTitle + "\nUSER="));
        QCOMPARE(spoolEntries().size(), 2);
    }

    void nameTaken()
    {
        const QByteArray user = currentUser();
        const QString base = m_spool + '/' + QString::fromUtf8(user + kMarker + "Notes");
        QVERIFY(writeFile(base + ".pdf", "earlier job"));

        const QByteArray first = makeDocument(5000, 2);
        Run r = run({ "8", user, "Notes", "1", "" }, first);
        QVERIFY2(r.status == kOk, r.err.constData());
        QCOMPARE(readAll(base + ".pdf"), QByteArray("earlier job"));
        QVERIFY(!QFileInfo::exists(base + ".pdf.info"));
        QCOMPARE(readAll(base + " 1.pdf"), first);

        // A name whose ".info" is still there (its job already gone) is
        // taken too: the leftover is not mixed up with a new job.
        QVERIFY(writeFile(base + " 2.pdf.info", "TITLE=leftover\n"));
        const QByteArray second = makeDocument(6000, 3);
        r = run({ "9", user, "Notes", "1", "" }, second);
        QVERIFY2(r.status == kOk, r.err.constData());
        QCOMPARE(readAll(base + " 2.pdf.info"), QByteArray("TITLE=leftover\n"));
        QCOMPARE(readAll(base + " 3.pdf"), second);
        QVERIFY(readAll(base + " 3.pdf.info").contains("\nJOB_ID=9\n"));
        QCOMPARE(spoolEntries().size(), 6);
    }

    void owner_data()
    {
        QTest::addColumn<QByteArray>("user");
        QTest::addColumn<QByteArray>("options");
        QTest::addColumn<QString>("consoleEnv"); // QUIREPAD_CONSOLE_USER, null: unset
        QTest::addColumn<QByteArrayList>("utmp"); // "line:user" records; "!" first: the process is gone
        QTest::addColumn<QByteArray>("expectedOwner"); // empty: nobody, the job is held in CUPS

        const QString unset;
        const QByteArray job(kJobUser), console(kConsoleUser), remote("job-originating-host-name=far.example");
        QTest::newRow("local job: the job's user")
            << job << QByteArray() << QString(kConsoleUser) << QByteArrayList { ":0:" + console } << job;
        QTest::newRow("remote job: QUIREPAD_CONSOLE_USER")
            << job << remote << QString(kConsoleUser) << QByteArrayList { ":0:" + job } << console;
        QTest::newRow("remote job: graphical login before terminal")
            << job << remote << unset << QByteArrayList { "tty3:" + job, ":1:" + console } << console;
        QTest::newRow("remote job: login of a gone process ignored")
            << job << remote << unset << QByteArrayList { "!:0:" + job, "tty1:" + console } << console;
        QTest::newRow("remote job: only a network login")
            << job << remote << unset << QByteArrayList { "pts/0:" + console } << QByteArray();
        QTest::newRow("unknown local user: console user")
            << QByteArray("no-such-account-qp") << QByteArray() << QString(kConsoleUser) << QByteArrayList() << console;
    }

    void owner()
    {
        if (::geteuid() != 0)
            QSKIP("handing jobs to other users needs root (the backend runs as root under CUPS)");
        QFETCH(QByteArray, user);
        QFETCH(QByteArray, options);
        QFETCH(QString, consoleEnv);
        QFETCH(QByteArrayList, utmp);
        QFETCH(QByteArray, expectedOwner);

        // A private utmp file, so the machine's own logins play no part.
        QByteArray records;
        for (QByteArray record : utmp) {
            const bool dead = record.startsWith('!');
            record = record.mid(dead ? 1 : 0);
            const int colon = record.lastIndexOf(':');
            records += utmpRecord(record.left(colon).constData(), record.mid(colon + 1).constData(),
                dead ? pid_t(0x7ffffff0) : ::getpid()); // above any pid_max
        }
        const QString utmpFile = m_dir->filePath("utmp");
        QVERIFY(writeFile(utmpFile, records));

        const Run r = run({ "11", user, "Payslip", "1", options }, makeDocument(4096, 6),
            { { "QUIREPAD_CONSOLE_USER", consoleEnv }, { "QUIREPAD_UTMP_FILE", utmpFile } });
        if (expectedOwner.isEmpty()) {
            // Nobody to give it to: never written readable by all, held.
            QCOMPARE(r.status, kHold);
            QVERIFY2(r.err.contains("held in the print queue"), r.err.constData());
            QCOMPARE(spoolEntries(), QStringList());
            return;
        }
        QVERIFY2(r.status == kOk, r.err.constData());

        const QStringList jobs = jobFiles();
        QCOMPARE(jobs.size(), 1);
        for (const QString& path : { m_spool + '/' + jobs.first(), m_spool + '/' + jobs.first() + ".info" }) {
            QCOMPARE(QFileInfo(path).ownerId(), ::getpwnam(expectedOwner)->pw_uid);
            QCOMPARE(modeOf(path), mode_t(0600));
        }
    }

    void trigger_data()
    {
        QTest::addColumn<QString>("before");
        QTest::newRow("created") << "nothing";
        QTest::newRow("already there") << "file";
        // The shared folder is writable by everyone: a link planted there
        // must not make the backend write or chmod another file.
        QTest::newRow("symbolic link not followed") << "symlink";
    }

    void trigger()
    {
        QFETCH(QString, before);
        const QString victim = before == "symlink" ? m_dir->filePath("precious") : triggerPath();
        if (before != "nothing") {
            QVERIFY(writeFile(victim, "keep me"));
            QVERIFY(QFile::setPermissions(victim, QFile::ReadOwner | QFile::WriteOwner));
        }
        if (before == "symlink")
            QVERIFY(QFile::link(victim, triggerPath()));

        const Run r = run({ "1", currentUser(), "Poster", "1", "" }, makeDocument(100, 9));
        QVERIFY2(r.status == kOk, r.err.constData());
        QCOMPARE(jobFiles().size(), 1);
        if (before == "symlink") {
            QVERIFY2(r.err.contains("WARNING:"), r.err.constData());
            QCOMPARE(readAll(victim), QByteArray("keep me"));
            QCOMPARE(modeOf(victim), mode_t(0600));
        } else {
            QCOMPARE(readAll(triggerPath()), QByteArray("x"));
            QCOMPARE(modeOf(triggerPath()), mode_t(0777));
        }
    }

    // Temporaries a killed job left: ours and an hour old go; new ones (a
    // job being written), look-alikes and links stay.
    void staleTemporaries()
    {
        const QString spool = m_spool + '/';
        const QStringList names { ".quirepad-0123456789ab.part", ".quirepad-aaaaaaaaaaaa.part",
            ".quirepad-notours.part", ".quirepad-bbbbbbbbbbbb.part" };
        for (const QString& name : names.mid(0, 3))
            QVERIFY(writeFile(spool + name, "partial"));
        QVERIFY(QFile::link(m_dir->filePath("target"), spool + names.at(3)));
        QVERIFY(writeFile(m_dir->filePath("target"), "keep"));
        const QByteArray old = "touch -h -d '2 hours ago' ";
        for (const QString& name : { names.at(0), names.at(2), names.at(3) })
            QCOMPARE(runTool("sh", { "-c", old + "'" + spool + name + "'" }), 0);

        const Run r = run({ "3", currentUser(), "After a crash", "1", "" }, makeDocument(500, 4));
        QVERIFY2(r.status == kOk, r.err.constData());
        QVERIFY(!QFileInfo::exists(spool + names.at(0)));
        QVERIFY(QFileInfo::exists(spool + names.at(1))); // not an hour old
        QVERIFY(QFileInfo::exists(spool + names.at(2))); // not our name
        QVERIFY(QFileInfo(spool + names.at(3)).isSymLink());
        QCOMPARE(readAll(m_dir->filePath("target")), QByteArray("keep"));
    }

    void failures_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<bool>("fromFile");
        QTest::addColumn<int>("status");

        QTest::newRow("spool folder missing") << "no spool" << false << kStop;
        // The shared folders are everyone's: one that others could tamper
        // with is refused.
        QTest::newRow("spool is a link") << "link" << false << kStop;
        QTest::newRow("spool writable by all, not sticky") << "0777" << false << kStop;
        QTest::newRow("spool of another user") << "chown" << false << kStop;
        QTest::newRow("empty stdin") << "empty" << false << kFailed;
        QTest::newRow("empty file") << "empty" << true << kFailed;
        QTest::newRow("file missing") << "no input" << true << kFailed;
    }

    void failures()
    {
        QFETCH(QString, setup);
        QFETCH(bool, fromFile);
        QFETCH(int, status);

        const QByteArray spool = QFile::encodeName(m_spool);
        if (setup == "no spool")
            QVERIFY(QDir(m_spool).removeRecursively());
        if (setup == "link")
            QVERIFY(QDir(m_spool).removeRecursively() && QDir().mkpath(m_dir->filePath("elsewhere"))
                && QFile::link(m_dir->filePath("elsewhere"), m_spool));
        if (setup == "0777")
            QVERIFY(::chmod(spool.constData(), 0777) == 0);
        if (setup == "chown" && ::geteuid() != 0)
            QSKIP("giving a folder to another user needs root");
        if (setup == "chown")
            QVERIFY(::chmod(spool.constData(), 01777) == 0 && ::chown(spool.constData(), 65534, 65534) == 0);
        const QList<QByteArray> args { "13", currentUser(), "Lost", "2", "" };
        const Run r = setup == "no input" ? run(QList<QByteArray>(args) << "/nonexistent/input.pdf")
                                          : runJob(args, setup == "empty" ? "" : makeDocument(10000, 10), fromFile);
        QCOMPARE(r.status, status);
        QVERIFY2(r.err.contains("ERROR:"), r.err.constData());
        QCOMPARE(spoolEntries(), QStringList());
        QVERIFY(!QFileInfo::exists(triggerPath()));
    }

    void fullDisk_data()
    {
        QTest::addColumn<bool>("fromFile");
        QTest::addColumn<int>("size");
        QTest::addColumn<QByteArray>("copies");

        QTest::newRow("1 MiB from stdin") << false << (1 << 20) << QByteArray("1");
        // The first copy fits, the second does not: CUPS retries the whole
        // job, so the first one goes too.
        QTest::newRow("second copy does not fit") << true << 36 * 1024 << QByteArray("3");
    }

    void fullDisk()
    {
        QFETCH(bool, fromFile);
        QFETCH(int, size);
        QFETCH(QByteArray, copies);
        if (::geteuid() != 0)
            QSKIP("mounting a small file system needs root");

        QVERIFY(QDir(m_shared).removeRecursively());
        QVERIFY(QDir().mkpath(m_shared));
        QByteArray output;
        if (runTool("mount", { "-t", "tmpfs", "-o", "size=64k,mode=0755", "tmpfs", m_shared }, &output) != 0)
            QSKIP(qPrintable("mount is not permitted here: " + QString::fromLocal8Bit(output).trimmed()));
        auto unmount = qScopeGuard([this] { runTool("umount", { m_shared }); });
        QVERIFY(QDir().mkpath(m_spool));

        const Run r = runJob({ "21", currentUser(), "Big", copies, "" }, makeDocument(size, 11), fromFile);
        QCOMPARE(r.status, kRetry);
        QVERIFY2(r.err.contains("ERROR:"), r.err.constData());
        QCOMPARE(spoolEntries(), QStringList());
        QVERIFY(!QFileInfo::exists(triggerPath()));
        if (copies != "1")
            QVERIFY2(r.err.contains("INFO: Saved"), "the first copy should have been written before the failure");
    }

    void ppdCheck()
    {
        const QString ppd = QFileInfo(backendPath()).absolutePath() + "/quirepad.ppd";
        QVERIFY(readAll(ppd).contains("\n*cupsFilter2: \"application/pdf application/vnd.cups-pdf 0 -\"\n"));
        const QString tool = QStandardPaths::findExecutable("cupstestppd");
        if (tool.isEmpty())
            QSKIP("cupstestppd is not installed (package cups-client)");
        QByteArray output;
        QVERIFY2(runTool(tool, { "-W", "all", ppd }, &output) == 0, output.constData());
    }

    void installer()
    {
        if (::geteuid() != 0)
            QSKIP("the installer runs as root only");
        const QString root = m_dir->filePath("root");
        const QString conf = m_dir->filePath("cups-files.conf");
        QVERIFY(writeFile(conf, "LogLevel warn\nSetEnv QUIREPAD_SHARED_DIR /old/place\nListen localhost:631\n"));
        const QStringList args { QFileInfo(backendPath()).absolutePath() + "/install-driver.sh", "--destdir", root,
            "--shared-dir", "/srv/qp", "--cups-files-conf", conf };
        // Twice: the second run must leave the same state.
        for (int pass = 0; pass < 2; ++pass) {
            QByteArray output;
            QVERIFY2(runTool("bash", args, &output) == 0, output.constData());
            QCOMPARE(
                readAll(conf), QByteArray("LogLevel warn\nListen localhost:631\nSetEnv QUIREPAD_SHARED_DIR /srv/qp\n"));
            QCOMPARE(readAll(root + "/usr/lib/cups/backend/quirepad"), readAll(backendPath()));
            QCOMPARE(modeOf(root + "/usr/lib/cups/backend/quirepad"), mode_t(0700));
            QCOMPARE(modeOf(root + "/srv/qp/quirepad_spool"), mode_t(01777));
            QCOMPARE(modeOf(root + "/srv/qp/.quirepad_trigger_file_end"), mode_t(0777));
        }
    }
};

QUIREPAD_REGISTER_TEST(BackendTest);
#include "tst_backend.moc"
