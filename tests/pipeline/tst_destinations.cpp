#include "TestFiles.h"
#include "TestRegistry.h"

#include "foundation/ProcessRunner.h"
#include "foundation/ScriptedDialogService.h"
#include "foundation/TempArea.h"
#include "foundation/fileutil.h"
#include "pipeline/BookLibraryProcessor.h"
#include "pipeline/ReaderProcessor.h"
#include "pipeline/SyncFolderProcessor.h"

#include <QClipboard>
#include <QDir>
#include <QGuiApplication>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

using namespace quirepad;
using namespace quirepad::test;

// Deliveries to the e-book library, the sync folder and the e-reader, with
// stand-in volumes and programs.
class DestinationsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    ScriptedDialogService* m_dialogs = nullptr;
    QByteArray m_path;
    int m_case = 0;

    QString source()
    {
        const QString path = m_root.filePath(QStringLiteral("spool/alice-D3F2UG-job %1.pdf").arg(++m_case));
        writeFile(path, "%PDF-1.4 job");
        return path;
    }
    QString freshFolder(const QString& name)
    {
        const QString path = m_root.filePath(QStringLiteral("%1-%2").arg(name).arg(++m_case));
        return QDir().mkpath(path) ? path : QString();
    }
    // A folder holding only the given scripts, to be the whole PATH.
    QString binWith(const QMap<QString, QByteArray>& scripts)
    {
        const QString bin = freshFolder("bin");
        for (auto it = scripts.cbegin(); it != scripts.cend(); ++it)
            writeFile(bin + "/" + it.key(), "#!/bin/sh\n" + it.value(), kExecutable);
        return bin;
    }
    static void prepare(CopyFileProcessor& processor, const QString& title)
    {
        processor.name_pattern = "%t.pdf";
        processor.setContext({{"TITLE", title}});
    }
    // The dialogs shown: "alert: TEXT", "error: ...", "notification: TEXT [PATH]".
    QStringList shown() const
    {
        QStringList lines;
        for (const auto& shown : m_dialogs->interactions()) {
            if (shown.kind == ScriptedDialogService::Kind::Notification)
                lines << "notification: " + shown.informative + " [" + shown.revealPath + "]";
            else
                lines << ScriptedDialogService::kindName(shown.kind) + ": " + shown.message;
        }
        return lines;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        const char* const places[][2] = {{"HOME", "home"}, {"XDG_DATA_HOME", "data"}, {"XDG_CONFIG_HOME", "config"},
                                         {"XDG_CACHE_HOME", "cache"}};
        for (const auto& place : places)
            qputenv(place[0], m_root.filePath(place[1]).toUtf8());
        qunsetenv("XDG_DOCUMENTS_DIR");
        QVERIFY(QDir().mkpath(m_root.filePath("spool")) && QDir().mkpath(m_root.filePath("home")));
        m_path = qgetenv("PATH");
    }

    void init()
    {
        auto dialogs = std::make_unique<ScriptedDialogService>();
        m_dialogs = dialogs.get();
        DialogService::setCurrent(std::move(dialogs));
    }

    void cleanup() { qputenv("PATH", m_path); }

    // Over USB the first volume whose version file begins "Kindle " and that
    // has a documents folder takes the file.
    void readerOverUsb_data()
    {
        // Each volume: the version file's text, then "|docs" (a folder),
        // "|link" (a link to a folder elsewhere) or "|" (none).
        QTest::addColumn<QStringList>("volumes");
        QTest::addColumn<int>("chosen"); // -1: none
        QTest::newRow("reader") << QStringList{"Kindle 5.16.2|docs"} << 0;
        QTest::newRow("no documents: the next volume") << QStringList{"Kindle 5.8|", "Kindle 5.16|docs"} << 1;
        QTest::newRow("other disks before it") << QStringList{"|docs", "Kindle|docs", "Kindle 3|docs"} << 2;
        QTest::newRow("small k is not a reader") << QStringList{"kindle 5.16|docs"} << -1;
        QTest::newRow("documents a link") << QStringList{"Kindle 5.16|link"} << -1;
        QTest::newRow("no volumes") << QStringList{} << -1;
    }

    void readerOverUsb()
    {
        QFETCH(QStringList, volumes);
        QFETCH(int, chosen);
        const QString elsewhere = freshFolder("elsewhere");
        QStringList roots;
        for (const QString& volume : volumes) {
            const QString root = freshFolder("volume");
            const QString version = volume.section('|', 0, 0);
            const QString documents = volume.section('|', 1);
            if (!version.isEmpty())
                QVERIFY(QDir().mkpath(root + "/system") && writeFile(root + "/system/version.txt", version.toUtf8()));
            if (documents == "docs")
                QVERIFY(QDir().mkpath(root + "/documents"));
            else if (documents == "link")
                QVERIFY(QFile::link(elsewhere, root + "/documents"));
            roots << root;
        }
        ReaderProcessor processor;
        prepare(processor, "Plan");
        processor.setVolumeLister([roots] { return roots; });
        QCOMPARE(processor.processFile(source()), chosen >= 0);
        QCOMPARE(QDir(elsewhere).entryList(QDir::Files | QDir::Hidden), QStringList());
        for (int i = 0; i < roots.size(); ++i) {
            const QStringList files = QDir(roots[i] + "/documents").entryList(QDir::Files | QDir::Hidden);
            QCOMPARE(files, i == chosen ? QStringList{"Plan.pdf"} : QStringList());
        }
        if (chosen >= 0) {
            QCOMPARE(processor.readerVolume(), roots[chosen]);
            QCOMPARE(readFile(roots[chosen] + "/documents/Plan.pdf"), QByteArray("%PDF-1.4 job"));
            QCOMPARE(shown(), QStringList{"notification: PDF sent to the Kindle []"});
        } else {
            // Nothing delivered: the job stays, and the user was told once.
            QVERIFY(processor.failed());
            QCOMPARE(shown(), QStringList{"alert: Kindle not found. Please connected it to your Mac using USB cable "
                                          "and try again."});
        }
    }

    // A stopped batch ends the scan before the next volume: no alert.
    void readerScanStops()
    {
        const QString root = freshFolder("volume");
        QVERIFY(QDir().mkpath(root + "/system") && QDir().mkpath(root + "/documents"));
        QVERIFY(writeFile(root + "/system/version.txt", "Kindle 5.16"));
        ReaderProcessor processor;
        prepare(processor, "Plan");
        processor.setVolumeLister([root] { return QStringList{root}; });
        processor.setRunningCheck([] { return false; });
        QVERIFY(!processor.processFile(source()));
        QVERIFY(QDir(root + "/documents").isEmpty());
        QCOMPARE(shown(), QStringList());
    }

    void removableMountPoints_data()
    {
        QTest::addColumn<QString>("root");
        QTest::addColumn<bool>("removable");
        QTest::newRow("/media") << "/media/ann/KINDLE" << true;
        QTest::newRow("/run/media") << "/run/media/ann/KINDLE" << true;
        QTest::newRow("/mnt") << "/mnt/reader" << true;
        QTest::newRow("root") << "/" << false;
        QTest::newRow("/boot") << "/boot" << false;
        QTest::newRow("/run") << "/run/user/1000" << false;
        QTest::newRow("/proc") << "/proc" << false;
        QTest::newRow("hidden") << "/media/ann/.hidden" << false;
    }

    void removableMountPoints()
    {
        QFETCH(QString, root);
        QFETCH(bool, removable);
        QCOMPARE(ReaderProcessor::isRemovableMountPoint(root), removable);
    }

    // Through 'Send to Kindle': xdg-email gets the copy, the title and the
    // address; a mailer that fails, or no address, is told with an alert,
    // and the job counts as delivered.
    void readerByMail_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("mailed");
        QTest::newRow("mailed") << "reader@kindle.example" << 0 << true;
        QTest::newRow("mailer fails") << "reader@kindle.example" << 3 << false;
        QTest::newRow("no address") << "" << 0 << false;
        QTest::newRow("address like an option") << "--utf8" << 0 << false;
    }

    void readerByMail()
    {
        QFETCH(QString, address);
        QFETCH(int, status);
        QFETCH(bool, mailed);
        const QString record = m_root.filePath(QStringLiteral("mail-%1.args").arg(++m_case));
        const QString bin = binWith({{"xdg-email", "printf '%s\\n' \"$@\" > '" + record.toUtf8() + "'\nexit "
                                                       + QByteArray::number(status) + "\n"}});
        qputenv("PATH", bin.toUtf8() + ":" + m_path);
        ReaderProcessor processor;
        prepare(processor, "Plan: Q3");
        processor.config = {{"transfer_type", 1}, {"reader_email", address}};
        processor.setVolumeLister([] {
            QTest::qFail("the volumes were looked at", __FILE__, __LINE__);
            return QStringList();
        });
        QVERIFY(processor.processFile(source()));
        const QString attached = processor.resultFile;
        QCOMPARE(path_basename(attached), QString("Plan; Q3.pdf"));
        QVERIFY(TempArea::instance().contains(attached));
        QCOMPARE(readFile(attached), QByteArray("%PDF-1.4 job"));
        if (address.isEmpty() || address.startsWith('-'))
            QVERIFY(!QFile::exists(record)); // never run
        else
            QCOMPARE(QString::fromUtf8(readFile(record)),
                     QStringList({"--attach", attached, "--subject", "Plan: Q3", address}).join('\n') + '\n');
        QStringList expected;
        if (!mailed)
            expected << "alert: The 'Send to Kindle' app may not be installed properly.";
        expected << "notification: PDF sent to the Kindle []";
        QCOMPARE(shown(), expected);
    }

    // Without calibre the file goes into Books/<author>/ of the documents
    // folder, never over a file there; a calibredb that fails keeps the
    // job; with calibre installed it lands in the given library.
    void bookLibrary_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("author"); // empty: not set
        QTest::addColumn<QString>("calibre"); // "none", "failing", "installed"
        QTest::newRow("books, folder") << "B" << "Ann Author" << "none";
        QTest::newRow("media, folder, no author") << "I" << "" << "none";
        QTest::newRow("author with a slash") << "B" << "../A/B" << "none";
        QTest::newRow("calibredb fails") << "B" << "Ann Author" << "failing";
        QTest::newRow("calibre library") << "I" << "Ann Author" << "installed";
    }

    void bookLibrary()
    {
        QFETCH(QString, type);
        QFETCH(QString, author);
        QFETCH(QString, calibre);
        const QString library = freshFolder("calibre-library");
        if (calibre == "installed") {
            if (QStandardPaths::findExecutable("calibredb").isEmpty())
                QSKIP("calibredb is not installed: the calibre library is not tried (apt-get install calibre)");
        } else if (calibre == "failing") {
            qputenv("PATH", binWith({{"calibredb", "echo 'library locked' >&2\nexit 1\n"}}).toUtf8());
        } else {
            qputenv("PATH", binWith({}).toUtf8());
        }
        const QString books = QDir::homePath() + "/Documents/Books/";
        const QString folder = books + (author.isEmpty() ? "Unknown" : author == "../A/B" ? "..;A;B" : author);
        const QString notified = type == "B" ? "PDF sent to the Books app" : "File synchronized with iTunes";
        for (int round = 0; round < 2; ++round) {
            init(); // a fresh service: the same notification again is not repeated by one
            BookLibraryProcessor processor(type == "B" ? BookLibraryProcessor::Library::Books
                                                       : BookLibraryProcessor::Library::Media);
            prepare(processor, "Plan");
            if (!author.isEmpty())
                processor.config.insert("author_name", author);
            if (calibre == "installed")
                processor.config.insert("library_path", library);
            const bool delivered = processor.processFile(source());
            if (calibre == "failing") {
                QVERIFY(!delivered);
                QVERIFY2(processor.failureReason().contains("could not be added to the calibre library"),
                         qPrintable(processor.failureReason()));
                QVERIFY(processor.failureReason().contains("library locked"));
                QCOMPARE(shown(), QStringList{"error: The document could not be delivered."});
                QVERIFY(!QDir(books).exists());
                return;
            }
            QVERIFY2(delivered, qPrintable(processor.failureReason()));
            QCOMPARE(shown(), QStringList{"notification: " + notified + " []"});
        }
        if (calibre == "none") {
            QCOMPARE(QDir(books).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden).size(), 1);
            QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden), (QStringList{"Plan 1.pdf", "Plan.pdf"}));
            QCOMPARE(readFile(folder + "/Plan.pdf"), QByteArray("%PDF-1.4 job"));
            QVERIFY(QDir(books).removeRecursively());
        } else {
            const ProcessRunner::Result listed =
                ProcessRunner("calibredb", {"list", "--with-library", library, "--for-machine", "--fields", "title,authors"})
                    .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
                    .run();
            QVERIFY2(listed.succeeded(), listed.standardError.constData());
            QVERIFY2(listed.standardOutput.contains("\"Ann Author\""), listed.standardOutput.constData());
            QVERIFY(listed.standardOutput.contains("\"Plan\""));
        }
    }

    // The sync folder gets the file; with copy_to_clipboard its link is on
    // the clipboard.
    void syncFolder_data()
    {
        QTest::addColumn<bool>("toClipboard");
        QTest::addColumn<QString>("client"); // a "dropbox" command's script; empty: none installed
        QTest::addColumn<QString>("link");   // expected; empty: the file's URL
        const QString shared = "https://www.dropbox.com/s/abc123/Plan.pdf?dl=0";
        QTest::newRow("copied to the clipboard") << true << QString() << QString();
        QTest::newRow("clipboard left alone") << false << QString() << QString();
        QTest::newRow("the client's shared link") << true << "echo '" + shared + "'\n" << shared;
        QTest::newRow("the client has no link") << true << "echo \"Dropbox isn't running!\" >&2\nexit 1\n" << QString();
    }

    void syncFolder()
    {
        QFETCH(bool, toClipboard);
        QFETCH(QString, client);
        QFETCH(QString, link);
        qputenv("PATH", (client.isEmpty() ? binWith({}) : binWith({{"dropbox", client.toUtf8()}})).toUtf8());
        QVERIFY(qobject_cast<QGuiApplication*>(QCoreApplication::instance()));
        QGuiApplication::clipboard()->setText("before");
        const QString out = freshFolder("Dropbox") + "/Public";
        SyncFolderProcessor processor;
        prepare(processor, "Plan");
        processor.config = {{"output_dir", QUrl::fromLocalFile(out + "/").toString(QUrl::FullyEncoded)},
                            {"copy_to_clipboard", toClipboard}};
        QVERIFY(processor.processFile(source()));
        QCOMPARE(processor.resultFile, out + "/Plan.pdf");
        QCOMPARE(readFile(out + "/Plan.pdf"), QByteArray("%PDF-1.4 job"));
        QCOMPARE(shown(), QStringList{"notification: File sent to the Dropbox []"});
        const QString expected = link.isEmpty() ? QUrl::fromLocalFile(out + "/Plan.pdf").toString() : link;
        QCOMPARE(QGuiApplication::clipboard()->text(), toClipboard ? expected : QString("before"));
    }
};

QUIREPAD_REGISTER_TEST(DestinationsTest);
#include "tst_destinations.moc"
