#include "LogCapture.h"
#include "TestRegistry.h"

#include "foundation/InternalError.h"
#include "foundation/UserDefaults.h"
#include "foundation/fileutil.h"
#include "foundation/identifiers.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace quirepad;

namespace {

bool writeText(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

QByteArray readText(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

int modeOf(const QString& path)
{
    struct stat st;
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? int(st.st_mode & 07777) : -1;
}

} // namespace

class FileUtilitiesTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString path(const QString& name) const { return m_dir.filePath(name); }

private slots:
    // Runs first: the process-wide identifier counter starts here.
    void identifierLayout()
    {
        const qint64 before = QDateTime::currentSecsSinceEpoch();
        const quint64 first = quint64(generateID64());
        const quint64 second = quint64(generateID64());
        QCOMPARE(first >> 32, quint64(1));
        QCOMPARE(second >> 32, quint64(2));
        const qint64 node = qint64(first & 0xffffffffu);
        QVERIFY(node >= before - 1 && node <= QDateTime::currentSecsSinceEpoch());
        QCOMPARE(second & 0xffffffffu, first & 0xffffffffu);
        QSet<qint64> seen{qint64(first), qint64(second)};
        for (int i = 0; i < 1000; ++i)
            seen.insert(generateID64());
        QCOMPARE(seen.size(), 1002);
    }

    void pathNames_data()
    {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("basename");
        QTest::addColumn<QString>("dirname");
        QTest::addColumn<QString>("noext");
        QTest::newRow("file") << "/a/b/c.pdf" << "c.pdf" << "/a/b" << "c";
        QTest::newRow("trailing slash") << "/a/b/" << "b" << "/a" << "b";
        QTest::newRow("root") << "/" << "/" << "/" << "/";
        QTest::newRow("top level") << "/tmp" << "tmp" << "/" << "tmp";
        QTest::newRow("relative bare") << "README" << "README" << "" << "README";
        QTest::newRow("hidden file") << "/x/.hidden" << ".hidden" << "/x" << ".hidden";
        QTest::newRow("two extensions") << "/x/a.tar.gz" << "a.tar.gz" << "/x" << "a.tar";
        QTest::newRow("spaces and unicode") << "/x/Résumé final.pdf" << "Résumé final.pdf" << "/x" << "Résumé final";
    }

    void pathNames()
    {
        QFETCH(QString, input);
        QFETCH(QString, basename);
        QFETCH(QString, dirname);
        QFETCH(QString, noext);
        QCOMPARE(path_basename(input), basename);
        QCOMPARE(path_dirname(input), dirname);
        QCOMPARE(path_basename_noext(input), noext);
        // A file URL stands for its path.
        if (input.startsWith(u'/'))
            QCOMPARE(path_basename(QUrl::fromLocalFile(input)), basename);
    }

    void existence()
    {
        QVERIFY(QDir().mkdir(path("dir")));
        QVERIFY(writeText(path("file.txt"), "a"));
        QVERIFY(!file_exists(path("dir")));
        QVERIFY(path_exists(path("dir")));
        QVERIFY(directory_exists(path("dir")));
        QVERIFY(file_exists(path("file.txt")));
        QVERIFY(!directory_exists(path("file.txt")));
        QVERIFY(file_exists(QUrl::fromLocalFile(path("file.txt"))));
        QVERIFY(!file_exists(QString()));
        QVERIFY(!directory_exists(QString()));
        QVERIFY(!path_exists(path("missing")));
        QCOMPARE(path_displayname(path("file.txt")), QStringLiteral("file.txt"));
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
        QTemporaryDir dir;
        for (const QString& name : existing) {
            if (name.endsWith(u'/'))
                QVERIFY(QDir(dir.path()).mkdir(name.chopped(1)));
            else
                QVERIFY(writeText(dir.filePath(name), "x"));
        }
        QCOMPARE(mk_unique_filename(dir.filePath(wanted)), dir.filePath(expected));
    }

    void moveReplacesCopyRefuses()
    {
        QTemporaryDir dir;
        const QString a = dir.filePath("a.txt"), b = dir.filePath("b.txt");
        QVERIFY(writeText(a, "new") && writeText(b, "old"));
        QVERIFY(!cp_file(a, b));
        QCOMPARE(readText(b), QByteArray("old"));
        QVERIFY(mv_file(a, b));
        QCOMPARE(readText(b), QByteArray("new"));
        QVERIFY(!QFile::exists(a));

        // A target ending in "/" moves into that folder under the same name.
        QVERIFY(QDir(dir.path()).mkdir("into"));
        QVERIFY(mv_file(b, dir.filePath("into") + "/"));
        QCOMPARE(readText(dir.filePath("into/b.txt")), QByteArray("new"));

        // Copying onto a folder copies into it; a second time fails.
        QVERIFY(writeText(a, "copy me"));
        QVERIFY(cp_file(a, dir.filePath("into")));
        QCOMPARE(readText(dir.filePath("into/a.txt")), QByteArray("copy me"));
        QVERIFY(!cp_file(a, dir.filePath("into")));
        QVERIFY(!cp_file(dir.filePath("missing"), dir.filePath("elsewhere")));
        QVERIFY(!mv_file(dir.filePath("missing"), dir.filePath("elsewhere")));
    }

    void copyEveryMatchToOneTarget()
    {
        QTemporaryDir dir;
        QVERIFY(writeText(dir.filePath("one.pdf"), "1"));
        QVERIFY(cp_files(dir.filePath("*.pdf"), dir.filePath("target.pdf")));
        QCOMPARE(readText(dir.filePath("target.pdf")), QByteArray("1"));

        // Two matches land on the same target: the second copy must fail.
        QVERIFY(writeText(dir.filePath("two.pdf"), "2"));
        QVERIFY(!cp_files(dir.filePath("[ot][nw]*.pdf"), dir.filePath("second.pdf")));
        QCOMPARE(readText(dir.filePath("second.pdf")), QByteArray("1"));

        QVERIFY(cp_files(dir.filePath("*.nothing"), dir.filePath("never")));
        QVERIFY(!QFile::exists(dir.filePath("never")));
        QVERIFY(!cp_files(dir.filePath("*.pdf"), QVariant()));
    }

    void globListing()
    {
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkdir("zeta") && QDir(dir.path()).mkdir("alpha"));
        QVERIFY(writeText(dir.filePath("b.pdf"), "") && writeText(dir.filePath("a.pdf"), ""));
        QCOMPARE(ls_files(dir.filePath("*a")), (QStringList{dir.filePath("alpha/"), dir.filePath("zeta/")}));
        QCOMPARE(ls_files(dir.filePath("*.pdf")), (QStringList{dir.filePath("a.pdf"), dir.filePath("b.pdf")}));
        QCOMPARE(ls_files(dir.filePath("*.ps")), QStringList());

        // A setting can stand in a pattern as a placeholder.
        auto defaults = std::make_unique<UserDefaults>(dir.filePath("settings.conf"));
        defaults->registerDefaults({{"spool_dir", dir.path()}});
        UserDefaults::setStandard(std::move(defaults));
        QCOMPARE(ls_files("${spool_dir}/*.pdf"), (QStringList{dir.filePath("a.pdf"), dir.filePath("b.pdf")}));
        // ...but not when the pattern begins with the brace.
        QCOMPARE(ls_files("{x}${spool_dir}/*.pdf"), QStringList());
        UserDefaults::setStandard(nullptr);

        const QString home = QDir::homePath();
        QCOMPARE(ls_files("~"), QStringList{home + "/"});
    }

    void directoryListing()
    {
        QTemporaryDir dir;
        for (const char* name : {"a.pdf", "b.PDF", ".hidden.pdf", "c.ps"})
            QVERIFY(writeText(dir.filePath(name), ""));
        QVERIFY(QDir(dir.path()).mkpath("sub/deep.pdf"));
        QStringList pdfs = ls_dir_ext(dir.path(), "pdf");
        pdfs.sort();
        // Exact, case-sensitive extension; hidden entries skipped; no descent.
        QCOMPARE(pdfs, QStringList{dir.filePath("a.pdf")});
        QStringList all = ls_dir_ext(dir.path());
        all.sort();
        QCOMPARE(all, (QStringList{dir.filePath("a.pdf"), dir.filePath("b.PDF"), dir.filePath("c.ps"),
                                   dir.filePath("sub")}));
        QVERIFY(ls_dir_ext(QString()).isEmpty());
        QVERIFY(ls_dir_ext(dir.filePath("missing")).isEmpty());
    }

    void removalSizesDigests()
    {
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkpath("tree/inner"));
        QVERIFY(writeText(dir.filePath("tree/inner/f"), "hello\n"));
        QCOMPARE(file_size(dir.filePath("tree/inner/f")), qint64(6));
        QCOMPARE(file_md5(dir.filePath("tree/inner/f")), QStringLiteral("b1946ac92492d2347c6235b4d2611184"));
        QVERIFY(writeText(dir.filePath("empty"), ""));
        QCOMPARE(file_md5(dir.filePath("empty")), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
        QVERIFY(file_md5(dir.filePath("missing")).isNull());
        QCOMPARE(file_size(dir.filePath("missing")), qint64(0));
        QVERIFY(file_mdate(dir.filePath("empty")).isValid());
        QVERIFY(!file_mdate(dir.filePath("missing")).isValid());

        QVERIFY(mk_symlink("tree/inner/f", dir.filePath("link")));
        QCOMPARE(QFile::symLinkTarget(dir.filePath("link")), dir.filePath("tree/inner/f"));
        QVERIFY(!mk_symlink("again", dir.filePath("link")));

        QVERIFY(rm_file(dir.filePath("tree")));
        QVERIFY(!QFile::exists(dir.filePath("tree")));
        QVERIFY(!rm_file(dir.filePath("tree")));
        QVERIFY(rm_dir(dir.filePath("link"))); // a dangling link is removable too
    }

    void touchLeavesWorldWritableX()
    {
        QTemporaryDir dir;
        const QString trigger = dir.filePath(".quirepad_trigger_file_start");
        QVERIFY(writeText(trigger, "previous contents"));
        QVERIFY(QFile::setPermissions(trigger, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup
                                                   | QFile::ReadOther)); // 0644
        QCOMPARE(modeOf(trigger), 0644);
        QVERIFY(touch_file(trigger));
        QCOMPARE(modeOf(trigger), 0777);
        QCOMPARE(readText(trigger), QByteArray("x"));

        QVERIFY(touch_file(dir.filePath("new")));
        QCOMPARE(modeOf(dir.filePath("new")), 0777);

        test::LogCapture log;
        QVERIFY(!touch_file(dir.path()));
        QCOMPARE(log.count(QStringLiteral("error writing to file %1").arg(dir.path())), 1);
    }

    void ensureDirectories()
    {
        QTemporaryDir dir;
        const QString deep = dir.filePath("a/b/c");
        QCOMPARE(ensure_directory_exists(deep), deep);
        QVERIFY(QFileInfo(deep).isDir());
        QCOMPARE(ensure_dirname_exists(dir.filePath("x/y/file.pdf")), dir.filePath("x/y/file.pdf"));
        QVERIFY(QFileInfo(dir.filePath("x/y")).isDir());
        QVERIFY(mk_dirs(deep));

        QVERIFY(writeText(dir.filePath("blocker"), ""));
        QVERIFY(!mk_dirs(dir.filePath("blocker/sub")));
        try {
            ensure_directory_exists(dir.filePath("blocker/sub"));
            QFAIL("no exception for a folder that cannot be made");
        } catch (const InternalError& error) {
            QCOMPARE(error.name(), QStringLiteral("Internal Error"));
            QCOMPARE(error.reason(), QStringLiteral("unable to create dir %1").arg(dir.filePath("blocker/sub")));
        }
        try {
            ensure_dirname_exists(dir.filePath("blocker/sub/file"));
            QFAIL("no exception for a parent that cannot be made");
        } catch (const InternalError& error) {
            QCOMPARE(error.reason(), QStringLiteral("unable to create dir %1").arg(dir.filePath("blocker/sub")));
        }
    }

    void temporaryNames()
    {
        const QDateTime reference(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
        const qint64 before = reference.msecsTo(QDateTime::currentDateTimeUtc());
        const QString temp = mk_temp();
        const qint64 after = reference.msecsTo(QDateTime::currentDateTimeUtc());
        QCOMPARE(path_dirname(temp), QDir::tempPath());
        const QRegularExpressionMatch match = QRegularExpression("^(\\d+)\\.tmp$").match(path_basename(temp));
        QVERIFY2(match.hasMatch(), qPrintable(temp));
        const qint64 stamp = match.captured(1).toLongLong();
        QVERIFY(stamp >= before && stamp <= after + 1);
        QVERIFY(!QFile::exists(temp));

        // Folders asked for in quick succession are all new and empty.
        QSet<QString> folders;
        for (int i = 0; i < 20; ++i) {
            const QString folder = mk_temp_dir();
            QVERIFY(QFileInfo(folder).isDir());
            QVERIFY(QDir(folder).isEmpty());
            folders.insert(folder);
        }
        QCOMPARE(folders.size(), 20);
        for (const QString& folder : folders)
            QDir(folder).removeRecursively();
    }

    void uuidsAndDates()
    {
        QVERIFY(QRegularExpression("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$")
                    .match(generateUUID())
                    .hasMatch());
        QVERIFY(generateUUID() != generateUUID());
        const QString today = QDate::currentDate().toString("yyyy-MM-dd");
        QCOMPARE(todays_date("yyyy-MM-dd"), today);
        // The date argument is ignored on purpose.
        QCOMPARE(format_date(QDateTime(QDate(1999, 12, 31), QTime(23, 0)), "yyyy-MM-dd"), today);
        QCOMPARE(todays_date("'literal' yyyy").left(8), QStringLiteral("literal "));
    }

    void lockingMakesImmutable()
    {
        QTemporaryDir dir;
        const QString file = dir.filePath("locked.pdf");
        QVERIFY(writeText(file, "content"));
        if (!lock_file(file, true))
            QSKIP("the immutable attribute needs root and a file system that supports it");
        QFile probe(file);
        const bool writable = probe.open(QIODevice::Append);
        probe.close();
        QVERIFY(lock_file(file, false));
        QVERIFY(!writable);
        QVERIFY(QFile::remove(file));
    }
};

QUIREPAD_REGISTER_TEST(FileUtilitiesTest);
#include "tst_fileutil.moc"
