#pragma once

#include "capture/PrintInfo.h"
#include "capture/WebCaptureParameters.h"

#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QUrl>
#include <QVariant>

class QEventLoop;
class QWebChannel;
class QWebEngineLoadingInfo;
#include <QWebEnginePage>
#include <QWebEngineView>

namespace quirepad {

class ScriptBridge;

// Captures web pages to PDF with Qt WebEngine, one at a time.
//
// Each controller has a page of its own in a fresh off-the-record profile:
// no cookies, storage or cache survive it or pass between captures, and
// nothing is written to disk. The page's view is kept off screen unless
// show_window asks for it (then a small window, shown without taking the
// focus, that stays open after the capture).
//
// A page reaches the program through window.ssbcallback(msg, data) only,
// which ends in scriptCallback().
class WebController : public QObject
{
    Q_OBJECT

public:
    static constexpr int kDefaultRounds = 31;

    explicit WebController(const WebCaptureParameters& parameters, QObject* parent = nullptr);
    ~WebController() override;

    // Loads the page and prints it: the PDF's path, in a new folder of the
    // private temporary area with "<path>.title" beside it holding the
    // page's title, or an empty string (errorString() says why). Returns
    // once done; the event loop turns meanwhile. A load that fails (refused,
    // unknown host, an HTTP error status) ends at once; otherwise the load
    // and print get 0.5 s plus roundLimit() rounds of one second. The
    // parameters' wait_time (at least 1 s) passes between the load and the
    // print.
    QString reprintURL(const QUrl& url);

    // The page's title of the last capture ("Untitled" when it has none).
    QString title() const { return m_title; }
    QString errorString() const { return m_error; }

    int roundLimit() const { return m_roundLimit; }
    void setRoundLimit(int rounds) { m_roundLimit = qMax(0, rounds); }

    QWebEnginePage* page() const { return m_page; }
    QObject* scriptBridge() const;

signals:
    // A message the page sent with window.ssbcallback(msg, data).
    void scriptCallback(const QString& message, const QVariant& data);

private:
    enum class State { Idle, Loading, Settling, Printing, Done, Failed };

    void buildWebView();
    void installBridge();
    void onLoadingChanged(const QWebEngineLoadingInfo& info);
    void onLoaded();
    void runPageScripts();
    void print();
    void onPdfFinished(const QString& path, bool success);
    void fail(const QString& reason);
    void finish(State state);
    void abandon();
    void detach();
    bool running() const;
    void waitWhileRunning(double seconds);
    void onScriptMessage(const QString& message, const QVariant& data);

    WebCaptureParameters m_params;
    PrintInfo m_printInfo;
    int m_roundLimit = kDefaultRounds;

    QPointer<QWebEnginePage> m_page;
    QPointer<QWebEngineView> m_view;
    QWebChannel* m_channel = nullptr;
    QPointer<ScriptBridge> m_bridge;

    State m_state = State::Idle;
    bool m_busy = false;
    quint64 m_generation = 0;
    QUrl m_url;
    QString m_title;
    bool m_titleKnown = false;
    QString m_error;
    QString m_dir;
    QString m_pdfPath;
    QSet<QString> m_abandonedPaths;
    QEventLoop* m_waitLoop = nullptr;
};

} // namespace quirepad
