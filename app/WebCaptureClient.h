#pragma once

#include <QObject>
#include <QProcess>
#include <QTimer>
#include <QUrl>
#include <QVariantMap>

#include <map>

namespace quirepad {

// Captures web pages to PDF through the quirepad-webcapture worker, so
// this program never loads the web engine itself. The worker is started on
// the first capture and kept for later ones (it starts in a second or so,
// then captures quickly) until it has been idle for a few minutes.
class WebCaptureClient : public QObject
{
    Q_OBJECT
public:
    struct Result
    {
        QString path;  // the PDF; empty when there is none
        QString title;
        QString error; // why there is none
    };

    static constexpr int IdleMs = 5 * 60 * 1000;
    // Longer than the worker's own limit (31.5 s of loading, then the
    // settling time), so a capture is never given up before the worker.
    static constexpr int TimeoutMs = 120 * 1000;

    explicit WebCaptureClient(QObject* parent = nullptr);
    ~WebCaptureClient() override;

    // The worker beside this executable, or $QUIREPAD_WEBCAPTURE.
    static QString workerProgram();

    // Returns when the capture is done; the event loop turns meanwhile.
    Result capture(const QUrl& url, const QVariantMap& parameters);

    bool isWorkerRunning() const { return m_worker.state() != QProcess::NotRunning; }

private:
    bool startWorker(QString* error);
    void readAnswers();
    void stopWorker();

    QProcess m_worker;
    QTimer m_idle;
    QByteArray m_pending;
    std::map<quint64, Result> m_answers;
    quint64 m_nextId = 1;
    int m_busy = 0;
};

} // namespace quirepad
