#include "TestRegistry.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

namespace {

struct Run {
    int status = -1;
    QString out;
    QString err;
};

// One user account for the executable: its own home, data, config and
// runtime folders.
class Account
{
public:
    explicit Account(const QString& root, const QString& runtime = QString())
        : m_root(root)
    {
        for (const char* sub : {"home", "data", "config", "cache"})
            QDir().mkpath(root + '/' + sub);
        m_runtime = runtime.isEmpty() ? root + "/run" : runtime;
        QDir().mkpath(m_runtime);
        QFile::setPermissions(m_runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("HOME", m_root + "/home");
        env.insert("XDG_DATA_HOME", m_root + "/data");
        env.insert("XDG_CONFIG_HOME", m_root + "/config");
        env.insert("XDG_CACHE_HOME", m_root + "/cache");
        env.insert("XDG_RUNTIME_DIR", m_runtime);
        env.insert("QT_QPA_PLATFORM", "offscreen");
        return env;
    }

    Run run(const QStringList& arguments, const QString& workingDirectory = QString()) const
    {
        QProcess process;
        process.setProcessEnvironment(environment());
        process.setWorkingDirectory(workingDirectory.isEmpty() ? m_root : workingDirectory);
        process.start(executable(), arguments);
        Run result;
        if (!process.waitForFinished(60000))
            return result;
        result.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        result.out = QString::fromUtf8(process.readAllStandardOutput());
        result.err = QString::fromUtf8(process.readAllStandardError());
        return result;
    }

    QJsonArray destinations() const
    {
        const Run r = run({"destinations", "list", "--json"});
        return QJsonDocument::fromJson(r.out.toUtf8()).array();
    }

    QJsonObject destination(const QString& recid) const
    {
        for (const QJsonValue& value : destinations())
            if (value.toObject().value("recid").toString() == recid)
                return value.toObject();
        return {};
    }

    QString storePath() const { return m_root + "/data/com.halvern.Quirepad/Quirepad.internalbd"; }
    QString root() const { return m_root; }

    static QString executable() { return QCoreApplication::applicationDirPath() + "/quirepad"; }

private:
    QString m_root;
    QString m_runtime;
};

QStringList namesInOrder(const QJsonArray& list)
{
    QStringList names;
    for (const QJsonValue& value : list)
        names << value.toObject().value("name").toString() + ':'
                     + QString::number(value.toObject().value("order").toInteger());
    return names;
}

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
        QCOMPARE(version.status, 0);
        QVERIFY(version.out.startsWith("quirepad "));
        const Run help = account.run({"--help"});
        QCOMPARE(help.status, 0);
        for (const char* word : {"destinations", "defaults", "add-path", "export FILE [ID]", "--headless"})
            QVERIFY2(help.out.contains(word), word);
        const Run unknown = account.run({"frobnicate"});
        QCOMPARE(unknown.status, 2);
        QCOMPARE(unknown.err.count('\n'), 1);
    }

    void freshAccountListsTheBuiltins()
    {
        const Account account = fresh();
        QCOMPARE(namesInOrder(account.destinations()), (QStringList{"Open in Preview:1", "Copy to Desktop:2"}));
        const Run text = account.run({"destinations", "list"});
        QCOMPARE(text.status, 0);
        QVERIFY(text.out.contains("config.appid=com.apple.Preview"));
        QVERIFY(QFile::exists(account.storePath()));
    }

    void addingEveryKind()
    {
        const Account account = fresh();
        const Run folder = account.run({"destinations", "add", "F", "  Scans  "});
        QCOMPARE(folder.status, 0);
        const QString recid = folder.out.trimmed();
        QCOMPARE(recid.size(), 36);
        const QJsonObject scans = account.destination(recid);
        QCOMPARE(scans.value("name").toString(), QStringLiteral("Scans"));
        QCOMPARE(scans.value("name_pattern").toString(), QStringLiteral("Output-%t.pdf"));
        QCOMPARE(scans.value("order").toInteger(), 0);
        QCOMPARE(scans.value("config").toObject().value("output_dir").toString(),
                 QUrl::fromLocalFile(account.root() + "/home/Desktop/").toString(QUrl::FullyEncoded));

        const Run odd = account.run({"destinations", "add", "Q", "Odd one"});
        QCOMPARE(odd.status, 0);
        QVERIFY(odd.err.contains("warning"));
        QCOMPARE(account.destination(odd.out.trimmed()).value("type").toString(), QStringLiteral("Q"));
        QCOMPARE(account.run({"destinations", "add", "FF", "x"}).status, 2);
        QCOMPARE(account.run({"destinations", "add", "F", "   "}).status, 1);

        const Run app = account.run({"destinations", "add-app", "Evince", "org.gnome.Evince.desktop"});
        QCOMPARE(account.destination(app.out.trimmed()).value("config").toObject().value("appid").toString(),
                 QStringLiteral("org.gnome.Evince.desktop"));
        const Run flow = account.run({"destinations", "add-workflow", "Save as Text"});
        QCOMPARE(account.destination(flow.out.trimmed()).value("type").toString(), QStringLiteral("X"));

        QDir(account.root()).mkpath("Incoming Scans");
        const Run path = account.run({"destinations", "add-path", "Incoming Scans"}); // relative to the caller
        QCOMPARE(path.status, 0);
        QCOMPARE(account.destination(path.out.trimmed()).value("name").toString(), QStringLiteral("Incoming Scans"));
        QFile pdf(account.root() + "/paper.pdf");
        QVERIFY(pdf.open(QIODevice::WriteOnly));
        pdf.close();
        const Run refused = account.run({"destinations", "add-path", "paper.pdf"});
        QCOMPARE(refused.status, 1);
        QCOMPARE(refused.err.count('\n'), 1);
        QCOMPARE(account.destinations().size(), 7);
    }

    void settingAttributes_data()
    {
        QTest::addColumn<QStringList>("assignments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("expected"); // JSON text of the value afterwards
        QTest::newRow("boolean yes") << QStringList{"do_overwrite=yes"} << 0 << "do_overwrite" << "true";
        QTest::newRow("boolean no") << QStringList{"in_menu=no"} << 0 << "in_menu" << "false";
        QTest::newRow("config key") << QStringList{"config.output_dir=file:///srv/out/"} << 0 << "config"
                                    << "{\"output_dir\":\"file:///srv/out/\"}";
        QTest::newRow("empty removes") << QStringList{"name_pattern="} << 0 << "name_pattern" << "null";
        QTest::newRow("integer") << QStringList{"order=12"} << 0 << "order" << "12";
        QTest::newRow("malformed keeps everything")
            << QStringList{"do_overwrite=yes", "nonsense"} << 2 << "do_overwrite" << "null";
        QTest::newRow("bad boolean") << QStringList{"do_compress=maybe"} << 2 << "do_compress" << "null";
        QTest::newRow("bad integer") << QStringList{"order=first", "tranform=Monochrome"} << 2 << "tranform" << "null";
        QTest::newRow("unknown attribute") << QStringList{"colour=red"} << 2 << "colour" << "null";
    }

    void settingAttributes()
    {
        QFETCH(QStringList, assignments);
        QFETCH(int, status);
        QFETCH(QString, key);
        QFETCH(QString, expected);
        const Account account = fresh();
        const Run added = account.run({"destinations", "add", "F", "Target"});
        const Run set = account.run(QStringList{"destinations", "set", "Target"} + assignments);
        QCOMPARE(set.status, status);
        if (status != 0)
            QCOMPARE(set.err.count('\n'), 1);
        const QJsonValue value = account.destination(added.out.trimmed()).value(key);
        const QString text = value.isObject() ? QString::fromUtf8(QJsonDocument(value.toObject()).toJson(QJsonDocument::Compact))
                             : value.isUndefined() ? QStringLiteral("null")
                                                   : QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact)).mid(1).chopped(1);
        QCOMPARE(text, expected);
    }

    void removingAndMoving()
    {
        const Account account = fresh();
        account.run({"destinations", "add", "F", "Third"});
        QCOMPARE(account.run({"destinations", "move", "Third", "--after", "copy_to_desktop"}).status, 0);
        QCOMPARE(namesInOrder(account.destinations()),
                 (QStringList{"Open in Preview:1", "Copy to Desktop:2", "Third:3"}));
        QCOMPARE(account.run({"destinations", "move", "Third", "--before", "Open in Preview"}).status, 0);
        QCOMPARE(namesInOrder(account.destinations()),
                 (QStringList{"Third:1", "Open in Preview:2", "Copy to Desktop:3"}));
        QCOMPARE(account.run({"destinations", "move", "Third", "--beside", "x"}).status, 2);

        const Run missing = account.run({"destinations", "remove", "no-such-id"});
        QCOMPARE(missing.status, 1);
        QVERIFY(missing.err.contains("no-such-id"));
        QCOMPARE(account.run({"destinations", "remove", "Third"}).status, 0);
        QCOMPARE(namesInOrder(account.destinations()), (QStringList{"Open in Preview:2", "Copy to Desktop:3"}));
    }

    void exportAndImportBetweenAccounts()
    {
        const Account from = fresh();
        const Account to = fresh();
        const QString recid = from.run({"destinations", "add", "F", "Shared"}).out.trimmed();
        const QString file = m_dir.filePath("shared.quirepad-settings");
        QCOMPARE(from.run({"destinations", "export", file}).status, 0);
        QCOMPARE(to.run({"destinations", "import", file}).status, 0);
        const QJsonObject imported = to.destination(recid);
        QCOMPARE(imported.value("name").toString(), QStringLiteral("Shared"));
        QVERIFY(!imported.contains("config"));
        QVERIFY(!imported.contains("in_menu"));

        const QString one = m_dir.filePath("one.quirepad-settings");
        QCOMPARE(from.run({"destinations", "export", one, "Shared"}).status, 0);
        QFile oneFile(one);
        QVERIFY(oneFile.open(QIODevice::ReadOnly));
        QCOMPARE(oneFile.readAll().count("<destination>"), 1);

        const QString foreign = m_dir.filePath("foreign.quirepad-settings");
        QFile foreignFile(foreign);
        QVERIFY(foreignFile.open(QIODevice::WriteOnly));
        foreignFile.write("{ \"not\": \"xml\" }");
        foreignFile.close();
        const Run refusedImport = to.run({"destinations", "import", foreign});
        QCOMPARE(refusedImport.status, 1);
        QVERIFY(refusedImport.err.contains("not a Quirepad settings file"));
        QCOMPARE(from.run({"destinations", "export", foreign}).status, 1);
        QVERIFY(foreignFile.open(QIODevice::ReadOnly));
        QCOMPARE(foreignFile.readAll(), QByteArray("{ \"not\": \"xml\" }"));
        QCOMPARE(to.run({"destinations", "import", m_dir.filePath("missing.quirepad-settings")}).status, 1);
    }

    void readingAndWritingSettings()
    {
        const Account account = fresh();
        QCOMPARE(account.run({"defaults", "read", "maxcount"}).out, QStringLiteral("5\n"));
        QVERIFY(account.run({"defaults", "read"}).out.contains("maxcount = 5  (default)"));
        QCOMPARE(account.run({"defaults", "write", "maxcount", "8"}).status, 0);
        QCOMPARE(account.run({"defaults", "read", "maxcount"}).out, QStringLiteral("8\n"));
        QVERIFY(account.run({"defaults", "read"}).out.contains("maxcount = 8\n"));
        QCOMPARE(account.run({"defaults", "write", "maxcount", "eight"}).status, 2);
        QCOMPARE(account.run({"defaults", "write", "disable_all_displaynotifications", "yes"}).status, 0);
        QCOMPARE(account.run({"defaults", "read", "disable_all_displaynotifications"}).out, QStringLiteral("yes\n"));
        QCOMPARE(account.run({"defaults", "delete", "maxcount"}).status, 0);
        QCOMPARE(account.run({"defaults", "read", "maxcount"}).out, QStringLiteral("5\n"));
        QCOMPARE(account.run({"defaults", "delete", "maxcount"}).status, 1);
        QCOMPARE(account.run({"defaults", "read", "no_such_setting"}).status, 1);
        QFile conf(account.root() + "/config/Quirepad/Quirepad.conf");
        QVERIFY(conf.open(QIODevice::ReadOnly));
        QVERIFY(!conf.readAll().contains("show_menubar_icon")); // defaults are never written
    }

    void deliveringThroughTheCommandLine()
    {
        const Account account = fresh();
        const QString out = account.root() + "/Delivered";
        const QString recid = account.run({"destinations", "add", "F", "Inbox"}).out.trimmed();
        QCOMPARE(account.run({"destinations", "set", "Inbox", "name_pattern=%u on %h - %t.pdf",
                              "config.output_dir=" + QUrl::fromLocalFile(out + "/").toString(QUrl::FullyEncoded)})
                     .status,
                 0);
        QFile pdf(account.root() + "/user's own.pdf");
        QVERIFY(pdf.open(QIODevice::WriteOnly));
        pdf.write("%PDF-1.4 mine");
        pdf.close();

        const Run delivered = account.run({"deliver", "Inbox", "user's own.pdf", "--title", "Q3: plan", "--user", "ann",
                                           "--host", "lab"});
        QCOMPARE(delivered.status, 0);
        QCOMPARE(delivered.out.trimmed(), out + "/ann on lab - Q3; plan.pdf");
        QFile result(delivered.out.trimmed());
        QVERIFY(result.open(QIODevice::ReadOnly));
        QCOMPARE(result.readAll(), QByteArray("%PDF-1.4 mine"));
        // The second delivery of the same name gets a free variant.
        QCOMPARE(account.run({"deliver", recid, "user's own.pdf", "--title", "Q3: plan", "--user", "ann", "--host", "lab"})
                     .out.trimmed(),
                 out + "/ann on lab - Q3; plan 1.pdf");

        const Run unknown = account.run({"deliver", "Nowhere", "user's own.pdf"});
        QCOMPARE(unknown.status, 1);
        QCOMPARE(unknown.err.count('\n'), 1);
        QCOMPARE(account.run({"deliver", "Inbox", "missing.pdf"}).status, 1);
        QCOMPARE(account.run({"deliver", "Inbox"}).status, 2);
        QCOMPARE(account.run({"deliver", "Inbox", "user's own.pdf", "--title"}).status, 2);

        // A destination type this version cannot deliver keeps the job and says so.
        account.run({"destinations", "add", "K", "Reader"});
        const Run reader = account.run({"deliver", "Reader", "user's own.pdf"});
        QCOMPARE(reader.status, 1);
        QVERIFY(reader.err.contains("type K"));
    }

    void workflowSamples()
    {
        const Account account = fresh();
        const Run installed = account.run({"workflows", "install-samples"});
        QCOMPARE(installed.status, 0);
        QCOMPARE(installed.out.count("installed "), 9);
        QVERIFY(account.run({"workflows", "install-samples"}).out.contains("already installed"));
        const Run list = account.run({"workflows", "list"});
        QCOMPARE(list.status, 0);
        for (const char* name : {"Save as Image", "Save as Text", "Save as WebPage", "Save as Flat PDF", "Monochrome",
                                 "CMYK color", "Grayscale color", "PDF X-3", "Flatten PDF"})
            QVERIFY2(list.out.contains(QStringLiteral("  ") + name + '\n'), name);
        QCOMPARE(account.run({"workflows", "remove"}).status, 2);
    }

    void commandsGoToTheRunningInstance()
    {
        // Two accounts share one runtime folder: whatever reaches the
        // instance's store was forwarded, since the client's own store
        // would be elsewhere.
        const QString runtime = m_dir.filePath("shared-run");
        const Account instanceAccount(m_dir.filePath("instance"), runtime);
        const Account client(m_dir.filePath("client"), runtime);

        QProcess instance;
        instance.setProcessEnvironment(instanceAccount.environment());
        instance.setProcessChannelMode(QProcess::MergedChannels);
        instance.start(Account::executable(), {"--headless"});
        QVERIFY(instance.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(runtime + "/quirepad/quirepad.sock"), 20000);

        const Run second = client.run({"--headless"});
        QCOMPARE(second.status, 1);
        QVERIFY(second.err.contains("already running"));

        const Run added = client.run({"destinations", "add", "F", "Forwarded"});
        QCOMPARE(added.status, 0);
        QVERIFY(!QFile::exists(client.storePath()));
        QCOMPARE(instanceAccount.destination(added.out.trimmed()).value("name").toString(),
                 QStringLiteral("Forwarded")); // read back through the instance too

        // Relative paths are resolved in the caller's folder.
        QDir(client.root()).mkpath("Client Folder");
        const Run path = client.run({"destinations", "add-path", "Client Folder"});
        QCOMPARE(path.status, 0);
        QCOMPARE(instanceAccount.destination(path.out.trimmed()).value("name").toString(),
                 QStringLiteral("Client Folder"));

        const Run failed = client.run({"destinations", "remove", "nothing-here"});
        QCOMPARE(failed.status, 1);
        QVERIFY(failed.err.contains("nothing-here"));

        QFile pdf(client.root() + "/job.pdf");
        QVERIFY(pdf.open(QIODevice::WriteOnly));
        pdf.close();
        const Run files = client.run({"job.pdf"});
        QCOMPARE(files.status, 0);
        QVERIFY(files.out.contains("1 file(s) taken into the queue"));

        ::kill(pid_t(instance.processId()), SIGTERM);
        QVERIFY(instance.waitForFinished(20000));
        QCOMPARE(instance.exitStatus(), QProcess::NormalExit);
        QCOMPARE(instance.exitCode(), 0);
        QVERIFY(QFile::exists(instanceAccount.storePath()));
        // With the instance gone the client works on its own store.
        QCOMPARE(client.run({"destinations", "list"}).status, 0);
        QVERIFY(QFile::exists(client.storePath()));
    }
};

QUIREPAD_REGISTER_TEST(CommandLineTest);
#include "tst_commandline.moc"
