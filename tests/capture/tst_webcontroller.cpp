#include "TestRegistry.h"

#include "CaptureTestSupport.h"
#include "LogCapture.h"
#include "TestWebServer.h"

#include "capture/WebController.h"
#include "foundation/TempArea.h"

#include <QBuffer>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>
#include <QApplication>
#include <QWebEngineView>

#include <memory>

using namespace quirepad;
using namespace quirepad::test;

namespace {

QByteArray pngImage()
{
    QImage image(120, 80, QImage::Format_RGB32);
    image.fill(QColor(200, 30, 30));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

QString readTitleFile(const QString& pdf)
{
    QFile file(pdf + QStringLiteral(".title"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QStringLiteral("<no title file>");
}

} // namespace

class WebControllerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestWebServer> m_server;

    QString capture(const QString& path, const QVariantMap& parameters = {}, QString* title = nullptr,
                    QString* error = nullptr)
    {
        WebController controller(WebCaptureParameters::fromVariantMap(parameters));
        const QString pdf = controller.reprintURL(QUrl(m_server->url(path)));
        if (title)
            *title = controller.title();
        if (error)
            *error = controller.errorString();
        return pdf;
    }

private slots:
    void initTestCase()
    {
        useTestCacheHome();
        m_server = std::make_unique<TestWebServer>();
        QVERIFY(m_server->listening());
        TestWebServer& s = *m_server;
        s.page("/plain.html", "<html><head><title>Plain Page</title></head>"
                              "<body><h1>Hello capture</h1><p>Quick brown fox paragraph.</p></body></html>");
        s.page("/untitled.html", "<html><body><p>A page without a title.</p></body></html>");
        // Chromium turns control characters of a title into spaces itself;
        // a right-to-left override it keeps.
        s.page("/hostile.html", "<html><head><title>x</title><script>document.title = '../../.hidden/evil\\u202Efdp.exe';</script>"
                                "</head><body><p>Hostile</p></body></html>");
        s.page("/lazy.html",
               "<html><head><title>Lazy</title></head><body>"
               "<p>Top of the lazy page.</p><div style='height:4000px'>spacer</div>"
               "<img id='late' data-src='/red.png' width='120' height='80' alt=''>"
               "<script>"
               "var img = document.getElementById('late');"
               "new IntersectionObserver(function (entries, observer) {"
               "  entries.forEach(function (e) { if (e.isIntersecting) { img.src = img.dataset.src; observer.disconnect(); } });"
               "}).observe(img);"
               "</script></body></html>");
        s.route("/red.png", {200, "image/png", pngImage(), 0});
        s.route("/slow.html", {200, "text/html", "<html><title>Slow</title><body>late</body></html>", 8000});
        s.route("/gone.html", {404, "text/html", "<html><title>Gone</title><body>Not found here</body></html>", 0});
        s.page("/script.html", "<html><head><title>Script</title></head><body><p id='t'>Original words</p></body></html>");
        s.page("/style.html", "<html><head><title>Style</title></head><body><p>Visible words</p>"
                              "<p id='secret'>Secret words</p></body></html>");
        s.page("/article.html",
               "<html><head><title>Article Title</title><style>body{background:#eee}</style></head><body>"
               "<nav><a href='/'>Navigation Menu Item</a></nav>"
               "<div class='ad banner'>Buy Now Advert</div>"
               "<main><h2>Section Heading</h2><p>First readable paragraph.</p>"
               "<img src='/red.png' width='120' height='80'>"
               "<ul><li>Item alpha</li><li>Item beta</li></ul>"
               "<aside>Sidebar aside text</aside>"
               "<script>document.write('<p>Written by script</p>')</script></main>"
               "<footer>Footer text</footer></body></html>");
        s.page("/callback.html", "<html><head><title>Callback</title></head><body><p>Calls back</p>"
                                 "<script>ssbcallback('hello', {a: 1}); ssbcallback('nodata');</script></body></html>");
        s.page("/probe.html",
               "<html><head><title>Probe</title></head><body><p>Probe</p><script>\n"
               "new QWebChannel(qt.webChannelTransport, function (channel) {\n"
               "  var doc = channel.objects.SSBDocument;\n"
               "  var report = { objects: Object.keys(channel.objects),\n"
               "    callables: Object.keys(doc).filter(function (k) { return typeof doc[k] === 'function'; }).sort(),\n"
               "    deleteLater: typeof doc.deleteLater };\n"
               "  try { if (typeof doc.deleteLater === 'function') doc.deleteLater(); } catch (e) {}\n"
               "  try { doc.objectName = 'taken'; } catch (e) {}\n"
               "  var send = function (m) { qt.webChannelTransport.send(JSON.stringify(m)); };\n"
               "  for (var i = 0; i < 40; ++i) {\n"
               "    send({type: 6, object: 'SSBDocument', method: i, args: [], id: 1000 + i});\n"
               "    send({type: 6, object: 'QWebChannel', method: i, args: [], id: 2000 + i});\n"
               "    send({type: 9, object: 'SSBDocument', property: i, value: 'x'});\n"
               "  }\n"
               "  send({type: 6, object: 'qt_webchannel_transport', method: 0, args: [], id: 3000});\n"
               "  doc.ssbcallback_data_('probe', report);\n"
               "  setTimeout(function () { doc.ssbcallback_data_('still-here', null); }, 300);\n"
               "});\n"
               "</script></body></html>");
    }

    void plainPage()
    {
        QString title;
        QElapsedTimer timer;
        timer.start();
        const QString pdf = capture("/plain.html", {}, &title);
        QVERIFY(!pdf.isEmpty());
        QVERIFY2(timer.elapsed() < 10000, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(QFileInfo(pdf).fileName(), QStringLiteral("Plain Page.pdf"));
        QVERIFY(TempArea::instance().contains(pdf));
        QCOMPARE(QFileInfo(QFileInfo(pdf).absolutePath()).permissions() & (QFile::ReadOther | QFile::WriteOther | QFile::ExeOther),
                 QFileDevice::Permissions());
        QCOMPARE(title, QStringLiteral("Plain Page"));
        QCOMPARE(readTitleFile(pdf), QStringLiteral("Plain Page"));
        const QString text = pdfText(pdf);
        QVERIFY2(text.contains(QLatin1String("Hello capture")) && text.contains(QLatin1String("Quick brown fox")), qPrintable(text));
        // Page settings not given: the default paper, no margins.
        const QString size = pdfPageSize(pdf);
        QCOMPARE(size, PrintInfo::defaults().pageSize.key() == QLatin1String("Letter") ? QStringLiteral("612 x 792")
                                                                                          : QStringLiteral("595 x 842"));
    }

    void pageSettingsFromPrintInfo()
    {
        const QByteArray info = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                                "<key>PaperSize</key><string>Letter</string><key>Orientation</key><integer>1</integer>"
                                "<key>LeftMargin</key><real>72</real></dict></plist>";
        const QString pdf = capture("/plain.html", {{"printinfo", info}});
        QVERIFY(!pdf.isEmpty());
        QCOMPARE(pdfPageSize(pdf), QStringLiteral("792 x 612"));
    }

    void windowShownOnRequestStaysOpen()
    {
        const auto windows = [] {
            QList<QWebEngineView*> found;
            for (QWidget* w : QApplication::topLevelWidgets())
                if (auto* view = qobject_cast<QWebEngineView*>(w); view && view->isVisible()
                    && !view->testAttribute(Qt::WA_DontShowOnScreen))
                    found << view;
            return found;
        };
        QVERIFY(windows().isEmpty());
        QVERIFY(!capture("/plain.html").isEmpty());
        QVERIFY(windows().isEmpty()); // no window unless asked for

        QVERIFY(!capture("/plain.html", {{"show_window", true}}).isEmpty());
        const QList<QWebEngineView*> shown = windows();
        QCOMPARE(shown.size(), 1);
        QPointer<QWebEngineView> view = shown.first();
        QCOMPARE(view->size(), QSize(400, 768));
        QCOMPARE(view->windowTitle(), QStringLiteral("Plain Page"));
        QVERIFY(view->testAttribute(Qt::WA_ShowWithoutActivating));
        // Its page outlives the controller and may still call back.
        view->page()->runJavaScript(QStringLiteral("ssbcallback('after the controller', 1)"));
        QTest::qWait(300);
        QVERIFY(view);
        view->close();
        QVERIFY(QTest::qWaitFor([&] { return view.isNull(); }, 2000));
    }

    void untitledPage()
    {
        QString title;
        const QString pdf = capture("/untitled.html", {}, &title);
        QVERIFY(!pdf.isEmpty());
        QCOMPARE(QFileInfo(pdf).fileName(), QStringLiteral("Untitled.pdf"));
        QCOMPARE(title, QStringLiteral("Untitled"));
        QCOMPARE(readTitleFile(pdf), QStringLiteral("Untitled"));
        QVERIFY(pdfText(pdf).contains(QLatin1String("A page without a title.")));
    }

    void hostileTitleMakesASafeName()
    {
        QString title;
        const QString pdf = capture("/hostile.html", {}, &title);
        QVERIFY(!pdf.isEmpty());
        const QString name = QFileInfo(pdf).fileName();
        QVERIFY2(!name.startsWith(QLatin1Char('.')) && !name.contains(QChar(0x202E)), qPrintable(name));
        QCOMPARE(name, QStringLiteral("hiddenevil fdp.exe.pdf"));
        QVERIFY(TempArea::instance().contains(pdf));
        // The title file keeps the title as the page has it.
        QCOMPARE(readTitleFile(pdf), QString::fromUtf16(u"../../.hidden/evil\u202Efdp.exe"));
    }

    void lazyImageIsScrolledIn()
    {
        const QString pdf = capture("/lazy.html");
        QVERIFY(!pdf.isEmpty());
        QVERIFY2(m_server->requested().contains(QStringLiteral("/red.png")), qPrintable(m_server->requested().join(' ')));
        QVERIFY(pdfText(pdf).contains(QLatin1String("Top of the lazy page.")));
        QCOMPARE(pdfImageCount(pdf), 1);
    }

    void notFoundEndsAtOnce()
    {
        QString error;
        QElapsedTimer timer;
        timer.start();
        const int before = capturedPdfs().size();
        QVERIFY(capture("/gone.html", {}, nullptr, &error).isEmpty());
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
        QVERIFY2(error.contains(QLatin1String("404")), qPrintable(error));
        QCOMPARE(capturedPdfs().size(), before);
    }

    void refusedConnectionEndsAtOnce()
    {
        WebController controller(WebCaptureParameters{});
        QElapsedTimer timer;
        timer.start();
        const QUrl url(QStringLiteral("http://127.0.0.1:%1/").arg(TestWebServer::closedPort()));
        QVERIFY(controller.reprintURL(url).isEmpty());
        QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
        QVERIFY2(controller.errorString().contains(QLatin1String("REFUSED")), qPrintable(controller.errorString()));
    }

    void notAWebAddress()
    {
        WebController controller(WebCaptureParameters{});
        QVERIFY(controller.reprintURL(QUrl(QStringLiteral("javascript:alert(1)"))).isEmpty());
        QVERIFY(controller.reprintURL(QUrl()).isEmpty());
        QVERIFY(!controller.errorString().isEmpty());
    }

    void slowPageRunsOutOfRounds()
    {
        QCOMPARE(WebController(WebCaptureParameters{}).roundLimit(), 31);
        WebController controller(WebCaptureParameters{});
        controller.setRoundLimit(2);
        QElapsedTimer timer;
        timer.start();
        QVERIFY(controller.reprintURL(QUrl(m_server->url(QStringLiteral("/slow.html")))).isEmpty());
        QVERIFY2(timer.elapsed() >= 2400 && timer.elapsed() < 6000, qPrintable(QString::number(timer.elapsed())));
        QVERIFY(!controller.errorString().isEmpty());
    }

    void waitBeyondTheRoundsPrintsNothingLater()
    {
        const QStringList before = capturedPdfs();
        {
            WebController controller(WebCaptureParameters::fromVariantMap({{"wait_time", 4}}));
            controller.setRoundLimit(1);
            QVERIFY(controller.reprintURL(QUrl(m_server->url(QStringLiteral("/plain.html")))).isEmpty());
            // The print it had scheduled would come now: it must not.
            QTest::qWait(4500);
            QCOMPARE(capturedPdfs(), before);
        }
        QTest::qWait(200);
        QCOMPARE(capturedPdfs(), before);
    }

    void javascriptChangesThePage()
    {
        const QString pdf = capture("/script.html", {{"javascript_code", "document.getElementById('t').textContent = 'Changed by script';"}});
        QVERIFY(!pdf.isEmpty());
        const QString text = pdfText(pdf);
        QVERIFY2(text.contains(QLatin1String("Changed by script")), qPrintable(text));
        QVERIFY(!text.contains(QLatin1String("Original words")));
    }

    void cssHidesAnElement()
    {
        // Quotes and a closing tag in the CSS stay CSS.
        const QString pdf = capture("/style.html", {{"css_code", "#secret { display: none } /* '\" </style> */"}});
        QVERIFY(!pdf.isEmpty());
        const QString text = pdfText(pdf);
        QVERIFY2(text.contains(QLatin1String("Visible words")), qPrintable(text));
        QVERIFY2(!text.contains(QLatin1String("Secret words")), qPrintable(text));
    }

    void extractTextKeepsTheReadableParts()
    {
        const QString plain = capture("/article.html");
        QVERIFY(!plain.isEmpty());
        QVERIFY(pdfText(plain).contains(QLatin1String("Navigation Menu Item"))); // the page as it is has them
        QCOMPARE(pdfImageCount(plain), 1);

        const QString pdf = capture("/article.html", {{"extract_text", true}});
        QVERIFY(!pdf.isEmpty());
        const QString text = pdfText(pdf);
        for (const char* kept : {"Article Title", "Section Heading", "First readable paragraph.", "Item alpha", "Item beta",
                                 "Written by script"})
            QVERIFY2(text.contains(QLatin1String(kept)), qPrintable(QStringLiteral("%1 missing in:\n%2").arg(kept, text)));
        for (const char* gone : {"Navigation Menu Item", "Buy Now Advert", "Sidebar aside text", "Footer text", "document.write"})
            QVERIFY2(!text.contains(QLatin1String(gone)), qPrintable(QStringLiteral("%1 still in:\n%2").arg(gone, text)));
        QCOMPARE(pdfImageCount(pdf), 0);
        QCOMPARE(readTitleFile(pdf), QStringLiteral("Article Title"));
    }

    void pageCallsBack()
    {
        LogCapture log;
        WebController controller(WebCaptureParameters{});
        QSignalSpy spy(&controller, &WebController::scriptCallback);
        QVERIFY(!controller.reprintURL(QUrl(m_server->url(QStringLiteral("/callback.html")))).isEmpty());
        QCOMPARE(spy.size(), 2);
        QCOMPARE(spy.at(0).at(0).toString(), QStringLiteral("hello"));
        QCOMPARE(spy.at(0).at(1).toMap(), (QVariantMap{{"a", 1}}));
        QCOMPARE(spy.at(1).at(0).toString(), QStringLiteral("nodata"));
        QVERIFY(spy.at(1).at(1).isNull());
        QCOMPARE(log.count(QStringLiteral("SSBCallback:hello {\"a\":1}")), 1);
        QCOMPARE(log.count(QStringLiteral("SSBCallback:nodata null")), 1);
    }

    void bridgeReachesNothingElse()
    {
        WebController controller(WebCaptureParameters{});
        QSignalSpy spy(&controller, &WebController::scriptCallback);
        QPointer<QObject> bridge;
        // The bridge exists once the page does; keep an eye on it from then.
        connect(&controller, &WebController::scriptCallback, this, [&] {
            if (!bridge)
                bridge = controller.scriptBridge();
        });
        QVERIFY(!controller.reprintURL(QUrl(m_server->url(QStringLiteral("/probe.html")))).isEmpty());
        QVERIFY(spy.size() >= 1);
        QCOMPARE(spy.at(0).at(0).toString(), QStringLiteral("probe"));
        const QVariantMap report = spy.at(0).at(1).toMap();
        QCOMPARE(report.value("objects").toStringList(), QStringList{QStringLiteral("SSBDocument")});
        // What the page can call into the program: the callback, and
        // deleteLater, which the web channel refuses for registered objects
        // (checked below). The rest are qwebchannel.js's own helpers of every
        // object, local to the page.
        const QStringList jsHelpers{"propertyUpdate", "signalEmitted", "unwrapProperties", "unwrapQObject"};
        QStringList callables;
        for (const QString& name : report.value("callables").toStringList())
            if (!jsHelpers.contains(name))
                callables << name.section(QLatin1Char('('), 0, 0);
        callables.removeDuplicates();
        QCOMPARE(callables, (QStringList{"deleteLater", "ssbcallback_data_"}));

        // deleteLater and the raw messages did nothing: the bridge lives,
        // keeps its empty name and still carries messages.
        QTest::qWait(100);
        QVERIFY(bridge);
        QCOMPARE(bridge.data(), controller.scriptBridge());
        QVERIFY(bridge->objectName().isEmpty());
        QCOMPARE(spy.last().at(0).toString(), QStringLiteral("still-here"));
    }
};

QUIREPAD_REGISTER_TEST(WebControllerTest);

#include "tst_webcontroller.moc"
