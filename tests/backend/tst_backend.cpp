#include "TestRegistry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
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
constexpr int kStop = 4; // CUPS_BACKEND_STOP
constexpr int kRetry = 6; // CUPS_BACKEND_RETRY

// Throwaway accounts for the ownership tests (created only as root).
constexpr const char* kJobUser = "qpbtest-job";
constexpr const char* kConsoleUser = "qpbtest-console";

struct Run {
    int status = -1;
    QByteArray out;
    QByteArray err;
};

QString backendPath()
{
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + "/../share/quirepad/Resources/driver/quirepad");
}

QString driverDir()
{
    return QFileInfo(backendPath()).absolutePath();
}

QByteArray currentUser()
{
    const passwd* pw = ::getpwuid(::geteuid());
    return pw ? QByteArray(pw->pw_name) : QByteArray();
}

std::optional<uid_t> uidOf(const char* name)
{
    const passwd* pw = ::getpwnam(name);
    if (!pw)
        return std::nullopt;
    return pw->pw_uid;
}

bool isRoot()
{
    return ::geteuid() == 0;
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
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return mode_t(-1);
    return st.st_mode & 07777;
}

uid_t ownerOf(const QString& path)
{
    struct stat st {
    };
    if (::lstat(QFile::encodeName(path).constData(), &st) != 0)
        return uid_t(-1);
    return st.st_uid;
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
QByteArray utmpRecord(short type, const char* line, const char* user, pid_t pid)
{
    utmpx entry;
    std::memset(&entry, 0, sizeof entry);
    entry.ut_type = type;
    entry.ut_pid = pid;
    std::strncpy(entry.ut_line, line, sizeof entry.ut_line);
    std::strncpy(entry.ut_user, user, sizeof entry.ut_user);
    std::strncpy(entry.ut_id, "qp", sizeof entry.ut_id);
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

    Run run(const QList<QByteArray>& args, const QByteArray& input = QByteArray(),
        const QMap<QString, QString>& env = {}) const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QUIREPAD_SHARED_DIR", m_shared);
        environment.remove("QUIREPAD_CONSOLE_USER");
        environment.remove("QUIREPAD_UTMP_FILE");
        for (auto it = env.begin(); it != env.end(); ++it) {
            if (it.value().isNull())
                environment.remove(it.key());
            else
                environment.insert(it.key(), it.value());
        }
        QProcess process;
        process.setProcessEnvironment(environment);
        QString program = backendPath();
        QStringList arguments;
        bool allUtf8 = true;
        for (const QByteArray& arg : args)
            allUtf8 = allUtf8 && QString::fromUtf8(arg).toUtf8() == arg;
        if (allUtf8) {
            for (const QByteArray& arg : args)
                arguments << QString::fromUtf8(arg);
        } else {
            // QProcess takes text; bytes that are not UTF-8 reach the
            // backend through printf escapes in bash instead.
            program = "bash";
            arguments << "-c"
                      << "a=(); for x in \"$@\"; do v=$(printf '%bX' \"$x\"); a+=(\"${v%X}\"); done; "
                         "exec \"$BACKEND\" \"${a[@]}\""
                      << "bash";
            for (const QByteArray& arg : args) {
                QString escaped;
                for (char c : arg)
                    escaped += QStringLiteral("\\0%1").arg(uint(uchar(c)), 3, 8, QChar('0'));
                arguments << escaped;
            }
            environment.insert("BACKEND", backendPath());
            process.setProcessEnvironment(environment);
        }
        process.start(program, arguments);
        Run result;
        if (!process.waitForStarted(30000))
            return result;
        if (!input.isEmpty())
            process.write(input);
        process.closeWriteChannel();
        if (!process.waitForFinished(60000)) {
            process.kill();
            process.waitForFinished();
            return result;
        }
        result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        result.out = process.readAllStandardOutput();
        result.err = process.readAllStandardError();
        return result;
    }

    // Everything in the spool, hidden files included, sorted.
    QStringList spoolEntries() const
    {
        return QDir(m_spool).entryList(
            QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
    }

    QStringList jobFiles() const { return QDir(m_spool).entryList({ "*.pdf" }, QDir::Files, QDir::Name); }

    QStringList temporaryFiles() const
    {
        QStringList hidden;
        for (const QString& name : spoolEntries())
            if (name.startsWith('.'))
                hidden << name;
        return hidden;
    }

    QByteArrayList infoLines(const QString& jobName) const
    {
        QByteArray text = readAll(m_spool + '/' + jobName + ".info");
        if (text.endsWith('\n'))
            text.chop(1);
        return text.split('\n');
    }

    QString triggerPath() const { return m_shared + "/.quirepad_trigger_file_end"; }

private slots:
    void initTestCase()
    {
        QVERIFY2(QFileInfo(backendPath()).isExecutable(), qPrintable("staged backend missing: " + backendPath()));
        if (!isRoot())
            return;
        for (const char* name : { kJobUser, kConsoleUser }) {
            runTool("userdel", { name }); // a leftover of an interrupted run
            QByteArray output;
            const int status = runTool("useradd", { "-M", "-r", "-s", "/usr/sbin/nologin", name }, &output);
            QVERIFY2(status == 0, output.constData());
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
        QVERIFY(spoolEntries().isEmpty());
    }

    void wrongArgumentCount()
    {
        const Run r = run({ "1", "user", "title" });
        QCOMPARE(r.status, kFailed);
        QVERIFY2(r.err.contains("Usage:"), r.err.constData());
        QVERIFY(spoolEntries().isEmpty());
    }

    void job_data()
    {
        QTest::addColumn<bool>("fromFile");
        QTest::addColumn<QByteArray>("title");
        QTest::addColumn<QByteArray>("options");
        QTest::addColumn<QByteArrayList>("expectedInfo"); // after USER; "%u" is the user
        QTest::addColumn<QByteArrayList>("headInfo"); // before USER

        const QByteArray host = QSysInfo::machineHostName().toUtf8();
        QTest::newRow("file, no options") << true << QByteArray("Quarterly report") << QByteArray()
                                          << QByteArrayList { "HOST=localhost", "JOB_ID=42", "COPIES=1" }
                                          << QByteArrayList { "TITLE=Quarterly report" };
        QTest::newRow("stdin, no options") << false << QByteArray("Quarterly report") << QByteArray()
                                           << QByteArrayList { "HOST=localhost", "JOB_ID=42", "COPIES=1" }
                                           << QByteArrayList { "TITLE=Quarterly report" };
        QTest::newRow("file, destination and options")
            << true << QByteArray("Invoice")
            << QByteArray("quirepad-destination=Archive job-originating-host-name=localhost media=A4 "
                          "job-uuid=urn:uuid:1234 empty= note='two\nlines' Zebra=1")
            << QByteArrayList { "HOST=localhost", "JOB_ID=42", "COPIES=1", "job-uuid=urn:uuid:1234", "media=A4",
                   "note=two lines", "Zebra=1" }
            << QByteArrayList { "NAME=Archive", "TITLE=Invoice" };
        QTest::newRow("stdin, destination and options")
            << false << QByteArray("Invoice")
            << QByteArray("quirepad-destination='Mail to Ann' job-originating-host-name=127.0.0.1 sides=one-sided")
            << QByteArrayList { "HOST=127.0.0.1", "JOB_ID=42", "COPIES=1", "sides=one-sided" }
            << QByteArrayList { "NAME=Mail to Ann", "TITLE=Invoice" };
        QTest::newRow("own host name is local")
            << true << QByteArray("Memo") << QByteArray("job-originating-host-name=" + host)
            << QByteArrayList { "HOST=" + host, "JOB_ID=42", "COPIES=1" } << QByteArrayList { "TITLE=Memo" };
        QTest::newRow("options cannot replace the job's own keys")
            << true << QByteArray("Memo") << QByteArray("TITLE=Other USER=mallory COPIES=9 NAME=x color=yes")
            << QByteArrayList { "HOST=localhost", "JOB_ID=42", "COPIES=1", "color=yes" }
            << QByteArrayList { "TITLE=Memo" };
        QTest::newRow("empty destination is no NAME")
            << false << QByteArray("Memo") << QByteArray("quirepad-destination=")
            << QByteArrayList { "HOST=localhost", "JOB_ID=42", "COPIES=1" } << QByteArrayList { "TITLE=Memo" };
    }

    void job()
    {
        QFETCH(bool, fromFile);
        QFETCH(QByteArray, title);
        QFETCH(QByteArray, options);
        QFETCH(QByteArrayList, expectedInfo);
        QFETCH(QByteArrayList, headInfo);

        const QByteArray user = currentUser();
        const QByteArray document = makeDocument(300 * 1024 + 17, 7);
        QList<QByteArray> args { "42", user, title, "1", options };
        QByteArray input = document;
        if (fromFile) {
            const QString path = m_dir->filePath("input.pdf");
            QVERIFY(writeFile(path, document));
            args << QFile::encodeName(path);
            input.clear();
        }
        const Run r = run(args, input);
        QVERIFY2(r.status == kOk, r.err.constData());

        const QString name = QString::fromUtf8(user + kMarker + title + ".pdf");
        QCOMPARE(jobFiles(), QStringList { name });
        QCOMPARE(readAll(m_spool + '/' + name), document);

        QByteArrayList expected = headInfo;
        expected << "USER=" + user;
        expected += expectedInfo;
        QCOMPARE(infoLines(name), expected);

        QCOMPARE(modeOf(m_spool + '/' + name), mode_t(0600));
        QCOMPARE(modeOf(m_spool + '/' + name + ".info"), mode_t(0600));
        QCOMPARE(ownerOf(m_spool + '/' + name), ::geteuid());
        QCOMPARE(spoolEntries(), QStringList({ name, name + ".info" }));
        QVERIFY2(r.err.contains("INFO:"), r.err.constData());
    }

    void title_data()
    {
        QTest::addColumn<QByteArray>("title");
        QTest::addColumn<QByteArray>("fileTitle");
        QTest::addColumn<QByteArray>("infoTitle");

        QTest::newRow("slash") << QByteArray("Q1/Q2 figures") << QByteArray("Q1_Q2 figures")
                               << QByteArray("Q1/Q2 figures");
        QTest::newRow("newline and tab") << QByteArray("first\nsecond\tthird") << QByteArray("first_second_third")
                                         << QByteArray("first second\tthird");
        QTest::newRow("carriage return") << QByteArray("a\r\nb") << QByteArray("a__b") << QByteArray("a  b");
        QTest::newRow("leading dots") << QByteArray("...hidden.txt") << QByteArray("hidden.txt")
                                      << QByteArray("...hidden.txt");
        QTest::newRow("dots after a slash stay") << QByteArray("./.x") << QByteArray("_.x") << QByteArray("./.x");
        QTest::newRow("only dots") << QByteArray("...") << QByteArray("Untitled") << QByteArray("...");
        QTest::newRow("empty") << QByteArray() << QByteArray("Untitled") << QByteArray();
        QTest::newRow("DEL and C1 controls")
            << QByteArray("x\x7fy\xc2\x85z") << QByteArray("x_y_z") << QByteArray("x\x7fy\xc2\x85z");
        QTest::newRow("not UTF-8") << QByteArray("\xff\xfeok\xc3") << QByteArray("__ok_")
                                   << QByteArray("\xff\xfeok\xc3");
        QTest::newRow("accents kept") << QByteArray("Café – résumé") << QByteArray("Café – résumé")
                                      << QByteArray("Café – résumé");

        // 300 bytes: 'a' and 3-byte characters; 200 bytes would cut the 67th
        // character in two, so 199 bytes remain.
        QByteArray euros("a");
        for (int i = 0; i < 100; ++i)
            euros += "\xe2\x82\xac";
        QByteArray cut("a");
        for (int i = 0; i < 66; ++i)
            cut += "\xe2\x82\xac";
        QTest::newRow("300 bytes of UTF-8") << euros.left(300) << cut << euros.left(300);
        // 2-byte characters line up with the limit: exactly 200 bytes stay.
        QByteArray umlauts;
        for (int i = 0; i < 150; ++i)
            umlauts += "\xc3\xbc";
        QTest::newRow("300 bytes, cut on a boundary") << umlauts << umlauts.left(200) << umlauts;
        // Four leading dots removed first, then 200 bytes kept.
        QTest::newRow("dots then 300 bytes")
            << QByteArray("....") + umlauts << umlauts.left(200) << QByteArray("....") + umlauts;
    }

    void title()
    {
        QFETCH(QByteArray, title);
        QFETCH(QByteArray, fileTitle);
        QFETCH(QByteArray, infoTitle);

        const QByteArray user = currentUser();
        const Run r = run({ "5", user, title, "1", "" }, makeDocument(1000, 1));
        QVERIFY2(r.status == kOk, r.err.constData());

        const QByteArray expectedName = user + kMarker + fileTitle + ".pdf";
        QVERIFY2(fileTitle.size() <= 200, "the row itself is wrong");
        const QStringList jobs = jobFiles();
        QCOMPARE(jobs.size(), 1);
        QCOMPARE(QFile::encodeName(jobs.first()), expectedName);
        QVERIFY(QFileInfo::exists(m_spool + '/' + jobs.first()));
        QCOMPARE(infoLines(jobs.first()).value(0), "TITLE=" + infoTitle);
        QVERIFY(temporaryFiles().isEmpty());
    }

    void nameTaken()
    {
        const QByteArray user = currentUser();
        const QString base = QString::fromUtf8(user + kMarker + "Notes");
        QVERIFY(writeFile(m_spool + '/' + base + ".pdf", "earlier job"));

        const QByteArray first = makeDocument(5000, 2);
        Run r = run({ "8", user, "Notes", "1", "" }, first);
        QVERIFY2(r.status == kOk, r.err.constData());
        QCOMPARE(readAll(m_spool + '/' + base + ".pdf"), QByteArray("earlier job"));
        QVERIFY(!QFileInfo::exists(m_spool + '/' + base + ".pdf.info"));
        QCOMPARE(readAll(m_spool + '/' + base + " 1.pdf"), first);
        QCOMPARE(infoLines(base + " 1.pdf").value(1), "USER=" + user);

        // A name whose ".info" is still there (its job already gone) is
        // taken too: the leftover is not mixed up with a new job.
        QVERIFY(writeFile(m_spool + '/' + base + " 2.pdf.info", "TITLE=leftover\n"));
        const QByteArray second = makeDocument(6000, 3);
        r = run({ "9", user, "Notes", "1", "" }, second);
        QVERIFY2(r.status == kOk, r.err.constData());
        QCOMPARE(readAll(m_spool + '/' + base + " 2.pdf.info"), QByteArray("TITLE=leftover\n"));
        QCOMPARE(readAll(m_spool + '/' + base + " 3.pdf"), second);
        QCOMPARE(infoLines(base + " 3.pdf").value(3), QByteArray("JOB_ID=9"));
        QCOMPARE(jobFiles(), QStringList({ base + " 1.pdf", base + " 3.pdf", base + ".pdf" }));
        QVERIFY(temporaryFiles().isEmpty());
    }

    void copies_data()
    {
        QTest::addColumn<bool>("fromFile");
        QTest::addColumn<QByteArray>("copies");
        QTest::addColumn<int>("jobs");
        QTest::addColumn<QByteArray>("copiesLine");

        QTest::newRow("3 copies from a file") << true << QByteArray("3") << 3 << QByteArray("COPIES=3");
        QTest::newRow("3 copies from stdin") << false << QByteArray("3") << 1 << QByteArray("COPIES=3");
        QTest::newRow("1 copy from a file") << true << QByteArray("1") << 1 << QByteArray("COPIES=1");
        QTest::newRow("nonsense count is one copy") << true << QByteArray("x") << 1 << QByteArray("COPIES=1");
        QTest::newRow("zero is one copy") << true << QByteArray("0") << 1 << QByteArray("COPIES=1");
    }

    void copies()
    {
        QFETCH(bool, fromFile);
        QFETCH(QByteArray, copies);
        QFETCH(int, jobs);
        QFETCH(QByteArray, copiesLine);

        const QByteArray user = currentUser();
        const QByteArray document = makeDocument(70000, 4);
        QList<QByteArray> args { "77", user, "Handout", copies, "" };
        QByteArray input = document;
        if (fromFile) {
            const QString path = m_dir->filePath("handout.pdf");
            QVERIFY(writeFile(path, document));
            args << QFile::encodeName(path);
            input.clear();
        }
        const Run r = run(args, input);
        QVERIFY2(r.status == kOk, r.err.constData());

        const QString base = QString::fromUtf8(user + kMarker + "Handout");
        QStringList expected;
        for (int i = 0; i < jobs; ++i)
            expected << (i == 0 ? base + ".pdf" : base + QStringLiteral(" %1.pdf").arg(i));
        QStringList found = jobFiles();
        found.sort();
        expected.sort();
        QCOMPARE(found, expected);
        for (const QString& name : expected) {
            QCOMPARE(readAll(m_spool + '/' + name), document);
            const QByteArrayList info = infoLines(name);
            QCOMPARE(info.value(3), QByteArray("JOB_ID=77"));
            QCOMPARE(info.value(4), copiesLine);
        }
        QCOMPARE(spoolEntries().size(), 2 * jobs);
    }

    void hostNames_data()
    {
        QTest::addColumn<QByteArray>("host");
        QTest::addColumn<bool>("remote");

        QTest::newRow("localhost") << QByteArray("localhost") << false;
        QTest::newRow("LOCALHOST") << QByteArray("LOCALHOST") << false;
        QTest::newRow("127.0.0.1") << QByteArray("127.0.0.1") << false;
        QTest::newRow("::1") << QByteArray("::1") << false;
        QTest::newRow("own name") << QSysInfo::machineHostName().toUtf8() << false;
        QTest::newRow("other name") << QByteArray("printhost.example") << true;
        QTest::newRow("other address") << QByteArray("192.0.2.7") << true;
        QTest::newRow("other IPv6 address") << QByteArray("2001:db8::5") << true;
    }

    void hostNames()
    {
        QFETCH(QByteArray, host);
        QFETCH(bool, remote);

        const QByteArray user("ann");
        const QByteArray document = makeDocument(2048, 5);
        // The console user receives remote jobs; without root nothing is
        // handed over, so any existing account serves.
        const Run r = run({ "3", user, "Minutes", "1", "job-originating-host-name=" + host }, document,
            { { "QUIREPAD_CONSOLE_USER", QString::fromLocal8Bit(currentUser()) } });
        QVERIFY2(r.status == kOk, r.err.constData());

        const QByteArray name
            = remote ? "remote:" + user + "@" + host + kMarker + "Minutes.pdf" : user + kMarker + "Minutes.pdf";
        const QStringList jobs = jobFiles();
        QCOMPARE(jobs.size(), 1);
        QCOMPARE(QFile::encodeName(jobs.first()), name);
        QCOMPARE(readAll(m_spool + '/' + jobs.first()), document);
        QCOMPARE(infoLines(jobs.first()),
            QByteArrayList({ "TITLE=Minutes", "USER=ann", "HOST=" + host, "JOB_ID=3", "COPIES=1" }));
    }

    void owner_data()
    {
        QTest::addColumn<QByteArray>("user");
        QTest::addColumn<QByteArray>("host");
        QTest::addColumn<QString>("consoleEnv"); // QUIREPAD_CONSOLE_USER, null: unset
        QTest::addColumn<QByteArrayList>("utmp"); // "line:user" records, live
        QTest::addColumn<QByteArray>("expectedOwner"); // empty: root, readable by all

        const QString unset;
        QTest::newRow("local job: the job's user")
            << QByteArray(kJobUser) << QByteArray() << unset << QByteArrayList() << QByteArray(kJobUser);
        QTest::newRow("local job from localhost: the job's user")
            << QByteArray(kJobUser) << QByteArray("localhost") << QString(kConsoleUser) << QByteArrayList()
            << QByteArray(kJobUser);
        QTest::newRow("remote job: QUIREPAD_CONSOLE_USER")
            << QByteArray("someone") << QByteArray("far.example") << QString(kConsoleUser)
            << QByteArrayList { ":0:" + QByteArray(kJobUser) } << QByteArray(kConsoleUser);
        QTest::newRow("remote job: graphical login")
            << QByteArray("someone") << QByteArray("far.example") << unset
            << QByteArrayList { "pts/4:" + QByteArray(kJobUser), ":0:" + QByteArray(kConsoleUser) }
            << QByteArray(kConsoleUser);
        QTest::newRow("remote job: virtual terminal login")
            << QByteArray("someone") << QByteArray("far.example") << unset
            << QByteArrayList { "tty2:" + QByteArray(kConsoleUser) } << QByteArray(kConsoleUser);
        QTest::newRow("remote job: graphical login before terminal")
            << QByteArray("someone") << QByteArray("far.example") << unset
            << QByteArrayList { "tty3:" + QByteArray(kJobUser), ":1:" + QByteArray(kConsoleUser) }
            << QByteArray(kConsoleUser);
        QTest::newRow("remote job: unknown QUIREPAD_CONSOLE_USER, login found")
            << QByteArray("someone") << QByteArray("far.example") << QString("no-such-account-qp")
            << QByteArrayList { "tty1:" + QByteArray(kConsoleUser) } << QByteArray(kConsoleUser);
        QTest::newRow("remote job: only a network login")
            << QByteArray("someone") << QByteArray("far.example") << unset
            << QByteArrayList { "pts/0:" + QByteArray(kConsoleUser) } << QByteArray();
        QTest::newRow("remote job: nobody logged in")
            << QByteArray(kJobUser) << QByteArray("far.example") << unset << QByteArrayList() << QByteArray();
        QTest::newRow("unknown local user: console user")
            << QByteArray("no-such-account-qp") << QByteArray() << QString(kConsoleUser) << QByteArrayList()
            << QByteArray(kConsoleUser);
    }

    void owner()
    {
        if (!isRoot())
            QSKIP("handing jobs to other users needs root (the backend runs as root under CUPS)");
        QVERIFY(m_haveUsers);
        QFETCH(QByteArray, user);
        QFETCH(QByteArray, host);
        QFETCH(QString, consoleEnv);
        QFETCH(QByteArrayList, utmp);
        QFETCH(QByteArray, expectedOwner);

        // A private utmp file, so the machine's own logins play no part.
        QByteArray records;
        for (const QByteArray& record : utmp) {
            const int colon = record.lastIndexOf(':');
            records += utmpRecord(
                USER_PROCESS, record.left(colon).constData(), record.mid(colon + 1).constData(), ::getpid());
        }
        const QString utmpFile = m_dir->filePath("utmp");
        QVERIFY(writeFile(utmpFile, records));

        const QByteArray options = host.isEmpty() ? QByteArray() : "job-originating-host-name=" + host;
        const Run r = run({ "11", user, "Payslip", "1", options }, makeDocument(4096, 6),
            { { "QUIREPAD_CONSOLE_USER", consoleEnv }, { "QUIREPAD_UTMP_FILE", utmpFile } });
        QVERIFY2(r.status == kOk, r.err.constData());

        const QStringList jobs = jobFiles();
        QCOMPARE(jobs.size(), 1);
        for (const QString& path : { m_spool + '/' + jobs.first(), m_spool + '/' + jobs.first() + ".info" }) {
            if (expectedOwner.isEmpty()) {
                QCOMPARE(ownerOf(path), uid_t(0));
                QCOMPARE(modeOf(path), mode_t(0644));
            } else {
                const auto uid = uidOf(expectedOwner.constData());
                QVERIFY(uid);
                QCOMPARE(ownerOf(path), *uid);
                QCOMPARE(modeOf(path), mode_t(0600));
            }
        }
        QCOMPARE(r.err.contains("WARNING:"), expectedOwner.isEmpty() || consoleEnv == "no-such-account-qp");
    }

    void staleLoginIgnored()
    {
        if (!isRoot())
            QSKIP("handing jobs to other users needs root");
        // A login whose process is gone (a crashed session) does not count.
        QProcess gone;
        gone.start("true");
        QVERIFY(gone.waitForStarted());
        const pid_t deadPid = pid_t(gone.processId());
        QVERIFY(gone.waitForFinished());
        const QString utmpFile = m_dir->filePath("utmp");
        QVERIFY(writeFile(utmpFile,
            utmpRecord(USER_PROCESS, ":0", kJobUser, deadPid)
                + utmpRecord(USER_PROCESS, "tty1", kConsoleUser, ::getpid())));
        const Run r = run({ "12", "someone", "Scan", "1", "job-originating-host-name=far.example" },
            makeDocument(4096, 8), { { "QUIREPAD_UTMP_FILE", utmpFile } });
        QVERIFY2(r.status == kOk, r.err.constData());
        const QStringList jobs = jobFiles();
        QCOMPARE(jobs.size(), 1);
        QCOMPARE(ownerOf(m_spool + '/' + jobs.first()), *uidOf(kConsoleUser));
    }

    void trigger_data()
    {
        QTest::addColumn<bool>("exists");
        QTest::newRow("created") << false;
        QTest::newRow("already there") << true;
    }

    void trigger()
    {
        QFETCH(bool, exists);
        if (exists) {
            QVERIFY(writeFile(triggerPath(), "old contents"));
            QVERIFY(QFile::setPermissions(triggerPath(), QFile::ReadOwner | QFile::WriteOwner));
        }
        const Run r = run({ "1", currentUser(), "Poster", "1", "" }, makeDocument(100, 9));
        QVERIFY2(r.status == kOk, r.err.constData());
        QCOMPARE(readAll(triggerPath()), QByteArray("x"));
        QCOMPARE(modeOf(triggerPath()), mode_t(0777));
    }

    void triggerSymlinkNotFollowed()
    {
        // The shared folder is writable by everyone: a link planted there
        // must not make the backend write or chmod another file.
        const QString target = m_dir->filePath("precious");
        QVERIFY(writeFile(target, "keep me"));
        QVERIFY(QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner));
        QVERIFY(QFile::link(target, triggerPath()));
        const Run r = run({ "1", currentUser(), "Poster", "1", "" }, makeDocument(100, 9));
        QVERIFY2(r.status == kOk, r.err.constData());
        QVERIFY2(r.err.contains("WARNING:"), r.err.constData());
        QCOMPARE(readAll(target), QByteArray("keep me"));
        QCOMPARE(modeOf(target), mode_t(0600));
        QCOMPARE(jobFiles().size(), 1);
    }

    void failures_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<bool>("fromFile");
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<int>("status");

        const QByteArray doc = makeDocument(10000, 10);
        QTest::newRow("spool folder missing") << "no spool" << false << doc << kStop;
        QTest::newRow("spool folder missing, from file") << "no spool" << true << doc << kStop;
        QTest::newRow("shared folder missing") << "no shared" << false << doc << kStop;
        QTest::newRow("spool is a file") << "spool file" << false << doc << kStop;
        QTest::newRow("empty stdin") << "" << false << QByteArray() << kFailed;
        QTest::newRow("empty file") << "" << true << QByteArray() << kFailed;
        QTest::newRow("file missing") << "no input" << true << doc << kFailed;
        QTest::newRow("file unreadable (a folder)") << "input folder" << true << doc << kFailed;
    }

    void failures()
    {
        QFETCH(QString, setup);
        QFETCH(bool, fromFile);
        QFETCH(QByteArray, document);
        QFETCH(int, status);

        if (setup == "no spool" || setup == "spool file") {
            QVERIFY(QDir(m_spool).removeRecursively());
            if (setup == "spool file")
                QVERIFY(writeFile(m_spool, "not a folder"));
        } else if (setup == "no shared") {
            QVERIFY(QDir(m_shared).removeRecursively());
        }
        QList<QByteArray> args { "13", currentUser(), "Lost", "2", "" };
        QByteArray input = document;
        if (fromFile) {
            const QString path = m_dir->filePath("input.pdf");
            if (setup == "input folder")
                QVERIFY(QDir().mkpath(path));
            else if (setup != "no input")
                QVERIFY(writeFile(path, document));
            args << QFile::encodeName(path);
            input.clear();
        }
        const Run r = run(args, input);
        QCOMPARE(r.status, status);
        QVERIFY2(r.err.contains("ERROR:"), r.err.constData());
        if (QFileInfo(m_spool).isDir())
            QCOMPARE(spoolEntries(), QStringList());
        QVERIFY(!QFileInfo::exists(triggerPath()));
    }

    void fullDisk_data()
    {
        QTest::addColumn<bool>("fromFile");
        QTest::addColumn<int>("size");
        QTest::addColumn<QByteArray>("copies");

        QTest::newRow("1 MiB from a file") << true << (1 << 20) << QByteArray("1");
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
        if (!isRoot())
            QSKIP("mounting a small file system needs root");

        QVERIFY(QDir(m_shared).removeRecursively());
        QVERIFY(QDir().mkpath(m_shared));
        QByteArray output;
        if (runTool("mount", { "-t", "tmpfs", "-o", "size=64k,mode=0755", "tmpfs", m_shared }, &output) != 0)
            QSKIP(qPrintable("mount is not permitted here: " + QString::fromLocal8Bit(output).trimmed()));
        struct Unmount {
            QString path;
            ~Unmount() { runTool("umount", { path }); }
        } unmount { m_shared };
        QVERIFY(QDir().mkpath(m_spool));

        const QByteArray document = makeDocument(size, 11);
        QList<QByteArray> args { "21", currentUser(), "Big", copies, "" };
        QByteArray input = document;
        if (fromFile) {
            const QString path = m_dir->filePath("big.pdf");
            QVERIFY(writeFile(path, document));
            args << QFile::encodeName(path);
            input.clear();
        }
        const Run r = run(args, input);
        QCOMPARE(r.status, kRetry);
        QVERIFY2(r.err.contains("ERROR:"), r.err.constData());
        QCOMPARE(spoolEntries(), QStringList());
        QVERIFY(!QFileInfo::exists(triggerPath()));
        if (copies != "1")
            QVERIFY2(r.err.contains("INFO: Saved"), "the first copy should have been written before the failure");
    }

    void canceled()
    {
        // CUPS cancels a job with SIGTERM: whatever was written goes.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("QUIREPAD_SHARED_DIR", m_shared);
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(backendPath(), { "30", QString::fromLocal8Bit(currentUser()), "Endless", "1", "" });
        QVERIFY(process.waitForStarted());
        process.write(makeDocument(100000, 13));
        QVERIFY(process.waitForBytesWritten());
        QTRY_VERIFY_WITH_TIMEOUT(!temporaryFiles().isEmpty(), 20000);
        process.terminate();
        QVERIFY(process.waitForFinished(20000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), kFailed);
        QCOMPARE(spoolEntries(), QStringList());
        QVERIFY(!QFileInfo::exists(triggerPath()));
    }

    void ppdCheck_data()
    {
        QTest::addColumn<QStringList>("flags");
        QTest::newRow("conformance") << QStringList();
        QTest::newRow("warnings are errors") << QStringList { "-W", "all" };
    }

    void ppdCheck()
    {
        QFETCH(QStringList, flags);
        const QString tool = QStandardPaths::findExecutable("cupstestppd");
        if (tool.isEmpty())
            QSKIP("cupstestppd is not installed (package cups-client)");
        QByteArray output;
        const int status = runTool(tool, flags << driverDir() + "/quirepad.ppd", &output);
        QVERIFY2(status == 0, output.constData());
    }

    void ppdKeywords_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::newRow("filter") << QByteArray("*cupsFilter2: \"application/pdf application/vnd.cups-pdf 0 -\"");
        QTest::newRow("color") << QByteArray("*ColorDevice: True");
        QTest::newRow("manufacturer") << QByteArray("*Manufacturer: \"Quirepad\"");
        QTest::newRow("model") << QByteArray("*ModelName: \"Quirepad Virtual Printer\"");
        QTest::newRow("nickname") << QByteArray("*NickName: \"Quirepad Virtual Printer\"");
        QTest::newRow("A4") << QByteArray("*PageSize A4/A4: \"<</PageSize[595 842]/ImagingBBox null>>setpagedevice\"");
        QTest::newRow("Letter") << QByteArray(
            "*PageSize Letter/US Letter: \"<</PageSize[612 792]/ImagingBBox null>>setpagedevice\"");
    }

    void ppdKeywords()
    {
        QFETCH(QByteArray, line);
        const QByteArrayList lines = readAll(driverDir() + "/quirepad.ppd").split('\n');
        QVERIFY2(lines.contains(line), line.constData());
    }

    void installerNeedsRoot()
    {
        if (!isRoot() && QStandardPaths::findExecutable("setpriv").isEmpty())
            QSKIP("setpriv is needed to run the installer as another user");
        QStringList args;
        QString program = "bash";
        if (isRoot()) {
            program = "setpriv";
            args << "--reuid=65534"
                 << "--regid=65534"
                 << "--clear-groups"
                 << "bash";
        }
        args << driverDir() + "/install-driver.sh"
             << "--destdir" << m_dir->filePath("root");
        QByteArray output;
        QCOMPARE(runTool(program, args, &output), 1);
        QVERIFY2(output.contains("must run as root"), output.constData());
        QVERIFY(!QFileInfo::exists(m_dir->filePath("root")));
    }

    void installerFiles()
    {
        QVERIFY(modeOf(driverDir() + "/install-driver.sh") & 0111);
        if (!isRoot())
            QSKIP("the installer runs as root only");
        const QString root = m_dir->filePath("root");
        const QString conf = m_dir->filePath("cups-files.conf");
        QVERIFY(writeFile(conf, "LogLevel warn\nSetEnv QUIREPAD_SHARED_DIR /old/place\nListen localhost:631\n"));
        const QStringList args { driverDir() + "/install-driver.sh", "--destdir", root, "--shared-dir", "/srv/qp",
            "--cups-files-conf", conf };
        // Twice: the second run must leave the same state.
        for (int pass = 0; pass < 2; ++pass) {
            QByteArray output;
            QVERIFY2(runTool("bash", args, &output) == 0, output.constData());
            QCOMPARE(modeOf(root + "/usr/lib/cups/backend/quirepad"), mode_t(0700));
            QCOMPARE(readAll(root + "/usr/lib/cups/backend/quirepad"), readAll(backendPath()));
            QCOMPARE(modeOf(root + "/usr/share/ppd/quirepad/quirepad.ppd"), mode_t(0644));
            QCOMPARE(readAll(root + "/usr/share/ppd/quirepad/quirepad.ppd"), readAll(driverDir() + "/quirepad.ppd"));
            QCOMPARE(modeOf(root + "/srv/qp"), mode_t(01777));
            QCOMPARE(modeOf(root + "/srv/qp/quirepad_spool"), mode_t(01777));
            QCOMPARE(modeOf(root + "/srv/qp/.quirepad_trigger_file_end"), mode_t(0777));
            QCOMPARE(
                readAll(conf), QByteArray("LogLevel warn\nListen localhost:631\nSetEnv QUIREPAD_SHARED_DIR /srv/qp\n"));
        }
        // Back to the default folder: the line goes.
        QByteArray output;
        const QString script = driverDir() + "/install-driver.sh";
        QVERIFY2(runTool("bash", { script, "--destdir", root, "--cups-files-conf", conf }, &output) == 0,
            output.constData());
        QCOMPARE(readAll(conf), QByteArray("LogLevel warn\nListen localhost:631\n"));
        QCOMPARE(modeOf(root + "/var/spool/quirepad/quirepad_spool"), mode_t(01777));

        // SetEnv in cupsd.conf would be ignored by CUPS: that option is refused.
        QCOMPARE(runTool("bash", { script, "--destdir", root, "--cupsd-conf", conf }, &output), 1);
        QVERIFY2(output.contains("cups-files.conf"), output.constData());

        // The installed backend works against the installed folders.
        m_shared = root + "/srv/qp";
        m_spool = m_shared + "/quirepad_spool";
        const Run r = run({ "2", currentUser(), "Installed", "1", "" }, makeDocument(500, 12));
        QVERIFY2(r.status == kOk, r.err.constData());
        QCOMPARE(jobFiles().size(), 1);
    }
};

QUIREPAD_REGISTER_TEST(BackendTest);
#include "tst_backend.moc"
