#include "capture/CaptureWorker.h"

#include "capture/CaptureLog.h"
#include "capture/WebController.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QJsonValue>
#include <QMetaObject>
#include <QPointer>
#include <QQueue>
#include <QThread>
#include <QUrl>

#include <cstdio>
#include <memory>

namespace quirepad {

namespace {

// Longest request line taken; a longer one is answered with an error.
constexpr qsizetype kMaxRequestBytes = 16 * 1024 * 1024;

void writeLine(FILE* stream, const QByteArray& line)
{
    std::fwrite(line.constData(), 1, size_t(line.size()), stream);
    std::fputc('\n', stream);
    std::fflush(stream);
}

QByteArray printInfoFromJson(const QJsonValue& value)
{
    if (!value.isString())
        return {};
    const QString text = value.toString();
    if (text.trimmed().startsWith(QLatin1Char('<')))
        return text.toUtf8();
    return QByteArray::fromBase64(text.toLatin1());
}

struct Capture
{
    QString path;
    QString title;
    QString error;
};

Capture capture(const QUrl& url, const WebCaptureParameters& parameters)
{
    WebController controller(parameters);
    Capture result;
    result.path = controller.reprintURL(url);
    result.title = controller.title();
    result.error = controller.errorString();
    if (result.path.isEmpty() && result.error.isEmpty())
        result.error = QStringLiteral("the page was not captured");
    return result;
}

// Reads stdin on a thread of its own, handing each line to the main thread.
class LineReader : public QThread
{
    Q_OBJECT

public:
    using QThread::QThread;

signals:
    void lineRead(const QByteArray& line, bool tooLong);
    void inputEnded();

protected:
    void run() override
    {
        QByteArray line;
        bool tooLong = false;
        int c;
        while ((c = std::getc(stdin)) != EOF) {
            if (c == '\n') {
                emit lineRead(line, tooLong);
                line.clear();
                tooLong = false;
                continue;
            }
            if (line.size() < kMaxRequestBytes)
                line.append(char(c));
            else
                tooLong = true;
        }
        if (!line.isEmpty() || tooLong)
            emit lineRead(line, tooLong);
        emit inputEnded();
    }
};

// Answers the lines in order, one capture at a time (a capture turns the
// event loop, so lines arriving meanwhile wait their turn).
class Server : public QObject
{
    Q_OBJECT

public:
    void take(const QByteArray& line, bool tooLong)
    {
        m_queue.enqueue({line, tooLong});
        drain();
    }
    void end()
    {
        m_ended = true;
        drain();
    }

private:
    void drain()
    {
        if (m_busy)
            return;
        m_busy = true;
        while (!m_queue.isEmpty()) {
            const auto [line, tooLong] = m_queue.dequeue();
            if (line.trimmed().isEmpty() && !tooLong)
                continue;
            QJsonObject answer;
            if (tooLong)
                answer = {{QStringLiteral("id"), QJsonValue()}, {QStringLiteral("path"), QString()},
                          {QStringLiteral("error"), QStringLiteral("request too long")}};
            else
                answer = answer_capture_request(line);
            writeLine(stdout, QJsonDocument(answer).toJson(QJsonDocument::Compact));
        }
        m_busy = false;
        if (m_ended)
            QCoreApplication::exit(0);
    }

    QQueue<QPair<QByteArray, bool>> m_queue;
    bool m_busy = false;
    bool m_ended = false;
};

int serve()
{
    Server server;
    LineReader reader;
    QObject::connect(&reader, &LineReader::lineRead, &server, &Server::take, Qt::QueuedConnection);
    QObject::connect(&reader, &LineReader::inputEnded, &server, &Server::end, Qt::QueuedConnection);
    reader.start();
    const int code = QCoreApplication::exec();
    reader.wait();
    return code;
}

} // namespace

WebCaptureParameters capture_parameters_from_json(const QJsonObject& object)
{
    QVariantMap map = object.toVariantMap();
    map.insert(QStringLiteral("printinfo"), printInfoFromJson(object.value(QStringLiteral("printinfo"))));
    return WebCaptureParameters::fromVariantMap(map);
}

QJsonObject answer_capture_request(const QByteArray& line)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(line, &error);
    const QJsonObject request = document.object();
    const QJsonValue given = request.value(QStringLiteral("id"));
    const QJsonValue id = given.isUndefined() ? QJsonValue() : given;
    const auto failure = [&id](const QString& why) {
        return QJsonObject{{QStringLiteral("id"), id}, {QStringLiteral("path"), QString()}, {QStringLiteral("error"), why}};
    };
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return failure(QStringLiteral("not a JSON object"));
    const QString urlText = request.value(QStringLiteral("url")).toString();
    const QUrl url(urlText, QUrl::StrictMode);
    if (urlText.isEmpty() || !url.isValid())
        return failure(QStringLiteral("no valid url"));
    const QJsonValue parameters = request.value(QStringLiteral("parameters"));
    if (!parameters.isUndefined() && !parameters.isNull() && !parameters.isObject())
        return failure(QStringLiteral("parameters must be an object"));

    const Capture result = capture(url, capture_parameters_from_json(parameters.toObject()));
    if (result.path.isEmpty())
        return failure(result.error);
    return {{QStringLiteral("id"), id}, {QStringLiteral("path"), result.path}, {QStringLiteral("title"), result.title}};
}

int run_webcapture_worker(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Captures a web page to PDF."));
    parser.addHelpOption();
    const QCommandLineOption serveOption(QStringLiteral("serve"), QStringLiteral("Answer JSON requests, one a line on stdin."));
    const QCommandLineOption waitOption(QStringLiteral("wait"), QStringLiteral("Seconds between load and print."), QStringLiteral("N"));
    const QCommandLineOption textOption(QStringLiteral("extract-text"), QStringLiteral("Reduce the page to its text."));
    const QCommandLineOption jsOption(QStringLiteral("js"), QStringLiteral("JavaScript to run in the page."), QStringLiteral("CODE"));
    const QCommandLineOption cssOption(QStringLiteral("css"), QStringLiteral("CSS to add to the page."), QStringLiteral("CODE"));
    const QCommandLineOption bgOption(QStringLiteral("background"), QStringLiteral("Print backgrounds."));
    const QCommandLineOption showOption(QStringLiteral("show"), QStringLiteral("Show the page in a window."));
    const QCommandLineOption infoOption(QStringLiteral("printinfo"), QStringLiteral("Page settings (property list)."), QStringLiteral("FILE"));
    parser.addOptions({serveOption, waitOption, textOption, jsOption, cssOption, bgOption, showOption, infoOption});
    parser.addPositionalArgument(QStringLiteral("URL"), QStringLiteral("The page to capture."));
    if (!parser.parse(arguments)) {
        writeLine(stderr, parser.errorText().toUtf8());
        return 1;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        writeLine(stdout, parser.helpText().toUtf8());
        return 0;
    }
    if (parser.isSet(serveOption)) {
        if (!parser.positionalArguments().isEmpty()) {
            writeLine(stderr, "--serve takes no URL");
            return 1;
        }
        return serve();
    }

    if (parser.positionalArguments().size() != 1) {
        writeLine(stderr, "usage: quirepad-webcapture URL [--wait N] [--extract-text] [--js CODE] [--css CODE] "
                          "[--background] [--show] [--printinfo FILE] | --serve");
        return 1;
    }
    QVariantMap map;
    if (parser.isSet(waitOption)) {
        bool ok = false;
        const int wait = parser.value(waitOption).toInt(&ok);
        if (!ok || wait < 0) {
            writeLine(stderr, "--wait takes a number of seconds");
            return 1;
        }
        map.insert(QStringLiteral("wait_time"), wait);
    }
    map.insert(QStringLiteral("extract_text"), parser.isSet(textOption));
    map.insert(QStringLiteral("javascript_code"), parser.value(jsOption));
    map.insert(QStringLiteral("css_code"), parser.value(cssOption));
    map.insert(QStringLiteral("print_bg"), parser.isSet(bgOption));
    map.insert(QStringLiteral("show_window"), parser.isSet(showOption));
    if (parser.isSet(infoOption)) {
        QFile file(parser.value(infoOption));
        if (!file.open(QIODevice::ReadOnly)) {
            writeLine(stderr, QStringLiteral("cannot read %1: %2").arg(file.fileName(), file.errorString()).toUtf8());
            return 1;
        }
        map.insert(QStringLiteral("printinfo"), file.read(1024 * 1024));
    }

    const QUrl url = QUrl::fromUserInput(parser.positionalArguments().constFirst());
    const Capture result = capture(url, WebCaptureParameters::fromVariantMap(map));
    if (result.path.isEmpty()) {
        writeLine(stderr, QStringLiteral("quirepad-webcapture: %1").arg(result.error).simplified().toUtf8());
        return 1;
    }
    writeLine(stdout, result.path.toUtf8());
    return 0;
}

} // namespace quirepad

#include "CaptureWorker.moc"
