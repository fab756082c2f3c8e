#pragma once

#include <QMutex>
#include <QStringList>
#include <QtGlobal>

namespace quirepad::test {

// Collects every message logged while it lives (and still passes them on
// to the previous handler), so a test can check what was logged and how
// often.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    QStringList messages() const;
    int count(const QString& fragment) const;

private:
    static void handler(QtMsgType type, const QMessageLogContext& context, const QString& message);

    QtMessageHandler m_previous = nullptr;
    mutable QMutex m_mutex;
    QStringList m_messages;
};

} // namespace quirepad::test
