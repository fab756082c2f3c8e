#include "foundation/dialogs.h"

#include "foundation/DialogService.h"
#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"

#include <QApplication>
#include <QWidget>

namespace quirepad {

namespace {

struct SplitText {
    QString message;
    QString informative;
};

// Splits at the first newline. Without one the text either is the headline
// (no fallback given) or explains under the fallback headline.
SplitText splitText(const QString& text, const QString& fallbackMessage = QString())
{
    const qsizetype newline = text.indexOf(u'\n');
    if (newline >= 0)
        return { text.left(newline), text.mid(newline + 1) };
    if (fallbackMessage.isNull())
        return { text, QString() };
    return { fallbackMessage, text };
}

QString orDefault(const QString& title, const char* fallback)
{
    return title.isEmpty() ? QCoreApplication::translate("DialogService", fallback) : title;
}

// Flashes the taskbar entry (or the like) when the program is in the
// background; nothing happens when it is in front or has no windows.
void requestAttention()
{
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
        return;
    // Without an active window every top-level window asks for attention.
    QApplication::alert(QApplication::activeWindow());
}

} // namespace

int MYDisplayAlert(const QString& text)
{
    const SplitText split = splitText(text);
    requestAttention();
    return DialogService::current().alert(split.message, split.informative);
}

int MYDisplayError(const Error& error)
{
    requestAttention();
    return DialogService::current().error(error);
}

bool MYDisplayQuestion(const QString& text, const QString& affirmative, const QString& negative)
{
    const SplitText split = splitText(text, QCoreApplication::translate("DialogService", "Alert"));
    requestAttention();
    return DialogService::current().question(
        split.message, split.informative, orDefault(affirmative, "OK"), orDefault(negative, "Cancel"));
}

QString MYDisplayPrompt(const QString& text, const QString& initial, const QString& confirm, const QString& cancel)
{
    const SplitText split = splitText(text, QCoreApplication::translate("DialogService", "Prompt"));
    const QString entered = DialogService::current().prompt(
        split.message, split.informative, initial, orDefault(confirm, "OK"), orDefault(cancel, "Cancel"));
    return entered.isEmpty() ? QString() : entered;
}

void MYDisplayNotification(const QString& title, const QString& text, const QString& revealPath)
{
    Notification notification;
    notification.title = title;
    notification.text = text;
    notification.revealPath = revealPath;
    MYDisplayNotification(notification);
}

void MYDisplayNotification(const Notification& notification)
{
    DialogService& service = DialogService::current();
    if (UserDefaults::standard().boolValue(SettingKey::DisableNotifications))
        return;
    if (notification.tag.isEmpty() && service.isRepeatedNotification(notification.title, notification.text))
        return;
    service.post(notification);
}

void MYWithdrawNotification(const QString& tag)
{
    DialogService::current().withdraw(tag);
}

} // namespace quirepad
