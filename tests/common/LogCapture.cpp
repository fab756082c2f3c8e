#include "LogCapture.h"

namespace quirepad::test {

namespace {
LogCapture* s_active = nullptr;
}

LogCapture::LogCapture()
{
    s_active = this;
    m_previous = qInstallMessageHandler(&LogCapture::handler);
}

LogCapture::~LogCapture()
{
    qInstallMessageHandler(m_previous);
    s_active = nullptr;
}

QStringList LogCapture::messages() const
{
    QMutexLocker lock(&m_mutex);
    return m_messages;
}

int LogCapture::count(const QString& fragment) const
{
    QMutexLocker lock(&m_mutex);
    int n = 0;
    for (const QString& message : m_messages)
        n += message.contains(fragment) ? 1 : 0;
    return n;
}

void LogCapture::handler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (!s_active)
        return;
    {
        QMutexLocker lock(&s_active->m_mutex);
        s_active->m_messages << message;
    }
    if (s_active->m_previous)
        s_active->m_previous(type, context, message);
}

} // namespace quirepad::test
