#include "TestFiles.h"
#include "TestRegistry.h"

#include "app/AllCommands.h"
#include "app/AppSession.h"
#include "app/CommandLine.h"
#include "app/RequestRunner.h"
#include "app/SingleInstance.h"
#include "foundation/ScriptedDialogService.h"
#include "foundation/UserDefaults.h"
#include "pipeline/jobinfo.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <memory>

#include <unistd.h>

using namespace quirepad;
using namespace quirepad::test;

// Commands run by a live instance in this process, with the same session,
// runner and dialog service the program gives them.
class CommandsTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    QString m_spoolJob; // a job that scan or clear-queue would take away
    QString m_installerRecord; // written by the stand-in installer when it runs
    ScriptedDialogService* m_dialogs = nullptr; // the desktop's dialogs
    std::unique_ptr<AppSession> m_session;
    std::unique_ptr<CommandLine> m_commandLine;
    std::unique_ptr<RequestRunner> m_runner;
    std::unique_ptr<SingleInstance> m_instance;

    QString path(const QString& name) const { return m_root.filePath(name); }

    // Forwarded from another thread, as a second quirepad would, while this
    // thread's event loop serves the instance.
    ForwardResult forwarded(InstanceRequest::Kind kind, const QStringList& arguments)
    {
        ForwardResult result;
        const InstanceRequest request { kind, arguments, m_root.path() };
        std::unique_ptr<QThread> client(
            QThread::create([&] { result = SingleInstance::forward(request, m_instance->runtimeDir()); }));
        client->start();
        while (!client->isFinished())
            QTest::qWait(5);
        client->wait();
        return result;
    }
    InstanceReply command(const QStringList& arguments)
    {
        return forwarded(InstanceRequest::Kind::Command, arguments).reply;
    }

    void writeInstaller(int exitCode)
    {
        QVERIFY(writeFile(path("driver/install-driver.sh"),
            QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$@\" > '%1'\necho 'installer: done'\n"
                           "echo 'installer: a warning' >&2\nexit %2\n")
                .arg(m_installerRecord)
                .arg(exitCode)
                .toUtf8(),
            kExecutable));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        for (const char* name : { "HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME" })
            qputenv(name, path(QString::fromLatin1(name)).toUtf8());
        qputenv("QUIREPAD_SHARED_DIR", path("shared").toUtf8());
        QVERIFY(QDir().mkpath(SpoolLocations::spoolDirectory()));
        QVERIFY(QDir().mkpath(path("driver")));
        m_spoolJob = SpoolLocations::spoolDirectory() + "nobody-D3F2UG-kept.pdf";
        m_installerRecord = path("installer-ran");
        UserDefaults::setStandard(std::make_unique<UserDefaults>(path("settings.conf")));
        auto dialogs = std::make_unique<ScriptedDialogService>();
        m_dialogs = dialogs.get();
        DialogService::setCurrent(std::move(dialogs));

        m_session = std::make_unique<AppSession>();
        DriverInstaller::Paths driver;
        driver.shippedDriverFolder = path("driver");
        m_session->setDriverPaths(driver);
        m_session->setInstance(true);
        m_commandLine = std::make_unique<CommandLine>();
        addAllCommands(*m_commandLine, *m_session);
        m_runner = std::make_unique<RequestRunner>(*m_commandLine, *m_session);
        m_instance = std::make_unique<SingleInstance>(path("run"));
        m_instance->setHandler([this](const InstanceRequest& request) { return m_runner->run(request); });
        QVERIFY2(m_instance->tryToRun(), qPrintable(m_instance->errorString()));
    }

    void init()
    {
        m_dialogs->clearInteractions();
        QFile::remove(m_installerRecord);
        QVERIFY(writeFile(m_spoolJob, "%PDF-1.4 kept"));
    }

    void cleanupTestCase()
    {
        m_instance.reset();
        m_runner.reset();
        m_commandLine.reset();
        m_session.reset();
        DialogService::setCurrent(nullptr);
        UserDefaults::setStandard(nullptr);
        qunsetenv("QUIREPAD_SHARED_DIR");
    }

    // A job finishing after a forwarded scan has returned is none of that
    // scan's business (under ASan its count would be a dead stack slot).
    void jobsAfterAForwardedScan()
    {
        QVERIFY(QFile::remove(m_spoolJob));
        const ForwardResult scanned = forwarded(InstanceRequest::Kind::Command, { "scan" });
        QVERIFY(scanned.answered());
        QCOMPARE(scanned.reply.out, QStringLiteral("0 job(s) delivered\n"));
        const QString later = path("later.pdf");
        QVERIFY(writeFile(later, "%PDF-1.4 later"));
        QVERIFY(m_session->delegate().processPDFFiles({ later }));
        QCOMPARE(command({ "scan" }).out, QStringLiteral("0 job(s) delivered\n"));
    }

    void everyCommandAnswersHelp_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("option");
        for (const CommandLine::Command& c : m_commandLine->commands())
            for (const char* option : { "--help", "-h" })
                QTest::addRow("%s %s", qPrintable(c.name), option) << c.name << QString::fromLatin1(option);
    }

    void everyCommandAnswersHelp()
    {
        QFETCH(QString, name);
        QFETCH(QString, option);
        const InstanceReply reply = command({ name, option });
        QCOMPARE(reply.status, 0);
        QVERIFY2(reply.out.startsWith("Usage: quirepad " + name), qPrintable(reply.out));
        QCOMPARE(reply.err, QString());
        QVERIFY(!QFile::exists(m_installerRecord));
        QVERIFY(QFile::exists(m_spoolJob));
    }

    // "plugins create" and "filters create" copy a sample under the given
    // name and print its path; a name taken, an unusable name or an
    // unknown sample makes nothing.
    void creatingFromASample_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("created"); // relative to the plugin folder; empty: nothing
        QTest::addColumn<QString>("said");    // a part of the error output
        QTest::newRow("plugin") << QStringList { "plugins", "create", "SaveAsText", "My Text" } << 0
                                << "My Text.workflow" << "";
        QTest::newRow("filter by its title") << QStringList { "filters", "create", "Flatten PDF", "Flat" } << 0
                                             << "Filters/Flat.workflow" << "";
        QTest::newRow("slash") << QStringList { "plugins", "create", "SaveAsText", "../Out" } << 2 << ""
                               << "must not contain \"/\"";
        QTest::newRow("dot-dot") << QStringList { "filters", "create", "Monochrome", ".." } << 2 << ""
                                 << "cannot name a workflow";
        QTest::newRow("unknown sample") << QStringList { "plugins", "create", "Nothing", "Mine" } << 2 << ""
                                        << "SaveAsText";
        QTest::newRow("missing name") << QStringList { "plugins", "create", "SaveAsText" } << 2 << ""
                                      << "usage: plugins create SAMPLE NAME";
    }

    void creatingFromASample()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        QFETCH(QString, created);
        QFETCH(QString, said);
        const QString plugins = path("XDG_DATA_HOME/Quirepad/PlugIns");
        QVERIFY(QDir(plugins).removeRecursively());
        const InstanceReply reply = command(arguments);
        QCOMPARE(reply.status, status);
        QVERIFY2(reply.err.contains(said), qPrintable(reply.err));
        if (created.isEmpty()) {
            QCOMPARE(reply.out, QString());
            QVERIFY(!QFileInfo::exists(path("XDG_DATA_HOME/Quirepad/Out.workflow")));
            QCOMPARE(command({ "plugins", "list" }).out + command({ "filters", "list" }).out, QString());
            return;
        }
        const QString made = plugins + '/' + created;
        QCOMPARE(reply.out, made + '\n');
        QVERIFY(QFileInfo(made).isExecutable());
        QVERIFY(readFile(made).startsWith("#!"));
        // Under a name now taken: kept, and said so.
        QVERIFY(writeFile(made, "#!/bin/sh\n# mine\n", kExecutable));
        const InstanceReply again = command(arguments);
        QCOMPARE(again.status, 1);
        QVERIFY2(again.err.contains("is there already and is kept"), qPrintable(again.err));
        QCOMPARE(readFile(made), QByteArray("#!/bin/sh\n# mine\n"));
        QVERIFY(command({ arguments.first(), "list" }).out.startsWith(QFileInfo(created).completeBaseName() + "  "));
    }

    void installingTheDriver_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("installerExit");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("passed"); // to the installer; "-" when it must not run
        QTest::addColumn<QString>("said");
        const QString shared = "--shared-dir\n" + path("shared") + '\n';
        QTest::newRow("installed") << QStringList() << 0 << 0 << shared << "the print driver is installed";
        QTest::newRow("options passed on")
            << QStringList { "--share", "--no-queue" } << 0 << 0 << shared + "--share\n--no-queue\n"
            << "installer: done";
        QTest::newRow("installer fails") << QStringList() << 3 << 1 << shared << "ended with status 3";
        QTest::newRow("unknown option") << QStringList { "--everywhere" } << 0 << 2 << "-"
                                        << "--everywhere";
    }

    void installingTheDriver()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, installerExit);
        QFETCH(QString, passed);
        QFETCH(QString, said);
        if (::geteuid() != 0)
            QSKIP("the installer is run directly only by root (pkexec otherwise)");
        writeInstaller(installerExit);
        const InstanceReply reply = command(QStringList { "install-driver" } + arguments);
        QTEST(reply.status, "status");
        QVERIFY2((reply.out + reply.err).contains(said), qPrintable(reply.out + reply.err));
        QCOMPARE(QString::fromUtf8(readFile(m_installerRecord)), passed == "-" ? QString() : passed);
        if (passed != "-")
            QVERIFY(reply.out.contains("installer: done") && reply.err.contains("installer: a warning"));
    }

    // Work a command line starts answers there, never in a dialog.
    void failuresGoToTheCommandLine_data()
    {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("deliver") << int(InstanceRequest::Kind::Command)
                                 << QStringList { "deliver", "Blocked", "doc.pdf" };
        QTest::newRow("open a file") << int(InstanceRequest::Kind::Open) << QStringList { path("doc.pdf") };
    }

    void failuresGoToTheCommandLine()
    {
        QFETCH(int, kind);
        QFETCH(QStringList, arguments);
        // A destination folder under a regular file: not even root writes there.
        QVERIFY(writeFile(path("plain-file"), "x"));
        const QString folder = path("plain-file/inbox/");
        if (command({ "destinations", "list" }).out.indexOf("Blocked") < 0)
            QCOMPARE(command({ "destinations", "add", "F", "Blocked" }).status, 0);
        QCOMPARE(
            command({ "destinations", "set", "Blocked", "config.output_dir=" + QUrl::fromLocalFile(folder).toString() })
                .status,
            0);
        QVERIFY(writeFile(path("doc.pdf"), "%PDF-1.4\n%%EOF\n"));
        QVERIFY(writeFile(path("doc.pdf.info"), "NAME=Blocked\n"));

        const ForwardResult result = forwarded(InstanceRequest::Kind(kind), arguments);
        QVERIFY(result.answered());
        QCOMPARE(result.reply.status, 1);
        QVERIFY2(result.reply.err.contains(path("plain-file/inbox")), qPrintable(result.reply.err));
        QCOMPARE(m_dialogs->interactions().size(), 0);
    }
};

QUIREPAD_REGISTER_TEST(CommandsTest);
#include "tst_commands.moc"
