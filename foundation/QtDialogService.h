#pragma once

#include "foundation/DialogService.h"

#include <QDBusConnection>

#include <memory>

namespace quirepad {

class FreedesktopNotifier;

// Dialogs as application-modal Qt windows: message boxes for alerts, errors
// and questions, a small text-entry dialog for prompts. Notifications go to
// the desktop's notification service.
class QtDialogService final : public DialogService
{
public:
    explicit QtDialogService(const QDBusConnection& sessionBus = QDBusConnection::sessionBus());
    ~QtDialogService() override;

    int alert(const QString& message, const QString& informative) override;
    int error(const quirepad::Error& error) override;
    bool question(const QString& message, const QString& informative, const QString& affirmativeTitle,
        const QString& negativeTitle) override;
    QString prompt(const QString& message, const QString& informative, const QString& initialValue,
        const QString& confirmTitle, const QString& cancelTitle) override;
    QString chooseSaveFile(const QString& suggestedPath) override;
    QStringList chooseOpenFiles(const QString& nameFilter) override;
    void notify(const QString& title, const QString& text, const QString& revealPath) override;
    void post(const Notification& notification) override;
    void withdraw(const QString& tag) override;

    // Object names of the prompt's widgets.
    static constexpr const char* PromptFieldName = "promptField";
    static constexpr const char* PromptConfirmName = "promptConfirm";
    static constexpr const char* PromptCancelName = "promptCancel";

private:
    std::unique_ptr<FreedesktopNotifier> m_notifier;
};

} // namespace quirepad
