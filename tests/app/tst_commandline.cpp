#include "TestFiles.h"
#include "TestRegistry.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace quirepad::test;

namespace {

struct Run {
    int status = -1;
    QString out;
    QString err;
    // Ended with the status, having written the text (or a single line) to stderr.
    bool reported(int expected, const QString& text) const { return status == expected && err.contains(text); }
    bool reportedOneLine(int expected) const { return status == expected && err.count('\n') == 1; }
};

// One user account for the executable: its own home, data, config and
// runtime folders.
class Account
{
public:
    explicit Account(const QString& root, const QString& runtime = QString())
        : m_root(root)
        , m_runtime(runtime.isEmpty() ? root + "/run" : runtime)
    {
        for (const char* sub : { "home", "data", "config", "cache" })
            QDir().mkpath(root + '/' + sub);
        QDir().mkpath(m_runtime);
        QFile::setPermissions(m_runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", m_root + "/home");
        for (const QString sub : { "data", "config", "cache" })
            env.insert("XDG_" + sub.toUpper() + "_HOME", m_root + '/' + sub);
        env.insert("XDG_RUNTIME_DIR", m_runtime);
        env.insert("QT_QPA_PLATFORM", "offscreen");
        return env;
    }

    Run run(const QStringList& arguments) const
    {
        QProcess process;
        process.setProcessEnvironment(environment());
        process.setWorkingDirectory(m_root);
        process.start(executable(), arguments);
        if (!process.waitForFinished(60000))
            return {};
        return { process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError()) };
    }

    // The printed record id of a command that adds a destination.
    QString add(const QStringList& arguments) const
    {
        return run(QStringList { "destinations" } + arguments).out.trimmed();
    }

    // For every destination, in listed order, its values at the key paths
    // ("name", "config.appid") joined by '|'; "(none)" for one not set.
    QStringList listed(const QStringList& keyPaths = { "name", "order" }) const
    {
        QStringList lines;
        for (const QJsonValue& record :
            QJsonDocument::fromJson(run({ "destinations", "list", "--json" }).out.toUtf8()).array()) {
            QStringList texts;
            for (const QString& keyPath : keyPaths) {
                QJsonValue value = record;
                for (const QString& key : keyPath.split('.'))
                    value = value[key];
                texts << (value.isUndefined() ? QStringLiteral("(none)") : value.toVariant().toString());
            }
            lines << texts.join('|');
        }
        return lines;
    }

    // The values of the destination with that record id, as listed() shows them.
    QString values(const QString& recid, const QStringList& keyPaths) const
    {
        for (const QString& line : listed(QStringList { "recid" } + keyPaths))
            if (line.startsWith(recid + '|'))
                return line.mid(recid.size() + 1);
        return QStringLiteral("(no record)");
    }

    QString storePath() const { return m_root + "/data/com.halvern.Quirepad/Quirepad.internalbd"; }
    QString root() const { return m_root; }

    static QString executable() { return QCoreApplication::applicationDirPath() + "/quirepad"; }

private:
    QString m_root;
    QString m_runtime;
};

} // namespace

class CommandLineTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    int m_accounts = 0;
    Account fresh() { return Account(m_dir.filePath(QStringLiteral("account%1").arg(++m_accounts))); }

private slots:
    void versionAndHelp()
    {
        const Account account = fresh();
        const Run version = account.run({ "--version" });
        QVERIFY(version.status == 0 && version.out.startsWith("quirepad "));
        const Run help = account.run({ "--help" });
        QCOMPARE(help.status, 0);
        const QStringList commands = account.run({ "--commands" }).out.split('\n', Qt::SkipEmptyParts);
        QVERIFY(commands.contains("destinations") && commands.contains("defaults"));
        // Every text of help fits in 80 columns.
        QStringList texts { help.out };
        for (const QString& command : commands) {
            QVERIFY2(help.out.contains("  " + command + ' '), qPrintable(command));
            const Run usage = account.run({ "help", command });
            QVERIFY2(usage.status == 0 && usage.out.startsWith("Usage: quirepad " + command), qPrintable(command));
            texts << usage.out;
        }
        for (const QString& text : texts)
            for (const QString& line : text.split('\n'))
                QVERIFY2(line.size() <= 80, qPrintable(line));
        QVERIFY(account.run({ "frobnicate" }).reportedOneLine(2));
    }

    // Wrong use: one line on stderr and status 2; refusals of the store: 1.
    void commandLines_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("firstLine"); // of stderr, or of stdout when status is 0
        QTest::newRow("help of a command")
            << QStringList { "help", "deliver" } << 0 << "Usage: quirepad deliver ID FILE...";
        QTest::newRow("-h anywhere") << QStringList { "destinations", "remove", "-h" } << 0
                                     << "Usage: quirepad destinations";
        QTest::newRow("help of nothing") << QStringList { "help", "nothing" } << 2
                                         << "quirepad: unknown command 'nothing'";
        QTest::newRow("version with more") << QStringList { "--version", "x" } << 2 << "quirepad: --version takes no";
        QTest::newRow("unknown option") << QStringList { "--frob" } << 2 << "quirepad: unknown option '--frob'";
        QTest::newRow("command option") << QStringList { "deliver", "x", "--colour", "red" } << 2
                                        << "quirepad: deliver: unknown option '--colour'";
        QTest::newRow("extra argument") << QStringList { "scan", "now" } << 2 << "quirepad: scan takes no arguments";
        QTest::newRow("stop with more") << QStringList { "stop", "now" } << 2 << "quirepad: stop takes no arguments";
        QTest::newRow("no subcommand") << QStringList { "destinations" } << 2 << "quirepad: destinations needs";
        QTest::newRow("unknown subcommand") << QStringList { "defaults", "erase" } << 2 << "quirepad: defaults has no";
        QTest::newRow("unknown type letter") << QStringList { "destinations", "add", "Q", "Odd" } << 2
                                             << "quirepad: TYPE is one of the letters F O B I D K X, not 'Q'";
        QTest::newRow("name in use") << QStringList { "destinations", "add", "F", "copy to desktop" } << 1
                                     << "quirepad: a destination named 'copy to desktop' exists already";
        QTest::newRow("app name in use") << QStringList { "destinations", "add-app", "Open in Preview", "x.desktop" }
                                         << 1 << "quirepad: a destination named";
        QTest::newRow("workflow name in use") << QStringList { "destinations", "add-workflow", "Copy to Desktop" } << 1
                                              << "quirepad: a destination named";
        QTest::newRow("list option") << QStringList { "destinations", "list", "--wide" } << 2
                                     << "quirepad: destinations: unknown option '--wide'";
        QTest::newRow("unknown key") << QStringList { "defaults", "write", "max_count", "3" } << 2
                                     << "quirepad: no setting named 'max_count'; did you mean maxcount?";
        QTest::newRow("unknown key read")
            << QStringList { "defaults", "read", "colour" } << 2 << "quirepad: no setting named 'colour' (see";
        QTest::newRow("unknown key delete")
            << QStringList { "defaults", "delete", "colour" } << 2 << "quirepad: no setting";
        QTest::newRow("internal key") << QStringList { "defaults", "write", "air_printer", "x" } << 2
                                      << "quirepad: air_printer is kept by Quirepad itself";
        QTest::newRow("wrong type") << QStringList { "defaults", "write", "follow_mouse", "often" } << 2
                                    << "quirepad: follow_mouse takes yes or no, not 'often'";
        QTest::newRow("out of range") << QStringList { "defaults", "write", "HTTPServer_serverPort", "70000" } << 2
                                      << "quirepad: HTTPServer_serverPort takes a number from 1 to 65535";
        QTest::newRow("missing value") << QStringList { "defaults", "write", "maxcount" } << 2
                                       << "quirepad: usage: defaults write KEY VALUE";
        QTest::newRow("one value as JSON")
            << QStringList { "defaults", "read", "maxcount", "--json" } << 0 << "{\"maxcount\":5}";
    }

    void commandLines()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        QFETCH(QString, firstLine);
        const Account account = fresh();
        const QString conf = account.root() + "/config/Quirepad/Quirepad.conf";
        const Run run = account.run(arguments);
        QCOMPARE(run.status, status);
        const QString text = status == 0 ? run.out : run.err;
        QVERIFY2(text.startsWith(firstLine), qPrintable(text));
        if (status != 0) {
            QCOMPARE(run.err.count('\n'), 1);
            QVERIFY(!QFile::exists(conf)); // nothing written
            QCOMPARE(account.listed().size(), 2); // nothing added
        }
    }

    // --help, -h and help COMMAND run nothing: no instance is asked, no
    // settings file or store is made.
    void helpHasNoSideEffects()
    {
        const Account account = fresh();
        const QString runtime = account.root() + "/run/quirepad";
        QVERIFY(QDir().mkpath(runtime));
        QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QLocalServer instance; // stands in for a running Quirepad
        QVERIFY(instance.listen(runtime + "/quirepad.sock"));
        int contacted = 0;
        connect(&instance, &QLocalServer::newConnection, this, [&] {
            ++contacted;
            // No answer: the client gives up with status 75.
            while (QLocalSocket* connection = instance.nextPendingConnection()) {
                connection->abort();
                connection->deleteLater();
            }
        });
        const QStringList commands = account.run({ "--commands" }).out.split('\n', Qt::SkipEmptyParts);
        QVERIFY(commands.size() > 10);
        for (const QString& command : commands) {
            for (const QStringList& arguments : { QStringList { command, "--help" },
                     QStringList { command, "remove", "x", "-h" }, QStringList { "help", command } }) {
                QProcess process;
                process.setProcessEnvironment(account.environment());
                process.start(Account::executable(), arguments);
                QTRY_VERIFY_WITH_TIMEOUT(process.state() == QProcess::NotRunning, 60000);
                QVERIFY2(process.exitCode() == 0, qPrintable(arguments.join(' ')));
                QVERIFY(process.readAllStandardOutput().startsWith("Usage: quirepad " + command.toUtf8()));
            }
        }
        QCOMPARE(contacted, 0);
        for (const char* folder : { "/config", "/data", "/cache", "/home" })
            QVERIFY2(QDir(account.root() + folder).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty(), folder);
        // A command that is run does reach it.
        QProcess scan;
        scan.setProcessEnvironment(account.environment());
        scan.start(Account::executable(), { "scan" });
        QTRY_VERIFY_WITH_TIMEOUT(scan.state() == QProcess::NotRunning, 60000);
        QCOMPARE(contacted, 1);
        QCOMPARE(scan.exitCode(), 75);
    }

    // The manual page is well-formed roff and names every command and setting.
    void manualPage()
    {
        const Account account = fresh();
        const Run man = account.run({ "--man" });
        QCOMPARE(man.status, 0);
        for (const QString& command : account.run({ "--commands" }).out.split('\n', Qt::SkipEmptyParts))
            QVERIFY2(man.out.contains("\\fB" + QString(command).replace('-', "\\-") + "\\fR"), qPrintable(command));
        for (const QString& key : account.run({ "defaults", "keys" }).out.split('\n', Qt::SkipEmptyParts))
            QVERIFY2(man.out.contains(QString(key).replace('-', "\\-")), qPrintable(key));
        QProcess groff;
        groff.start("groff", { "-man", "-Tutf8", "-ww", "-z" });
        if (!groff.waitForStarted())
            QSKIP("groff is not installed (groff-base)");
        groff.write(man.out.toUtf8());
        groff.closeWriteChannel();
        QVERIFY(groff.waitForFinished(60000));
        QCOMPARE(groff.exitCode(), 0);
        QCOMPARE(QString::fromUtf8(groff.readAllStandardError()), QString());
    }

    // The bash completion offers commands, subcommands, keys and names.
    void bashCompletion_data()
    {
        QTest::addColumn<QString>("line"); // the words typed, the last one being completed
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("commands") << "quirepad dest" << QStringList { "destinations" };
        QTest::newRow("subcommands") << "quirepad destinations add-"
                                     << QStringList { "add-app", "add-workflow", "add-path" };
        QTest::newRow("settings keys") << "quirepad defaults write HTTPServer_s"
                                       << QStringList { "HTTPServer_serverPort", "HTTPServer_serviceName",
                                              "HTTPServer_serviceType" };
        QTest::newRow("destination names")
            << "quirepad destinations remove " << QStringList { "Open in Preview", "Copy to Desktop" };
        QTest::newRow("deliver to") << "quirepad deliver Co" << QStringList { "Copy to Desktop" };
        QTest::newRow("help topics") << "quirepad help feed" << QStringList { "feed" };
    }

    void bashCompletion()
    {
        QFETCH(QString, line);
        QFETCH(QStringList, expected);
        const QString script = QStringLiteral(QUIREPAD_SOURCE_DIR "/resources/completions/quirepad.bash");
        const Account account = fresh();
        QProcessEnvironment environment = account.environment();
        environment.insert("PATH", QCoreApplication::applicationDirPath() + ':' + environment.value("PATH"));
        environment.insert("LINE", line);
        QProcess bash;
        bash.setProcessEnvironment(environment);
        bash.start("bash",
            { "--norc", "-c",
                "source \"$1\"; read -ra COMP_WORDS <<< \"$LINE\"; [[ $LINE == *' ' ]] && COMP_WORDS+=('');"
                "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _quirepad; printf '%s\\n' \"${COMPREPLY[@]}\"",
                "bash", script });
        QVERIFY(bash.waitForFinished(60000));
        QCOMPARE(QString::fromUtf8(bash.readAllStandardError()), QString());
        QStringList offered = QString::fromUtf8(bash.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
        offered.sort();
        expected.sort();
        QCOMPARE(offered, expected);
    }

    void addingEveryKind()
    {
        const Account account = fresh();
        const QString recid = account.add({ "add", "F", "  Scans  " });
        QCOMPARE(recid.size(), 36);
        QCOMPARE(account.values(recid, { "name", "name_pattern", "order", "config.output_dir" }),
            "Scans|Output-%t.pdf|0|"
                + QUrl::fromLocalFile(account.root() + "/home/Desktop/").toString(QUrl::FullyEncoded));
        QCOMPARE(account.run({ "destinations", "add", "FF", "x" }).status, 2);
        QCOMPARE(account.run({ "destinations", "add", "F", "   " }).status, 1);
        QCOMPARE(account.values(account.add({ "add-app", "Evince", "org.gnome.Evince.desktop" }), { "config.appid" }),
            QStringLiteral("org.gnome.Evince.desktop"));
        QCOMPARE(account.values(account.add({ "add-workflow", "Save as Text" }), { "type" }), QStringLiteral("X"));
        QDir(account.root()).mkpath("Incoming Scans"); // relative to the caller
        QCOMPARE(account.values(account.add({ "add-path", "Incoming Scans" }), { "name" }),
            QStringLiteral("Incoming Scans"));
        QVERIFY(writeFile(account.root() + "/paper.pdf", {}));
        QVERIFY(account.run({ "destinations", "add-path", "paper.pdf" }).reportedOneLine(1));
        QCOMPARE(account.listed().size(), 6);
    }

    void settingAttributes_data()
    {
        QTest::addColumn<QStringList>("assignments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("keyPath");
        QTest::addColumn<QString>("expected"); // the value afterwards
        QTest::newRow("boolean yes") << QStringList { "do_overwrite=yes" } << 0 << "do_overwrite"
                                     << "true";
        QTest::newRow("boolean no") << QStringList { "in_menu=no" } << 0 << "in_menu"
                                    << "false";
        QTest::newRow("config key") << QStringList { "config.output_dir=file:///o/" } << 0 << "config.output_dir"
                                    << "file:///o/";
        QTest::newRow("empty removes") << QStringList { "name_pattern=" } << 0 << "name_pattern"
                                       << "(none)";
        QTest::newRow("integer") << QStringList { "order=12" } << 0 << "order"
                                 << "12";
        QTest::newRow("malformed keeps all") << QStringList { "do_overwrite=yes", "nonsense" } << 2 << "do_overwrite"
                                             << "(none)";
        QTest::newRow("bad boolean") << QStringList { "do_compress=maybe" } << 2 << "do_compress"
                                     << "(none)";
        QTest::newRow("bad integer") << QStringList { "order=first", "tranform=Monochrome" } << 2 << "tranform"
                                     << "(none)";
        QTest::newRow("unknown attribute") << QStringList { "colour=red" } << 2 << "colour"
                                           << "(none)";
    }

    void settingAttributes()
    {
        QFETCH(QStringList, assignments);
        QFETCH(int, status);
        QFETCH(QString, keyPath);
        const Account account = fresh();
        const QString recid = account.add({ "add", "F", "Target" });
        const Run set = account.run(QStringList { "destinations", "set", "Target" } + assignments);
        QCOMPARE(set.status, status);
        QCOMPARE(set.err.count('\n'), status ? 1 : 0);
        QTEST(account.values(recid, { keyPath }), "expected");
    }

    void listingMovingAndRemoving()
    {
        const Account account = fresh();
        QCOMPARE(account.listed(), (QStringList { "Open in Preview|1", "Copy to Desktop|2" }));
        QVERIFY(QFile::exists(account.storePath()));
        const Run text = account.run({ "destinations", "list", "--long" });
        QVERIFY(text.status == 0 && text.out.contains("config.appid=com.apple.Preview"));
        // A table: the folder as a path; cut to 80 columns unless told otherwise.
        const Run wide = account.run({ "destinations", "list", "--width", "300" });
        QCOMPARE(wide.out.split('\n').value(2).simplified(),
            "2 Copy to Desktop folder " + account.root() + "/home/Desktop/ menu,built-in");
        for (const QString& line : account.run({ "destinations", "list" }).out.split('\n'))
            QVERIFY2(line.size() <= 80, qPrintable(line));
        QCOMPARE(account.run({ "destinations", "list", "--names" }).out,
            QStringLiteral("Open in Preview\nCopy to Desktop\n"));
        account.add({ "add", "F", "Third" });
        QCOMPARE(account.run({ "destinations", "move", "Third", "--after", "copy_to_desktop" }).status, 0);
        QCOMPARE(account.listed(), (QStringList { "Open in Preview|1", "Copy to Desktop|2", "Third|3" }));
        QCOMPARE(account.run({ "destinations", "move", "Third", "--before", "Open in Preview" }).status, 0);
        QCOMPARE(account.listed(), (QStringList { "Third|1", "Open in Preview|2", "Copy to Desktop|3" }));
        QCOMPARE(account.run({ "destinations", "move", "Third", "--beside", "x" }).status, 2);
        QVERIFY(account.run({ "destinations", "remove", "no-such-id" }).reported(1, "no-such-id"));
        QCOMPARE(account.run({ "destinations", "remove", "Third" }).status, 0);
        QCOMPARE(account.listed(), (QStringList { "Open in Preview|2", "Copy to Desktop|3" }));
    }

    void exportAndImportBetweenAccounts()
    {
        const Account from = fresh(), to = fresh();
        const QString recid = from.add({ "add", "F", "Shared" });
        const QString file = m_dir.filePath("shared.quirepad-settings");
        QCOMPARE(from.run({ "destinations", "export", file }).status, 0);
        QCOMPARE(to.run({ "destinations", "import", file }).status, 0);
        QCOMPARE(to.values(recid, { "name", "config", "in_menu" }), QStringLiteral("Shared|(none)|(none)"));
        const QString one = m_dir.filePath("one.quirepad-settings");
        QCOMPARE(from.run({ "destinations", "export", one, "Shared" }).status, 0);
        QCOMPARE(readFile(one).count("<destination>"), 1);

        const QString foreign = m_dir.filePath("foreign.quirepad-settings");
        QVERIFY(writeFile(foreign, "{ \"not\": \"xml\" }"));
        QVERIFY(to.run({ "destinations", "import", foreign }).reported(1, "not a Quirepad settings file"));
        QCOMPARE(from.run({ "destinations", "export", foreign }).status, 1);
        QCOMPARE(readFile(foreign), QByteArray("{ \"not\": \"xml\" }"));
        QCOMPARE(to.run({ "destinations", "import", m_dir.filePath("missing.quirepad-settings") }).status, 1);
    }

    void readingAndWritingSettings()
    {
        const Account account = fresh();
        const auto defaults
            = [&](const QStringList& arguments) { return account.run(QStringList { "defaults" } + arguments); };
        QCOMPARE(defaults({ "read", "maxcount" }).out, QStringLiteral("5\n"));
        QVERIFY(defaults({ "read" }).out.contains("maxcount = 5  (default)"));
        QCOMPARE(defaults({ "write", "maxcount", "8" }).status, 0);
        QCOMPARE(defaults({ "read", "maxcount" }).out, QStringLiteral("8\n"));
        QVERIFY(defaults({ "read" }).out.contains("maxcount = 8\n"));
        QCOMPARE(defaults({ "write", "maxcount", "eight" }).status, 2);
        QCOMPARE(defaults({ "write", "disable_all_displaynotifications", "yes" }).status, 0);
        QCOMPARE(defaults({ "read", "disable_all_displaynotifications" }).out, QStringLiteral("yes\n"));
        QCOMPARE(defaults({ "delete", "maxcount" }).status, 0);
        QCOMPARE(defaults({ "read", "maxcount" }).out, QStringLiteral("5\n"));
        QCOMPARE(defaults({ "delete", "maxcount" }).status, 1);
        QCOMPARE(defaults({ "read", "no_such_setting" }).status, 2);
        // Only what was written is in the file; defaults never are.
        const QByteArray conf = readFile(account.root() + "/config/Quirepad/Quirepad.conf");
        QVERIFY(conf.contains("disable_all_displaynotifications") && !conf.contains("show_menubar_icon"));
    }

    void deliveringThroughTheCommandLine()
    {
        const Account account = fresh();
        const QString out = account.root() + "/Delivered";
        const QString recid = account.add({ "add", "F", "Inbox" });
        QCOMPARE(account
                     .run({ "destinations", "set", "Inbox", "name_pattern=%u on %h - %t.pdf",
                         "config.output_dir=" + QUrl::fromLocalFile(out + "/").toString(QUrl::FullyEncoded) })
                     .status,
            0);
        QVERIFY(writeFile(account.root() + "/user's own.pdf", "%PDF-1.4 mine"));
        const QStringList job { "user's own.pdf", "--title", "Q3: plan", "--user", "ann", "--host", "lab" };
        const Run delivered = account.run(QStringList { "deliver", "Inbox" } + job);
        QCOMPARE(delivered.status, 0);
        QCOMPARE(delivered.out.trimmed(), out + "/ann on lab - Q3; plan.pdf");
        QCOMPARE(readFile(delivered.out.trimmed()), QByteArray("%PDF-1.4 mine"));
        // The second delivery of the same name gets a free variant.
        QCOMPARE(
            account.run(QStringList { "deliver", recid } + job).out.trimmed(), out + "/ann on lab - Q3; plan 1.pdf");
        QVERIFY(account.run({ "deliver", "Nowhere", "user's own.pdf" }).reportedOneLine(1));
        QCOMPARE(account.run({ "deliver", "Inbox", "missing.pdf" }).status, 1);
        QCOMPARE(account.run({ "deliver", "Inbox" }).status, 2);
        QCOMPARE(account.run({ "deliver", "Inbox", "user's own.pdf", "--title" }).status, 2);
        // A reader destination with no reader connected keeps the job and says so.
        account.add({ "add", "K", "Reader" });
        QVERIFY(account.run({ "deliver", "Reader", "user's own.pdf" }).reported(1, "no Kindle is connected"));
    }

    void workflowSamples()
    {
        const Account account = fresh();
        const Run installed = account.run({ "workflows", "install-samples" });
        QVERIFY(installed.status == 0 && installed.out.count("installed ") == 9);
        QVERIFY(account.run({ "workflows", "install-samples" }).out.contains("already installed"));
        const Run list = account.run({ "workflows", "list" });
        QCOMPARE(list.status, 0);
        for (const char* name : { "Save as Image", "Save as Text", "Save as WebPage", "Save as Flat PDF", "Monochrome",
                 "CMYK color", "Grayscale color", "PDF X-3", "Flatten PDF" })
            QVERIFY2(list.out.contains(QStringLiteral("  ") + name + '\n'), name);
        QCOMPARE(account.run({ "workflows", "remove" }).status, 2);
    }

    // Starting Quirepad again brings up the running one's preferences.
    void relaunchShowsPreferences_data()
    {
        QTest::addColumn<QStringList>("instanceArguments");
        QTest::addColumn<QString>("answer");
        QTest::newRow("windowed instance") << QStringList() << "the preferences are open";
        QTest::newRow("headless instance") << QStringList { "--headless" } << "has no windows";
    }

    void relaunchShowsPreferences()
    {
        QFETCH(QStringList, instanceArguments);
        QFETCH(QString, answer);
        const Account account(m_dir.filePath(QStringLiteral("relaunch-%1").arg(instanceArguments.size())));
        QVERIFY(account.run({ "preferences" }).reported(1, "no Quirepad is running"));
        QProcess instance;
        QProcessEnvironment environment = account.environment();
        // No shared directory: the launch checks put up an alert (a window
        // that stays open, or a scripted answer when headless).
        environment.insert("QUIREPAD_SHARED_DIR", account.root() + "/no-shared-dir");
        instance.setProcessEnvironment(environment);
        instance.setProcessChannelMode(QProcess::MergedChannels);
        instance.start(Account::executable(), instanceArguments);
        QVERIFY(instance.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(account.root() + "/run/quirepad/quirepad.sock"), 20000);

        const Run again = account.run({});
        QCOMPARE(again.status, 0);
        QVERIFY2(again.err.contains("already running") && again.err.contains(answer), qPrintable(again.err));
        const Run command = account.run({ "preferences" });
        QVERIFY((command.out + command.err).contains(answer));

        // Ends on request even while a question of the launch checks is up.
        ::kill(pid_t(instance.processId()), SIGTERM);
        QVERIFY(instance.waitForFinished(20000));
        QVERIFY(instance.exitStatus() == QProcess::NormalExit && instance.exitCode() == 0);
    }

    void commandsGoToTheRunningInstance()
    {
        // Two accounts share one runtime folder: whatever reaches the instance's
        // store was forwarded, since the client's own store would be elsewhere.
        const QString runtime = m_dir.filePath("shared-run");
        const Account instanceAccount(m_dir.filePath("instance"), runtime);
        const Account client(m_dir.filePath("client"), runtime);
        QProcess instance;
        instance.setProcessEnvironment(instanceAccount.environment());
        instance.setProcessChannelMode(QProcess::MergedChannels);
        instance.start(Account::executable(), { "--headless" });
        QVERIFY(instance.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(runtime + "/quirepad/quirepad.sock"), 20000);

        QVERIFY(client.run({ "--headless" }).reported(1, "already running"));
        // Read back through the instance too; relative paths are resolved in the caller's folder.
        QCOMPARE(
            instanceAccount.values(client.add({ "add", "F", "Forwarded" }), { "name" }), QStringLiteral("Forwarded"));
        QVERIFY(!QFile::exists(client.storePath()));
        QDir(client.root()).mkpath("Client Folder");
        QCOMPARE(instanceAccount.values(client.add({ "add-path", "Client Folder" }), { "name" }),
            QStringLiteral("Client Folder"));
        QVERIFY(client.run({ "destinations", "remove", "nothing-here" }).reported(1, "nothing-here"));
        QVERIFY(writeFile(client.root() + "/job.pdf", {}));
        const Run files = client.run({ "job.pdf" });
        QVERIFY(files.status == 0 && files.out.contains("1 file(s) taken into the queue"));

        ::kill(pid_t(instance.processId()), SIGTERM);
        QVERIFY(instance.waitForFinished(20000));
        QVERIFY(instance.exitStatus() == QProcess::NormalExit && instance.exitCode() == 0);
        QVERIFY(QFile::exists(instanceAccount.storePath()));
        // With the instance gone the client works on its own store.
        QCOMPARE(client.run({ "destinations", "list" }).status, 0);
        QVERIFY(QFile::exists(client.storePath()));
    }
};

QUIREPAD_REGISTER_TEST(CommandLineTest);
#include "tst_commandline.moc"
