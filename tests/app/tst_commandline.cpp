#include "TestFiles.h"
#include "TestRegistry.h"

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
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
        for (const char* sub : {"home", "data", "config", "cache"})
            QDir().mkpath(root + '/' + sub);
        QDir().mkpath(m_runtime);
        QFile::setPermissions(m_runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", m_root + "/home");
        for (const QString sub : {"data", "config", "cache"})
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
        return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
                QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
    }

    // The printed record id of a command that adds a destination.
    QString add(const QStringList& arguments) const { return run(QStringList{"destinations"} + arguments).out.trimmed(); }

    // For every destination, in listed order, its values at the key paths
    // ("name", "config.appid") joined by '|'; "(none)" for one not set.
    QStringList listed(const QStringList& keyPaths = {"name", "order"}) const
    {
        QStringList lines;
        for (const QJsonValue& record : QJsonDocument::fromJson(run({"destinations", "list", "--json"}).out.toUtf8()).array()) {
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
        for (const QString& line : listed(QStringList{"recid"} + keyPaths))
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
        const Run version = account.run({"--version"});
        QVERIFY(version.status == 0 && version.out.startsWith("quirepad "));
        const Run help = account.run({"--help"});
        QCOMPARE(help.status, 0);
        for (const char* word : {"destinations", "defaults", "add-path", "export FILE [ID]", "--headless"})
            QVERIFY2(help.out.contains(word), word);
        QVERIFY(account.run({"frobnicate"}).reportedOneLine(2));
    }

    void addingEveryKind()
    {
        const Account account = fresh();
        const QString recid = account.add({"add", "F", "  Scans  "});
        QCOMPARE(recid.size(), 36);
        QCOMPARE(account.values(recid, {"name", "name_pattern", "order", "config.output_dir"}),
                 "Scans|Output-%t.pdf|0|" + QUrl::fromLocalFile(account.root() + "/home/Desktop/").toString(QUrl::FullyEncoded));
        const Run odd = account.run({"destinations", "add", "Q", "Odd one"});
        QVERIFY(odd.reported(0, "warning"));
        QCOMPARE(account.values(odd.out.trimmed(), {"type"}), QStringLiteral("Q"));
        QCOMPARE(account.run({"destinations", "add", "FF", "x"}).status, 2);
        QCOMPARE(account.run({"destinations", "add", "F", "   "}).status, 1);
        QCOMPARE(account.values(account.add({"add-app", "Evince", "org.gnome.Evince.desktop"}), {"config.appid"}),
                 QStringLiteral("org.gnome.Evince.desktop"));
        QCOMPARE(account.values(account.add({"add-workflow", "Save as Text"}), {"type"}), QStringLiteral("X"));
        QDir(account.root()).mkpath("Incoming Scans"); // relative to the caller
        QCOMPARE(account.values(account.add({"add-path", "Incoming Scans"}), {"name"}), QStringLiteral("Incoming Scans"));
        QVERIFY(writeFile(account.root() + "/paper.pdf", {}));
        QVERIFY(account.run({"destinations", "add-path", "paper.pdf"}).reportedOneLine(1));
        QCOMPARE(account.listed().size(), 7);
    }

    void settingAttributes_data()
    {
        QTest::addColumn<QStringList>("assignments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("keyPath");
        QTest::addColumn<QString>("expected"); // the value afterwards
        QTest::newRow("boolean yes") << QStringList{"do_overwrite=yes"} << 0 << "do_overwrite" << "true";
        QTest::newRow("boolean no") << QStringList{"in_menu=no"} << 0 << "in_menu" << "false";
        QTest::newRow("config key") << QStringList{"config.output_dir=file:///o/"} << 0 << "config.output_dir" << "file:///o/";
        QTest::newRow("empty removes") << QStringList{"name_pattern="} << 0 << "name_pattern" << "(none)";
        QTest::newRow("integer") << QStringList{"order=12"} << 0 << "order" << "12";
        QTest::newRow("malformed keeps all") << QStringList{"do_overwrite=yes", "nonsense"} << 2 << "do_overwrite" << "(none)";
        QTest::newRow("bad boolean") << QStringList{"do_compress=maybe"} << 2 << "do_compress" << "(none)";
        QTest::newRow("bad integer") << QStringList{"order=first", "tranform=Monochrome"} << 2 << "tranform" << "(none)";
        QTest::newRow("unknown attribute") << QStringList{"colour=red"} << 2 << "colour" << "(none)";
    }

    void settingAttributes()
    {
        QFETCH(QStringList, assignments);
        QFETCH(int, status);
        QFETCH(QString, keyPath);
        const Account account = fresh();
        const QString recid = account.add({"add", "F", "Target"});
        const Run set = account.run(QStringList{"destinations", "set", "Target"} + assignments);
        QCOMPARE(set.status, status);
        QCOMPARE(set.err.count('\n'), status ? 1 : 0);
        QTEST(account.values(recid, {keyPath}), "expected");
    }

    void listingMovingAndRemoving()
    {
        const Account account = fresh();
        QCOMPARE(account.listed(), (QStringList{"Open in Preview|1", "Copy to Desktop|2"}));
        QVERIFY(QFile::exists(account.storePath()));
        const Run text = account.run({"destinations", "list"});
        QVERIFY(text.status == 0 && text.out.contains("config.appid=com.apple.Preview"));
        account.add({"add", "F", "Third"});
        QCOMPARE(account.run({"destinations", "move", "Third", "--after", "copy_to_desktop"}).status, 0);
        QCOMPARE(account.listed(), (QStringList{"Open in Preview|1", "Copy to Desktop|2", "Third|3"}));
        QCOMPARE(account.run({"destinations", "move", "Third", "--before", "Open in Preview"}).status, 0);
        QCOMPARE(account.listed(), (QStringList{"Third|1", "Open in Preview|2", "Copy to Desktop|3"}));
        QCOMPARE(account.run({"destinations", "move", "Third", "--beside", "x"}).status, 2);
        QVERIFY(account.run({"destinations", "remove", "no-such-id"}).reported(1, "no-such-id"));
        QCOMPARE(account.run({"destinations", "remove", "Third"}).status, 0);
        QCOMPARE(account.listed(), (QStringList{"Open in Preview|2", "Copy to Desktop|3"}));
    }

    void exportAndImportBetweenAccounts()
    {
        const Account from = fresh(), to = fresh();
        const QString recid = from.add({"add", "F", "Shared"});
        const QString file = m_dir.filePath("shared.quirepad-settings");
        QCOMPARE(from.run({"destinations", "export", file}).status, 0);
        QCOMPARE(to.run({"destinations", "import", file}).status, 0);
        QCOMPARE(to.values(recid, {"name", "config", "in_menu"}), QStringLiteral("Shared|(none)|(none)"));
        const QString one = m_dir.filePath("one.quirepad-settings");
        QCOMPARE(from.run({"destinations", "export", one, "Shared"}).status, 0);
        QCOMPARE(readFile(one).count("<destination>"), 1);

        const QString foreign = m_dir.filePath("foreign.quirepad-settings");
        QVERIFY(writeFile(foreign, "{ \"not\": \"xml\" }"));
        QVERIFY(to.run({"destinations", "import", foreign}).reported(1, "not a Quirepad settings file"));
        QCOMPARE(from.run({"destinations", "export", foreign}).status, 1);
        QCOMPARE(readFile(foreign), QByteArray("{ \"not\": \"xml\" }"));
        QCOMPARE(to.run({"destinations", "import", m_dir.filePath("missing.quirepad-settings")}).status, 1);
    }

    void readingAndWritingSettings()
    {
        const Account account = fresh();
        const auto defaults = [&](const QStringList& arguments) { return account.run(QStringList{"defaults"} + arguments); };
        QCOMPARE(defaults({"read", "maxcount"}).out, QStringLiteral("5\n"));
        QVERIFY(defaults({"read"}).out.contains("maxcount = 5  (default)"));
        QCOMPARE(defaults({"write", "maxcount", "8"}).status, 0);
        QCOMPARE(defaults({"read", "maxcount"}).out, QStringLiteral("8\n"));
        QVERIFY(defaults({"read"}).out.contains("maxcount = 8\n"));
        QCOMPARE(defaults({"write", "maxcount", "eight"}).status, 2);
        QCOMPARE(defaults({"write", "disable_all_displaynotifications", "yes"}).status, 0);
        QCOMPARE(defaults({"read", "disable_all_displaynotifications"}).out, QStringLiteral("yes\n"));
        QCOMPARE(defaults({"delete", "maxcount"}).status, 0);
        QCOMPARE(defaults({"read", "maxcount"}).out, QStringLiteral("5\n"));
        QCOMPARE(defaults({"delete", "maxcount"}).status, 1);
        QCOMPARE(defaults({"read", "no_such_setting"}).status, 1);
        // Only what was written is in the file; defaults never are.
        const QByteArray conf = readFile(account.root() + "/config/Quirepad/Quirepad.conf");
        QVERIFY(conf.contains("disable_all_displaynotifications") && !conf.contains("show_menubar_icon"));
    }

    void deliveringThroughTheCommandLine()
    {
        const Account account = fresh();
        const QString out = account.root() + "/Delivered";
        const QString recid = account.add({"add", "F", "Inbox"});
        QCOMPARE(account.run({"destinations", "set", "Inbox", "name_pattern=%u on %h - %t.pdf",
                              "config.output_dir=" + QUrl::fromLocalFile(out + "/").toString(QUrl::FullyEncoded)}).status,
                 0);
        QVERIFY(writeFile(account.root() + "/user's own.pdf", "%PDF-1.4 mine"));
        const QStringList job{"user's own.pdf", "--title", "Q3: plan", "--user", "ann", "--host", "lab"};
        const Run delivered = account.run(QStringList{"deliver", "Inbox"} + job);
        QCOMPARE(delivered.status, 0);
        QCOMPARE(delivered.out.trimmed(), out + "/ann on lab - Q3; plan.pdf");
        QCOMPARE(readFile(delivered.out.trimmed()), QByteArray("%PDF-1.4 mine"));
        // The second delivery of the same name gets a free variant.
        QCOMPARE(account.run(QStringList{"deliver", recid} + job).out.trimmed(), out + "/ann on lab - Q3; plan 1.pdf");
        QVERIFY(account.run({"deliver", "Nowhere", "user's own.pdf"}).reportedOneLine(1));
        QCOMPARE(account.run({"deliver", "Inbox", "missing.pdf"}).status, 1);
        QCOMPARE(account.run({"deliver", "Inbox"}).status, 2);
        QCOMPARE(account.run({"deliver", "Inbox", "user's own.pdf", "--title"}).status, 2);
        // A reader destination with no reader connected keeps the job and says so.
        account.add({"add", "K", "Reader"});
        QVERIFY(account.run({"deliver", "Reader", "user's own.pdf"}).reported(1, "no Kindle is connected"));
    }

    void workflowSamples()
    {
        const Account account = fresh();
        const Run installed = account.run({"workflows", "install-samples"});
        QVERIFY(installed.status == 0 && installed.out.count("installed ") == 9);
        QVERIFY(account.run({"workflows", "install-samples"}).out.contains("already installed"));
        const Run list = account.run({"workflows", "list"});
        QCOMPARE(list.status, 0);
        for (const char* name : {"Save as Image", "Save as Text", "Save as WebPage", "Save as Flat PDF", "Monochrome",
                                 "CMYK color", "Grayscale color", "PDF X-3", "Flatten PDF"})
            QVERIFY2(list.out.contains(QStringLiteral("  ") + name + '\n'), name);
        QCOMPARE(account.run({"workflows", "remove"}).status, 2);
    }

    // Starting Quirepad again brings up the running one's preferences.
    void relaunchShowsPreferences_data()
    {
        QTest::addColumn<QStringList>("instanceArguments");
        QTest::addColumn<QString>("answer");
        QTest::newRow("windowed instance") << QStringList() << "the preferences are open";
        QTest::newRow("headless instance") << QStringList{"--headless"} << "has no windows";
    }

    void relaunchShowsPreferences()
    {
        QFETCH(QStringList, instanceArguments);
        QFETCH(QString, answer);
        const Account account(m_dir.filePath(QStringLiteral("relaunch-%1").arg(instanceArguments.size())));
        QVERIFY(account.run({"preferences"}).reported(1, "no Quirepad is running"));
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
        const Run command = account.run({"preferences"});
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
        instance.start(Account::executable(), {"--headless"});
        QVERIFY(instance.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(runtime + "/quirepad/quirepad.sock"), 20000);

        QVERIFY(client.run({"--headless"}).reported(1, "already running"));
        // Read back through the instance too; relative paths are resolved in the caller's folder.
        QCOMPARE(instanceAccount.values(client.add({"add", "F", "Forwarded"}), {"name"}), QStringLiteral("Forwarded"));
        QVERIFY(!QFile::exists(client.storePath()));
        QDir(client.root()).mkpath("Client Folder");
        QCOMPARE(instanceAccount.values(client.add({"add-path", "Client Folder"}), {"name"}),
                 QStringLiteral("Client Folder"));
        QVERIFY(client.run({"destinations", "remove", "nothing-here"}).reported(1, "nothing-here"));
        QVERIFY(writeFile(client.root() + "/job.pdf", {}));
        const Run files = client.run({"job.pdf"});
        QVERIFY(files.status == 0 && files.out.contains("1 file(s) taken into the queue"));

        ::kill(pid_t(instance.processId()), SIGTERM);
        QVERIFY(instance.waitForFinished(20000));
        QVERIFY(instance.exitStatus() == QProcess::NormalExit && instance.exitCode() == 0);
        QVERIFY(QFile::exists(instanceAccount.storePath()));
        // With the instance gone the client works on its own store.
        QCOMPARE(client.run({"destinations", "list"}).status, 0);
        QVERIFY(QFile::exists(client.storePath()));
    }
};

QUIREPAD_REGISTER_TEST(CommandLineTest);
#include "tst_commandline.moc"
