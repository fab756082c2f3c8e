#include "capture/WebController.h"

#include "capture/CaptureLog.h"
#include "capture/CaptureTitle.h"
#include "capture/ScriptBridge.h"
#include "foundation/Shutdown.h"
#include "foundation/TempArea.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSaveFile>
#include <QScopedValueRollback>
#include <QTimer>
#include <QWebChannel>
#include <QWebEngineLoadingInfo>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineSettings>
#include <QWebEngineView>

#include <filesystem>
#include <system_error>

// The capture's resources live in a static library: register them before
// the first use (Q_INIT_RESOURCE must be called outside any namespace).
static void registerCaptureResources()
{
    static const bool registered = [] {
        Q_INIT_RESOURCE(capture);
        return true;
    }();
    Q_UNUSED(registered)
}

namespace quirepad {

namespace {

constexpr int kViewWidth = 400;
constexpr int kViewHeight = 768;
// What one message of a page may put into the log.
constexpr qsizetype kLoggedChars = 2000;
// Messages a page sends before the channel is up wait in the page, this many
// at most.
constexpr int kQueuedMessages = 64;

QString resourceText(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(lcCapture).noquote() << "missing resource" << path;
        return {};
    }
    return QString::fromUtf8(file.readAll());
}

// A string as a JavaScript literal (JSON is one).
QString jsString(const QString& text)
{
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QString::fromUtf8(array.mid(1, array.size() - 2));
}

// Why a main-frame load failed, in one line.
QString loadError(const QWebEngineLoadingInfo& info)
{
    const int code = info.errorCode();
    if (info.errorDomain() == QWebEngineLoadingInfo::HttpStatusCodeDomain && code >= 100)
        return QStringLiteral("HTTP status %1").arg(code);
    // Chromium's text may carry markup of its error page.
    static const QRegularExpression tags(QStringLiteral("<[^>]*>"));
    QString text = info.errorString();
    text.remove(tags);
    text = text.simplified();
    if (text.endsWith(QLatin1Char(':')))
        text.chop(1);
    if (text.isEmpty())
        text = QStringLiteral("the page did not load");
    return QStringLiteral("%1 (error %2, domain %3)").arg(text).arg(code).arg(int(info.errorDomain()));
}

void removeTree(const QString& path)
{
    if (path.isEmpty())
        return;
    std::error_code ec;
    std::filesystem::remove_all(std::filesystem::path(QFile::encodeName(path).toStdString()), ec);
}

QString bridgeScript()
{
    // window.ssbcallback(msg, data) -> SSBDocument.ssbcallback_data_(msg, data),
    // with data undefined sent as null. Calls made before the channel is up
    // are kept (a few) and sent once it is.
    return QStringLiteral(R"JS(
(function () {
    'use strict';
    var transport = window.qt && window.qt.webChannelTransport;
    if (!transport || typeof QWebChannel !== 'function')
        return;
    var target = null;
    var queue = [];
    new QWebChannel(transport, function (channel) {
        target = channel.objects.SSBDocument || null;
        var pending = queue;
        queue = [];
        if (target)
            pending.forEach(function (m) { target.ssbcallback_data_(m[0], m[1]); });
    });
    Object.defineProperty(window, 'ssbcallback', {
        value: function (msg, data) {
            var m = [String(msg), data === undefined ? null : data];
            if (target)
                target.ssbcallback_data_(m[0], m[1]);
            else if (queue.length < %1)
                queue.push(m);
        },
        writable: false, configurable: false, enumerable: false
    });
})();
)JS")
        .arg(kQueuedMessages);
}

} // namespace

WebController::WebController(const WebCaptureParameters& parameters, QObject* parent)
    : QObject(parent)
    , m_params(parameters)
    , m_printInfo(PrintInfo::fromPlist(parameters.printinfo))
{
    registerCaptureResources();
}

WebController::~WebController()
{
    if (m_waitLoop)
        m_waitLoop->quit();
    // A print still under way must not leave its file behind.
    if (m_state == State::Printing || m_state == State::Settling || m_state == State::Loading)
        removeTree(m_dir);
    // The view takes its page along, and the page its profile (the page
    // goes first); a window left open on screen keeps all three.
    if (m_view && !m_params.show_window)
        delete m_view.data();
}

QObject* WebController::scriptBridge() const
{
    return m_bridge.data();
}

void WebController::buildWebView()
{
    if (m_page)
        return;
    // No storage name: off the record, in memory only.
    auto* profile = new QWebEngineProfile();
    profile->setHttpCacheType(QWebEngineProfile::MemoryHttpCache);
    profile->setPersistentCookiesPolicy(QWebEngineProfile::NoPersistentCookies);

    // The page always has a view: without one Chromium takes it for hidden,
    // and what a page does only once it is seen (lazy images, observers of
    // the viewport) never happens. Unless asked for, the view is never put
    // on screen.
    m_view = new QWebEngineView();
    m_view->setAttribute(Qt::WA_ShowWithoutActivating);
    m_view->setWindowTitle(QStringLiteral("Quirepad Web Capture"));
    m_view->resize(kViewWidth, kViewHeight);
    if (m_params.show_window)
        m_view->setAttribute(Qt::WA_DeleteOnClose);
    else
        m_view->setAttribute(Qt::WA_DontShowOnScreen);
    m_page = new QWebEnginePage(profile, m_view);
    m_view->setPage(m_page);
    profile->setParent(m_page);

    QWebEngineSettings* settings = m_page->settings();
    settings->setAttribute(QWebEngineSettings::JavascriptEnabled, true);
    settings->setAttribute(QWebEngineSettings::PluginsEnabled, false);
    settings->setAttribute(QWebEngineSettings::PrintElementBackgrounds, m_params.print_bg);
    settings->setAttribute(QWebEngineSettings::PlaybackRequiresUserGesture, true);
    settings->setAttribute(QWebEngineSettings::ScrollAnimatorEnabled, false);
    settings->setAttribute(QWebEngineSettings::JavascriptCanOpenWindows, false);
    settings->setAttribute(QWebEngineSettings::JavascriptCanAccessClipboard, false);
    settings->setAttribute(QWebEngineSettings::JavascriptCanPaste, false);
    settings->setAttribute(QWebEngineSettings::ScreenCaptureEnabled, false);
    settings->setAttribute(QWebEngineSettings::FullScreenSupportEnabled, false);
    settings->setAttribute(QWebEngineSettings::LocalContentCanAccessRemoteUrls, false);
    settings->setAttribute(QWebEngineSettings::AllowWindowActivationFromJavaScript, false);
    settings->setAttribute(QWebEngineSettings::PdfViewerEnabled, false);
    settings->setAttribute(QWebEngineSettings::ErrorPageEnabled, false);
    settings->setAttribute(QWebEngineSettings::ShowScrollBars, false);

    connect(m_page, &QWebEnginePage::loadingChanged, this, &WebController::onLoadingChanged);
    connect(m_page, &QWebEnginePage::pdfPrintingFinished, this, &WebController::onPdfFinished);
    connect(m_page, &QWebEnginePage::renderProcessTerminated, this,
            [this](QWebEnginePage::RenderProcessTerminationStatus status, int code) {
                if (running())
                    fail(QStringLiteral("the page's renderer ended (status %1, code %2)").arg(int(status)).arg(code));
            });
    if (m_params.show_window)
        connect(m_page, &QWebEnginePage::titleChanged, m_view, [view = m_view](const QString& title) {
            if (view)
                view->setWindowTitle(title.isEmpty() ? QStringLiteral("Quirepad Web Capture") : title);
        });

    installBridge();
    m_view->show();
}

void WebController::installBridge()
{
    m_channel = new QWebChannel(m_page);
    // A window left open outlives its controller, and its page may still
    // call: the bridge then has nobody to tell.
    m_bridge = new ScriptBridge(
        [self = QPointer<WebController>(this)](const QString& msg, const QVariant& data) {
            if (self)
                self->onScriptMessage(msg, data);
        },
        m_channel);
    m_channel->registerObject(QStringLiteral("SSBDocument"), m_bridge);
    m_page->setWebChannel(m_channel, QWebEngineScript::MainWorld);

    const QString channelJs = resourceText(QStringLiteral(":/qtwebchannel/qwebchannel.js"));
    if (channelJs.isEmpty())
        return;
    QWebEngineScript script;
    script.setName(QStringLiteral("quirepad-ssbcallback"));
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setWorldId(QWebEngineScript::MainWorld);
    script.setRunsOnSubFrames(false);
    script.setSourceCode(channelJs + QLatin1Char('\n') + bridgeScript());
    m_page->scripts().insert(script);
}

void WebController::onScriptMessage(const QString& message, const QVariant& data)
{
    const QString shown = QString::fromUtf8(QJsonDocument::fromVariant(QVariantList{data}).toJson(QJsonDocument::Compact));
    // data goes out as the JSON array's only element.
    const QString dataText = shown.mid(1, shown.size() - 2);
    qCInfo(lcCaptureScript).noquote() << QStringLiteral("SSBCallback:%1 %2")
                                              .arg(message.left(kLoggedChars), dataText.left(kLoggedChars));
    emit scriptCallback(message, data);
}

bool WebController::running() const
{
    return m_state == State::Loading || m_state == State::Settling || m_state == State::Printing;
}

void WebController::waitWhileRunning(double seconds)
{
    const QDeadlineTimer deadline(qint64(seconds * 1000.0), Qt::PreciseTimer);
    while (running() && !deadline.hasExpired() && !Shutdown::isRequested()) {
        QEventLoop loop;
        QTimer::singleShot(qMax<qint64>(deadline.remainingTime(), 0), Qt::PreciseTimer, &loop, &QEventLoop::quit);
        connect(&Shutdown::instance(), &Shutdown::requested, &loop, &QEventLoop::quit);
        QEventLoop* outer = m_waitLoop;
        m_waitLoop = &loop;
        const int code = loop.exec(QEventLoop::AllEvents);
        m_waitLoop = outer;
        if (code == -1)
            break; // the application is quitting
    }
}

void WebController::finish(State state)
{
    m_state = state;
    if (m_waitLoop)
        m_waitLoop->quit();
}

void WebController::fail(const QString& reason)
{
    qCInfo(lcCapture).noquote() << "capture of" << m_url.toDisplayString() << "failed:" << reason;
    m_error = reason;
    removeTree(m_dir);
    m_dir.clear();
    m_pdfPath.clear();
    finish(State::Failed);
}

QString WebController::reprintURL(const QUrl& url)
{
    if (m_busy) {
        m_error = QStringLiteral("a capture is already under way");
        return {};
    }
    QScopedValueRollback<bool> busy(m_busy, true);

    ++m_generation;
    m_url = url;
    m_title.clear();
    m_titleKnown = false;
    m_error.clear();
    m_dir.clear();
    m_pdfPath.clear();

    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || (scheme != QLatin1String("http") && scheme != QLatin1String("https")
                           && scheme != QLatin1String("file"))) {
        m_error = QStringLiteral("not a web address: %1").arg(url.toDisplayString());
        m_state = State::Failed;
        return {};
    }

    buildWebView();
    m_state = State::Loading;
    qCInfo(lcCapture).noquote() << "loading" << url.toDisplayString();
    m_page->load(url);

    waitWhileRunning(0.5);
    for (int round = 0; round < m_roundLimit && running(); ++round)
        waitWhileRunning(1.0);

    if (running()) {
        abandon();
        if (m_error.isEmpty())
            m_error = Shutdown::isRequested() ? QStringLiteral("the program is ending")
                                              : QStringLiteral("the page was not ready in time");
    }
    detach();
    if (m_state != State::Done)
        return {};
    qCInfo(lcCapture).noquote() << "captured" << url.toDisplayString() << "as" << m_pdfPath;
    return m_pdfPath;
}

void WebController::abandon()
{
    // A print under way may still write its file: it goes into a folder that
    // is removed now, and a file that comes late is removed when it is
    // announced.
    if (m_state == State::Printing && !m_pdfPath.isEmpty())
        m_abandonedPaths.insert(m_pdfPath);
    qCInfo(lcCapture).noquote() << "giving up on" << m_url.toDisplayString();
    const QString reason = m_error;
    fail(reason.isEmpty() ? QStringLiteral("the page was not ready in time") : reason);
    m_error = reason;
}

void WebController::detach()
{
    if (!m_page)
        return;
    // Scripts, timers and connections of the page end here; a window left
    // open keeps showing what was captured.
    m_page->triggerAction(QWebEnginePage::Stop);
    if (!m_params.show_window)
        m_page->setUrl(QUrl(QStringLiteral("about:blank")));
}

void WebController::onLoadingChanged(const QWebEngineLoadingInfo& info)
{
    if (m_state != State::Loading)
        return;
    switch (info.status()) {
    case QWebEngineLoadingInfo::LoadStartedStatus:
        return;
    case QWebEngineLoadingInfo::LoadStoppedStatus:
        fail(QStringLiteral("the load was stopped"));
        return;
    case QWebEngineLoadingInfo::LoadFailedStatus:
        fail(loadError(info));
        return;
    case QWebEngineLoadingInfo::LoadSucceededStatus:
        if (info.isErrorPage() || (info.errorDomain() == QWebEngineLoadingInfo::HttpStatusCodeDomain && info.errorCode() >= 400)) {
            fail(loadError(info));
            return;
        }
        onLoaded();
        return;
    }
}

void WebController::onLoaded()
{
    m_state = State::Settling;
    runPageScripts();
    const int settleMs = qMax(m_params.wait_time, 1) * 1000;
    qCDebug(lcCapture).noquote() << "loaded" << m_url.toDisplayString() << "- printing in" << settleMs << "ms";
    QTimer::singleShot(settleMs, Qt::PreciseTimer, this, [this, generation = m_generation] {
        if (generation == m_generation && m_state == State::Settling)
            print();
    });
}

void WebController::runPageScripts()
{
    const quint64 generation = m_generation;
    // The title as the page's main frame has it, before anything changes it.
    m_page->runJavaScript(QStringLiteral("document.title"), QWebEngineScript::ApplicationWorld,
                          [self = QPointer<WebController>(this), generation](const QVariant& result) {
                              if (!self || generation != self->m_generation || self->m_titleKnown)
                                  return;
                              self->m_title = result.toString();
                              self->m_titleKnown = true;
                          });
    if (m_params.extract_text) {
        const QString textx = resourceText(QStringLiteral(":/capture/textx.js"));
        if (!textx.isEmpty())
            m_page->runJavaScript(textx, QWebEngineScript::ApplicationWorld);
    } else {
        // Brings in what loads lazily as it scrolls into view.
        m_page->runJavaScript(QStringLiteral("window.scrollTo(0,document.body.scrollHeight);"),
                              QWebEngineScript::ApplicationWorld);
    }
    if (!m_params.javascript_code.isEmpty())
        m_page->runJavaScript(m_params.javascript_code, QWebEngineScript::MainWorld);
    if (!m_params.css_code.isEmpty())
        m_page->runJavaScript(QStringLiteral("(function (css) {"
                                             " var style = document.createElement('style');"
                                             " style.textContent = css;"
                                             " (document.head || document.documentElement).appendChild(style);"
                                             "})(%1);")
                                  .arg(jsString(m_params.css_code)),
                              QWebEngineScript::ApplicationWorld);
}

void WebController::print()
{
    if (!m_titleKnown) {
        m_title = m_page->title();
        // Without a <title> the page's title is its address.
        QString bare = m_url.toString(QUrl::RemoveScheme);
        while (bare.startsWith(QLatin1Char('/')))
            bare.remove(0, 1);
        if (m_title == m_url.toString() || m_title == m_url.toDisplayString() || m_title == bare)
            m_title.clear();
    }
    m_title = m_title.trimmed();
    if (m_title.isEmpty())
        m_title = QStringLiteral("Untitled");

    m_dir = TempArea::instance().makeLastingDir();
    if (m_dir.isEmpty()) {
        fail(QStringLiteral("no private folder for the PDF"));
        return;
    }
    m_pdfPath = m_dir + QLatin1Char('/') + capture_file_stem(m_title) + QStringLiteral(".pdf");
    m_state = State::Printing;
    qCDebug(lcCapture).noquote() << "printing" << m_url.toDisplayString() << "to" << m_pdfPath;
    m_page->printToPdf(m_pdfPath, m_printInfo.pageLayout());
}

void WebController::onPdfFinished(const QString& path, bool success)
{
    if (m_abandonedPaths.remove(path) || m_state != State::Printing || path != m_pdfPath) {
        // A print given up on: its file must not stay.
        if (TempArea::instance().contains(path)) {
            QFile::remove(path);
            QDir().rmdir(QFileInfo(path).absolutePath());
        }
        return;
    }
    if (!success) {
        fail(QStringLiteral("the page could not be printed"));
        return;
    }
    QSaveFile titleFile(m_pdfPath + QStringLiteral(".title"));
    if (!titleFile.open(QIODevice::WriteOnly) || titleFile.write(m_title.toUtf8()) < 0 || !titleFile.commit()) {
        fail(QStringLiteral("cannot write the title file: %1").arg(titleFile.errorString()));
        return;
    }
    finish(State::Done);
}

} // namespace quirepad
