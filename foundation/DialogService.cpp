#include "foundation/DialogService.h"

#include "foundation/ScriptedDialogService.h"

#include <QCoreApplication>
#include <QStringList>

namespace quirepad {

namespace {
std::unique_ptr<DialogService>& currentInstance()
{
    static std::unique_ptr<DialogService> instance;
    return instance;
}
} // namespace

DialogService::~DialogService() = default;

void DialogService::post(const Notification& notification)
{
    notify(notification.title, notification.text, notification.revealPath);
}

void DialogService::withdraw(const QString& tag)
{
    Q_UNUSED(tag);
}

QString DialogService::messageFor(const Error& error)
{
    if (!error.description.isEmpty())
        return error.description;
    if (!error.domain.isEmpty())
        return QCoreApplication::translate("DialogService", "The operation couldn't be completed. (%1 error %2.)")
            .arg(error.domain)
            .arg(error.code);
    return QCoreApplication::translate("DialogService", "The operation couldn't be completed.");
}

QString DialogService::informativeFor(const Error& error)
{
    QStringList parts;
    if (!error.failureReason.isEmpty())
        parts << error.failureReason;
    if (!error.recoverySuggestion.isEmpty())
        parts << error.recoverySuggestion;
    return parts.join(QStringLiteral("\n\n"));
}

bool DialogService::isRepeatedNotification(const QString& title, const QString& text)
{
    const QString key = title + u'\n' + text;
    if (key == m_lastNotification && m_sinceNotification.isValid() && m_sinceNotification.elapsed() < kRepeatMs)
        return true;
    m_lastNotification = key;
    m_sinceNotification.start();
    return false;
}

DialogService& DialogService::current()
{
    auto& instance = currentInstance();
    if (!instance)
        instance = std::make_unique<ScriptedDialogService>();
    return *instance;
}

void DialogService::setCurrent(std::unique_ptr<DialogService> service)
{
    currentInstance() = std::move(service);
}

std::unique_ptr<DialogService> DialogService::exchangeCurrent(std::unique_ptr<DialogService> service)
{
    std::unique_ptr<DialogService> previous = std::move(currentInstance());
    currentInstance() = std::move(service);
    return previous;
}

} // namespace quirepad
