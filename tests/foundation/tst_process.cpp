#include "LogCapture.h"
#include "TestRegistry.h"

#include "TestFiles.h"
#include "foundation/ProcessRunner.h"
#include "foundation/Shutdown.h"
#include "foundation/pathvars.h"
#include "foundation/process.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace quirepad;
using namespace std::chrono_literals;

class ProcessTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (!QFile::exists("/bin/ksh"))
            QSKIP("/bin/ksh is missing: install the ksh package (scripts/install-deps.sh does)");
    }

    void shellOutput_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("expected"); // "<null>" for nil
        QTest::newRow("one trailing newline dropped") << "printf 'a\\n\\n'" << "a\n";
        QTest::newRow("no newline to drop") << "printf abc" << "abc";
        QTest::newRow("failure with output is nil") << "echo printed; exit 1" << "<null>";
        QTest::newRow("no output is nil") << "true" << "<null>";
        QTest::newRow("UTF-8 decoded") << "printf 'Zo\\303\\253'" << "Zoë";
        QTest::newRow("ksh syntax") << "typeset -u up=quire; print -r -- \"$up\"" << "QUIRE";
        QTest::newRow("stderr is not output") << "echo to-stderr >&2" << "<null>";
    }

    void shellOutput()
    {
        QFETCH(QString, command);
        QFETCH(QString, expected);
        const QString output = eval_shell(command);
        if (expected == QLatin1String("<null>"))
            QVERIFY2(output.isNull(), qPrintable(output));
        else
            QCOMPARE(output, expected);
    }

    void shellRunsInApplicationFolder()
    {
        QCOMPARE(eval_shell("pwd -P"), QDir(get_env("APP_PATH")).canonicalPath());
    }

    void existingFileRunsAsScript()
    {
        QTemporaryDir dir;
        const QString script = dir.filePath("script.ksh");
        QFile file(script);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("print -n from script $#\n"); // not executable: ksh reads it
        file.close();
        QCOMPARE(eval_shell(script), QStringLiteral("from script 0"));
    }

    void waitingKeepsTheEventLoopTurning()
    {
        bool timerFired = false;
        QTimer::singleShot(20, this, [&] { timerFired = true; });
        QCOMPARE(eval_shell("sleep 0.3; echo done"), QStringLiteral("done"));
        QVERIFY(timerFired);
    }

    void timeLimitKillsRunaways()
    {
        test::LogCapture log;
        const ProcessRunner::Result result =
            ProcessRunner("/bin/ksh", {"-c", "echo started; sleep 30"}).setTimeout(300ms).run();
        QVERIFY(result.timedOut);
        QVERIFY(!result.succeeded());
        QCOMPARE(result.standardOutput, QByteArray("started\n"));
        QCOMPARE(log.count("was stopped"), 1);
        QVERIFY(eval_shell("sleep 30; echo late", 200ms).isNull());
    }

    // Quitting stops the child and what it started within the grace time,
    // and starts nothing new.
    void shutdownStopsTheChildAndItsChildren()
    {
        QTemporaryDir dir;
        const QString pidFile = dir.filePath("grandchild");
        QTimer::singleShot(300, [] { Shutdown::request(); });
        QElapsedTimer clock;
        clock.start();
        const ProcessRunner::Result result =
            ProcessRunner("/bin/sh", {"-c", "sleep 60 & echo $! > '" + pidFile + "'; wait"}).setForwardInput(false).run();
        const qint64 took = clock.elapsed();
        const ProcessRunner::Result after = ProcessRunner("/bin/true").run();
        // Back to normal for the tests that follow: a main loop run resets
        // Qt's quit state.
        Shutdown::reset();
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        QCoreApplication::exec();

        QVERIFY(result.interrupted && !result.succeeded());
        QVERIFY2(took < 1800, qPrintable(QString::number(took)));
        QVERIFY(after.interrupted && !after.started);
        QFile file(pidFile);
        QVERIFY(file.open(QIODevice::ReadOnly));
        // Gone (or a zombie nobody reaps) once the signal has been delivered.
        const QString stat = "/proc/" + file.readAll().trimmed() + "/stat";
        QTRY_VERIFY_WITH_TIMEOUT(test::readFile(stat).isEmpty() || test::readFile(stat).contains(") Z "), 1000);
    }

    void commandsGetArgumentsAsTheyAre()
    {
        test::LogCapture log;
        QCOMPARE(exec_command("/bin/echo", {"a  b", "$HOME", "*"}), 0);
        QCOMPARE(log.count(">>>a  b $HOME *\n"), 1);
        QCOMPARE(exec_command("/bin/sh", {"-c", "echo out; exit 3"}), 3);
        QCOMPARE(log.count(">>>out\n"), 1);
        QCOMPARE(exec_command("/bin/sh", {"-c", "exit 0"}), 0);
        QCOMPARE(log.count(">>>"), 2); // nothing printed, nothing logged
        QCOMPARE(exec_command("/nonexistent/program", {}), -1);
    }

    void capturedErrorOutput()
    {
        const ProcessRunner::Result result = ProcessRunner("/bin/sh", {"-c", "echo bad input >&2; exit 4"})
                                                 .setErrorOutput(ProcessRunner::ErrorOutput::Captured)
                                                 .setForwardInput(false)
                                                 .run();
        QVERIFY(result.started);
        QCOMPARE(result.exitCode, 4);
        QCOMPARE(result.standardError, QByteArray("bad input\n"));
        QVERIFY(!result.succeeded());
    }
};

QUIREPAD_REGISTER_TEST(ProcessTest);
#include "tst_process.moc"
