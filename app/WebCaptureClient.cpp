#include "WebCaptureClient.h"

#include "foundation/runloop.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcCapture, "quirepad.capture", QtInfoMsg)

namespace quirepad {

WebCaptureClient::WebCaptureClient(QObject* parent)
    : QObject(parent)
{
    m_idle.setSingleShot(true);
    connect(&m_idle, &QTimer::timeout, this, [this] {
        if (m_busy == 0)
            stopWorker();
    });
    connect(&m_worker, &QProcess::readyReadStandardOutput, this, &WebCaptureClient::readAnswers);
    // Answers come on standard output; the worker's (and the web engine's)
    // chatter goes to this program's log, where it is seen when asked for.
    connect(&m_worker, &QProcess::readyReadStandardError, this, [this] {
        const QList<QByteArray> lines = m_worker.readAllStandardError().split('\n');
        for (const QByteArray& line : lines)
            if (!line.trimmed().isEmpty())
                qCDebug(lcCapture).noquote() << "worker:" << QString::fromLocal8Bit(line);
    });
}

WebCaptureClient::~WebCaptureClient()
{
    stopWorker();
}

QString WebCaptureClient::workerProgram()
{
    const QString configured = qEnvironmentVariable("QUIREPAD_WEBCAPTURE");
    if (!configured.isEmpty())
        return configured;
    return QCoreApplication::applicationDirPath() + QStringLiteral("/quirepad-webcapture");
}

bool WebCaptureClient::startWorker(QString* error)
{
    if (isWorkerRunning())
        return true;
    const QString program = workerProgram();
    if (!QFileInfo(program).isExecutable()) {
        *error = QStringLiteral("the web capture program %1 is not installed").arg(program);
        return false;
    }
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // Without a display the page is drawn off-screen.
    if (!environment.contains(QStringLiteral("DISPLAY")) && !environment.contains(QStringLiteral("WAYLAND_DISPLAY")))
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    m_worker.setProcessEnvironment(environment);
    m_pending.clear();
    m_worker.start(program, { QStringLiteral("--serve") });
    if (!m_worker.waitForStarted(10000)) {
        *error = QStringLiteral("the web capture program did not start: %1").arg(m_worker.errorString());
        return false;
    }
    qCInfo(lcCapture) << "web capture worker started, process" << m_worker.processId();
    return true;
}

void WebCaptureClient::stopWorker()
{
    if (!isWorkerRunning())
        return;
    m_worker.closeWriteChannel(); // the worker ends at the end of its input
    if (!m_worker.waitForFinished(3000)) {
        m_worker.kill();
        m_worker.waitForFinished(1000);
    }
}

void WebCaptureClient::readAnswers()
{
    m_pending += m_worker.readAllStandardOutput();
    qsizetype newline;
    while ((newline = m_pending.indexOf('\n')) >= 0) {
        const QByteArray line = m_pending.left(newline);
        m_pending.remove(0, newline + 1);
        const QJsonObject answer = QJsonDocument::fromJson(line).object();
        if (!answer.contains(QStringLiteral("id")))
            continue;
        Result result;
        result.path = answer.value(QStringLiteral("path")).toString();
        result.title = answer.value(QStringLiteral("title")).toString();
        result.error = answer.value(QStringLiteral("error")).toString();
        m_answers[quint64(answer.value(QStringLiteral("id")).toDouble())] = result;
    }
}

WebCaptureClient::Result WebCaptureClient::capture(const QUrl& url, const QVariantMap& parameters)
{
    Result result;
    if (!url.isValid() || url.scheme().isEmpty()) {
        result.error = QStringLiteral("not a web address: %1").arg(url.toString());
        return result;
    }
    if (!startWorker(&result.error))
        return result;
    m_idle.stop();
    ++m_busy;
    const quint64 id = m_nextId++;
    // Binary values (printinfo) travel as base64 text.
    QJsonObject values;
    for (auto it = parameters.begin(); it != parameters.end(); ++it)
        values.insert(it.key(), it.value().typeId() == QMetaType::QByteArray
                                    ? QJsonValue(QString::fromLatin1(it.value().toByteArray().toBase64()))
                                    : QJsonValue::fromVariant(it.value()));
    const QJsonObject request { { QStringLiteral("id"), double(id) },
                               { QStringLiteral("url"), url.toString(QUrl::FullyEncoded) },
                               { QStringLiteral("parameters"), values } };
    m_worker.write(QJsonDocument(request).toJson(QJsonDocument::Compact) + '\n');

    const QDeadlineTimer deadline(TimeoutMs);
    while (!m_answers.count(id) && isWorkerRunning() && !deadline.hasExpired())
        sleep_main_loop(0.01);
    --m_busy;
    m_idle.start(IdleMs);

    auto it = m_answers.find(id);
    if (it != m_answers.end()) {
        result = it->second;
        m_answers.erase(it);
        return result;
    }
    if (!isWorkerRunning()) {
        result.error = QStringLiteral("the web capture program ended (%1)").arg(m_worker.exitCode());
    } else {
        result.error = QStringLiteral("the web capture took too long");
        stopWorker(); // a worker that hangs is not reused
    }
    return result;
}

} // namespace quirepad
