#include "LogCapture.h"
#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/InternalError.h"
#include "foundation/UserDefaults.h"
#include "foundation/fileutil.h"
#include "foundation/TempArea.h"
#include "foundation/identifiers.h"
#include "foundation/pathvars.h"

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace quirepad;
using namespace quirepad::test;

namespace {

int modeOf(const QString& path)
{
    struct stat st;
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

} // namespace

class FileUtilitiesTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_dir; // a fresh one for each test
    QString path(const QString& name) const { return m_dir->filePath(name); }

private slots:
    void init() { m_dir = std::make_unique<QTemporaryDir>(); }

    // Runs first: the process-wide identifier counter starts here.
    void identifierLayout()
    {
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        const quint64 first = quint64(generateID64()), second = quint64(generateID64());
        QCOMPARE(first >> 32, quint64(1)); // a counter above the seconds of the first call
        QVERIFY(qAbs(qint64(first & 0xffffffffu) - before) <= 1);
        QCOMPARE(second, first + (quint64(1) << 32));
        for (int i = 0; i < 1000; ++i)
            generateID64();
        QCOMPARE(quint64(generateID64()), first + (quint64(1002) << 32));
    }

    void pathNames_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected"); // basename | dirname | basename without extension
        QTest::newRow("file") << "/a/b/c.pdf" << "c.pdf | /a/b | c";
        QTest::newRow("trailing slash") << "/a/b/" << "b | /a | b";
        QTest::newRow("root") << "/" << "/ | / | /";
        QTest::newRow("top level") << "/tmp" << "tmp | / | tmp";
        QTest::newRow("relative bare") << "README" << "README |  | README";
        QTest::newRow("hidden file") << "/x/.hidden" << ".hidden | /x | .hidden";
        QTest::newRow("two extensions") << "/x/a.tar.gz" << "a.tar.gz | /x | a.tar";
        QTest::newRow("spaces and unicode") << "/x/Résumé final.pdf" << "Résumé final.pdf | /x | Résumé final";
    }

    void pathNames()
    {
        QFETCH(QString, input);
        QFETCH(QString, expected);
        QCOMPARE(path_basename(input) + " | " + path_dirname(input) + " | " + path_basename_noext(input), expected);
        if (input.startsWith(u'/')) // a file URL stands for its path
            QCOMPARE(path_basename(QUrl::fromLocalFile(input)), expected.section(" | ", 0, 0));
    }

    void existence()
    {
        const QString dir = path("dir"), file = path("file.txt");
        QVERIFY(QDir().mkdir(dir) && writeFile(file, "a"));
        QVERIFY(!file_exists(dir) && path_exists(dir) && directory_exists(dir));
        QVERIFY(file_exists(file) && file_exists(QUrl::fromLocalFile(file)) && !directory_exists(file));
        QVERIFY(!file_exists(QString()) && !directory_exists(QString()) && !path_exists(path("missing")));
        QCOMPARE(path_displayname(file), QStringLiteral("file.txt"));
        QCOMPARE(path_displayname(path("missing.pdf")), QStringLiteral("missing"));
    }

    void uniqueNames_data()
    {
        QTest::addColumn<QStringList>("existing"); // names ending in "/" are folders
        QTest::addColumn<QString>("wanted");
        QTest::addColumn<QString>("expected");
        QTest::newRow("free") << QStringList{} << "report.pdf" << "report.pdf";
        QTest::newRow("first clash") << QStringList{"report.pdf"} << "report.pdf" << "report 1.pdf";
        QTest::newRow("second clash") << QStringList{"a.pdf", "a 1.pdf"} << "a.pdf" << "a 2.pdf";
        QTest::newRow("gap is reused") << QStringList{"a.pdf", "a 2.pdf"} << "a.pdf" << "a 1.pdf";
        QTest::newRow("no extension keeps the dot") << QStringList{"README"} << "README" << "README 1.";
        QTest::newRow("folder") << QStringList{"folder/"} << "folder" << "folder 1.";
    }

    void uniqueNames()
    {
        QFETCH(QStringList, existing);
        QFETCH(QString, wanted);
        QFETCH(QString, expected);
        for (const QString& name : existing)
            QVERIFY(name.endsWith(u'/') ? QDir().mkdir(path(name)) : writeFile(path(name), "x"));
        QCOMPARE(mk_unique_filename(path(wanted)), path(expected));
    }

    void moveReplacesCopyRefuses()
    {
        const QString a = path("a.txt"), b = path("b.txt");
        QVERIFY(writeFile(a, "new") && writeFile(b, "old"));
        QVERIFY(!cp_file(a, b));
        QCOMPARE(readFile(b), QByteArray("old"));
        QVERIFY(mv_file(a, b) && !QFile::exists(a));
        QCOMPARE(readFile(b), QByteArray("new"));

        QVERIFY(QDir().mkdir(path("into")) && mv_file(b, path("into") + "/")); // into the folder, same name
        QCOMPARE(readFile(path("into/b.txt")), QByteArray("new"));
        QVERIFY(writeFile(a, "copy me") && cp_file(a, path("into"))); // onto a folder: into it
        QCOMPARE(readFile(path("into/a.txt")), QByteArray("copy me"));
        QVERIFY(!cp_file(a, path("into"))); // not a second time
        QVERIFY(!cp_file(path("missing"), path("elsewhere")) && !mv_file(path("missing"), path("elsewhere")));
    }

    void copyEveryMatchToOneTarget()
    {
        QVERIFY(writeFile(path("one.pdf"), "1") && cp_files(path("*.pdf"), path("target.pdf")));
        QCOMPARE(readFile(path("target.pdf")), QByteArray("1"));
        // Two matches land on the same target: the second copy must fail.
        QVERIFY(writeFile(path("two.pdf"), "2") && !cp_files(path("[ot][nw]*.pdf"), path("second.pdf")));
        QCOMPARE(readFile(path("second.pdf")), QByteArray("1"));
        QVERIFY(cp_files(path("*.nothing"), path("never")) && !QFile::exists(path("never"))); // nothing to copy
        QVERIFY(!cp_files(path("*.pdf"), QVariant()));
    }

    void globListing()
    {
        QVERIFY(QDir().mkdir(path("zeta")) && QDir().mkdir(path("alpha")));
        QVERIFY(writeFile(path("b.pdf"), "") && writeFile(path("a.pdf"), ""));
        const QStringList pdfs{path("a.pdf"), path("b.pdf")};
        QCOMPARE(ls_files(path("*a")), (QStringList{path("alpha/"), path("zeta/")}));
        QCOMPARE(ls_files(path("*.pdf")), pdfs);
        QCOMPARE(ls_files(path("*.ps")), QStringList());
        QCOMPARE(ls_files("~"), QStringList{QDir::homePath() + "/"});

        // A setting can stand in a pattern as a placeholder, unless the pattern begins with a brace.
        UserDefaults::setStandard(std::make_unique<UserDefaults>(path("settings.conf")));
        UserDefaults::standard().registerDefaults({{"spool_dir", m_dir->path()}});
        QCOMPARE(ls_files("${spool_dir}/*.pdf"), pdfs);
        QCOMPARE(ls_files("{x}${spool_dir}/*.pdf"), QStringList());
        UserDefaults::setStandard(nullptr);
    }

    void directoryListing()
    {
        for (const char* name : {"a.pdf", "b.PDF", ".hidden.pdf", "c.ps"})
            QVERIFY(writeFile(path(name), ""));
        QVERIFY(QDir().mkpath(path("sub/deep.pdf")));
        // Exact, case-sensitive extension; hidden entries skipped; no descent.
        QCOMPARE(ls_dir_ext(m_dir->path(), "pdf"), QStringList{path("a.pdf")});
        QStringList all = ls_dir_ext(m_dir->path());
        all.sort();
        QCOMPARE(all, (QStringList{path("a.pdf"), path("b.PDF"), path("c.ps"), path("sub")}));
        QVERIFY(ls_dir_ext(QString()).isEmpty() && ls_dir_ext(path("missing")).isEmpty());
    }

    void removalSizesDigests()
    {
        const QString file = path("tree/inner/f");
        QVERIFY(QDir().mkpath(path("tree/inner")) && writeFile(file, "hello\n") && writeFile(path("empty"), ""));
        QCOMPARE(file_size(file), qint64(6));
        QCOMPARE(file_md5(file), QStringLiteral("b1946ac92492d2347c6235b4d2611184"));
        QCOMPARE(file_md5(path("empty")), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
        QVERIFY(file_md5(path("missing")).isNull() && file_size(path("missing")) == 0);
        QVERIFY(file_mdate(path("empty")).isValid() && !file_mdate(path("missing")).isValid());

        QVERIFY(mk_symlink("tree/inner/f", path("link")));
        QCOMPARE(QFile::symLinkTarget(path("link")), file);
        QVERIFY(!mk_symlink("again", path("link")));

        QVERIFY(rm_file(path("tree")) && !QFile::exists(path("tree")));
        QVERIFY(!rm_file(path("tree"))); // already gone
        QVERIFY(rm_dir(path("link"))); // a dangling link is removable too
    }

    void touchLeavesWorldWritableX()
    {
        const QString trigger = path(".quirepad_trigger_file_start");
        QVERIFY(writeFile(trigger, "previous contents", QFile::ReadOwner | QFile::WriteOwner));
        QVERIFY(touch_file(trigger));
        QCOMPARE(modeOf(trigger), 0777);
        QCOMPARE(readFile(trigger), QByteArray("x"));
        QVERIFY(touch_file(path("new")));
        QCOMPARE(modeOf(path("new")), 0777);

        test::LogCapture log;
        QVERIFY(!touch_file(m_dir->path()));
        QCOMPARE(log.count(QStringLiteral("error writing to file %1").arg(m_dir->path())), 1);

        // Planted at the trigger's name by someone else: a link to our file,
        // a second hard link of it, a FIFO. None is written or chmod-ed, and
        // nothing blocks.
        const QString precious = path("precious");
        QVERIFY(writeFile(precious, "keep", QFile::ReadOwner | QFile::WriteOwner));
        QVERIFY(QFile::link(precious, path("link-trigger")));
        QVERIFY(::link(QFile::encodeName(precious).constData(), QFile::encodeName(path("hard-trigger")).constData()) == 0);
        QVERIFY(::mkfifo(QFile::encodeName(path("fifo-trigger")).constData(), 0600) == 0);
        for (const char* planted : {"link-trigger", "hard-trigger", "fifo-trigger"})
            QVERIFY2(!touch_file(path(planted)), planted);
        QCOMPARE(readFile(precious), QByteArray("keep"));
        QCOMPARE(modeOf(precious), 0600);
    }

    void ensureDirectories()
    {
        const QString deep = path("a/b/c");
        QCOMPARE(ensure_directory_exists(deep), deep);
        QCOMPARE(ensure_dirname_exists(path("x/y/file.pdf")), path("x/y/file.pdf"));
        QVERIFY(QFileInfo(deep).isDir() && QFileInfo(path("x/y")).isDir());
        QVERIFY(mk_dirs(deep));

        QVERIFY(writeFile(path("blocker"), "") && !mk_dirs(path("blocker/sub")));
        for (const auto& make : {std::function<void()>([&] { ensure_directory_exists(path("blocker/sub")); }),
                                 std::function<void()>([&] { ensure_dirname_exists(path("blocker/sub/file")); })}) {
            try {
                make();
                QFAIL("no exception for a folder that cannot be made");
            } catch (const InternalError& error) {
                QCOMPARE(error.name() + ": " + error.reason(),
                         "Internal Error: unable to create dir " + path("blocker/sub"));
            }
        }
    }

    void temporaryNames()
    {
        const QDateTime reference(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
        const qint64 before = reference.msecsTo(QDateTime::currentDateTimeUtc());
        const QString temp = mk_temp();
        const qint64 after = reference.msecsTo(QDateTime::currentDateTimeUtc());
        const qint64 stamp = path_basename_noext(temp).toLongLong(); // milliseconds since 2001
        // In the private temporary area, never a folder others can write.
        QCOMPARE(temp, TempArea::instance().currentDir() + "/" + QString::number(stamp) + ".tmp");
        QVERIFY(temp.startsWith(get_env("APP_CACHES") + "/tmp/run-"));
        QCOMPARE(modeOf(TempArea::instance().root()), 0700);
        QVERIFY(stamp >= before && stamp <= after + 1);
        QVERIFY(!QFile::exists(temp));

        // Folders asked for in quick succession are all new and empty.
        QStringList folders;
        for (int i = 0; i < 20; ++i)
            folders << mk_temp_dir();
        for (const QString& folder : std::as_const(folders)) {
            QVERIFY(QFileInfo(folder).isDir() && QDir(folder).isEmpty() && folders.count(folder) == 1);
            QDir(folder).removeRecursively();
        }

        // What a job makes goes with it, links inside removed, not followed.
        QString inJob;
        {
            const TempArea::JobScope job;
            inJob = mk_temp_dir();
            QVERIFY(inJob.startsWith(job.dir() + "/"));
            QVERIFY(writeFile(inJob + "/copy.pdf", "x") && QFile::link(m_dir->path(), inJob + "/link"));
        }
        QVERIFY(!QFileInfo::exists(inJob) && QFileInfo(m_dir->path()).isDir());
    }

    void uuidsAndDates()
    {
        const QRegularExpression uuid("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$");
        QVERIFY(uuid.match(generateUUID()).hasMatch());
        QVERIFY(generateUUID() != generateUUID());
        const QString today = QDate::currentDate().toString("yyyy-MM-dd");
        QCOMPARE(todays_date("yyyy-MM-dd"), today);
        QCOMPARE(format_date(QDateTime(QDate(1999, 12, 31), QTime(23, 0)), "yyyy-MM-dd"), today); // the date is ignored
        QCOMPARE(todays_date("'literal' yyyy").left(8), QStringLiteral("literal "));
    }

    void lockingMakesImmutable()
    {
        const QString file = path("locked.pdf");
        QVERIFY(writeFile(file, "content"));
        if (!lock_file(file, true))
            QSKIP("the immutable attribute needs root and a file system that supports it");
        const bool writable = QFile(file).open(QIODevice::Append);
        QVERIFY(lock_file(file, false) && QFile::remove(file)); // unlocked, it can go
        QVERIFY(!writable);
    }
};

QUIREPAD_REGISTER_TEST(FileUtilitiesTest);
#include "tst_fileutil.moc"
