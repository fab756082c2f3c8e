#include "TestRegistry.h"

#include "CaptureTestSupport.h"
#include "TestWebServer.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <memory>

#include <unistd.h>

using namespace quirepad::test;

namespace {

QString workerPath()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/quirepad-webcapture");
}

// Runs the worker while this process's event loop turns (it serves the
// pages); stdout and stderr as lines.
struct Run
{
    int exitCode = -1;
    bool finished = false;
    QStringList out;
    QStringList err;
    qint64 ms = 0;
};

Run runWorker(const QStringList& arguments, const QByteArray& input = {}, const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment())
{
    Run run;
    QProcess process;
    process.setProcessEnvironment(env);
    QElapsedTimer timer;
    timer.start();
    process.start(workerPath(), arguments);
    if (!process.waitForStarted(10000))
        return run;
    process.write(input);
    process.closeWriteChannel();
    run.finished = QTest::qWaitFor([&] { return process.state() == QProcess::NotRunning; }, 90000);
    run.ms = timer.elapsed();
    if (!run.finished) {
        process.kill();
        process.waitForFinished(5000);
        return run;
    }
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    run.err = QString::fromUtf8(process.readAllStandardError()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    return run;
}

} // namespace

class WebCaptureWorkerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestWebServer> m_server;

private slots:
    void initTestCase()
    {
        useTestCacheHome();
        QVERIFY(QFileInfo(workerPath()).isExecutable());
        m_server = std::make_unique<TestWebServer>();
        QVERIFY(m_server->listening());
        m_server->page("/one.html", "<html><head><title>First Page</title></head><body><p>Page one text</p>"
                                    "<p id='x'>Hide me</p></body></html>");
        m_server->page("/two.html", "<html><head><title>Second/Page</title></head><body><p>Page two text</p></body></html>");
    }

    void capturesFromTheCommandLine()
    {
        const Run run = runWorker({m_server->url(QStringLiteral("/one.html")), QStringLiteral("--css"),
                                   QStringLiteral("#x{display:none}"), QStringLiteral("--background")});
        QVERIFY(run.finished);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out.size(), 1);
        const QString pdf = run.out.first();
        QCOMPARE(QFileInfo(pdf).fileName(), QStringLiteral("First Page.pdf"));
        QVERIFY(pdf.startsWith(useTestCacheHome() + QStringLiteral("/Quirepad/opened/")));
        const QString text = pdfText(pdf);
        QVERIFY2(text.contains(QLatin1String("Page one text")) && !text.contains(QLatin1String("Hide me")), qPrintable(text));
    }

    void commandLineFailureIsOneLine()
    {
        const Run run = runWorker({m_server->url(QStringLiteral("/nothing-here.html"))});
        QVERIFY(run.finished);
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.isEmpty());
        QVERIFY(!run.err.isEmpty());
        QVERIFY2(run.err.last().startsWith(QLatin1String("quirepad-webcapture: ")) && run.err.last().contains(QLatin1String("404")),
                 qPrintable(run.err.join('\n')));
        QVERIFY2(run.ms < 15000, qPrintable(QString::number(run.ms)));
    }

    void badArguments()
    {
        QCOMPARE(runWorker({}).exitCode, 1);
        QCOMPARE(runWorker({QStringLiteral("--wait"), QStringLiteral("soon"), QStringLiteral("http://127.0.0.1/")}).exitCode, 1);
        QCOMPARE(runWorker({QStringLiteral("--printinfo"), QStringLiteral("/nonexistent/file"), QStringLiteral("http://127.0.0.1/")}).exitCode, 1);
    }

    void servesRequestLines()
    {
        const QByteArray input =
            "{\"id\":1,\"url\":\"" + m_server->url(QStringLiteral("/one.html")).toUtf8() + "\",\"parameters\":{\"css_code\":\"#x{display:none}\"}}\n"
            "this is not json\n"
            "\n"
            "{\"id\":3,\"url\":\"" + m_server->url(QStringLiteral("/missing.html")).toUtf8() + "\"}\n"
            "{\"id\":4,\"url\":\"" + m_server->url(QStringLiteral("/two.html")).toUtf8() + "\",\"parameters\":{\"wait_time\":1}}\n"
            "{\"id\":5,\"url\":\"" + m_server->url(QStringLiteral("/two.html")).toUtf8() + "\",\"parameters\":[1]}\n";
        const Run run = runWorker({QStringLiteral("--serve")}, input);
        QVERIFY(run.finished);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out.size(), 5);
        QList<QJsonObject> answers;
        for (const QString& line : run.out) {
            const QJsonDocument doc = QJsonDocument::fromJson(line.toUtf8());
            QVERIFY2(doc.isObject(), qPrintable(line));
            answers << doc.object();
        }
        QCOMPARE(answers[0].value("id").toInt(), 1);
        QCOMPARE(answers[0].value("title").toString(), QStringLiteral("First Page"));
        QVERIFY(!pdfText(answers[0].value("path").toString()).contains(QLatin1String("Hide me")));
        QVERIFY(answers[1].value("id").isNull());
        QCOMPARE(answers[1].value("path").toString(), QString());
        QVERIFY(!answers[1].value("error").toString().isEmpty());
        QCOMPARE(answers[2].value("id").toInt(), 3);
        QCOMPARE(answers[2].value("path").toString(), QString());
        QVERIFY(answers[2].value("error").toString().contains(QLatin1String("404")));
        QCOMPARE(answers[3].value("id").toInt(), 4);
        QCOMPARE(answers[3].value("title").toString(), QStringLiteral("Second/Page"));
        QCOMPARE(QFileInfo(answers[3].value("path").toString()).fileName(), QStringLiteral("SecondPage.pdf"));
        QVERIFY(pdfText(answers[3].value("path").toString()).contains(QLatin1String("Page two text")));
        QCOMPARE(answers[4].value("id").toInt(), 5);
        QVERIFY(!answers[4].value("error").toString().isEmpty());
    }

    void emptyInputEndsTheServer()
    {
        const Run run = runWorker({QStringLiteral("--serve")});
        QVERIFY(run.finished);
        QCOMPARE(run.exitCode, 0);
        QVERIFY(run.out.isEmpty());
    }

    void rootNeedsTheSandboxTurnedOffOnPurpose()
    {
        if (::geteuid() != 0)
            QSKIP("only root is refused; a normal user runs with Chromium's sandbox");
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("QTWEBENGINE_DISABLE_SANDBOX"));
        env.remove(QStringLiteral("QTWEBENGINE_CHROMIUM_FLAGS"));
        const Run run = runWorker({m_server->url(QStringLiteral("/one.html"))}, {}, env);
        QVERIFY(run.finished);
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.isEmpty());
        QVERIFY2(!run.err.isEmpty() && run.err.last().contains(QLatin1String("sandbox")), qPrintable(run.err.join('\n')));
    }
};

QUIREPAD_REGISTER_TEST(WebCaptureWorkerTest);

#include "tst_webcaptureworker.moc"
