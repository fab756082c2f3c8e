#pragma once

#include "foundation/Error.h"
#include "foundation/Notification.h"

#include <QElapsedTimer>
#include <QString>
#include <QStringList>

#include <memory>

namespace quirepad {

// Everything the program asks of the user or tells the user goes through one
// DialogService: message boxes on a desktop, a scripted stand-in in tests and
// headless runs. Used from the GUI thread only.
class DialogService
{
public:
    // Response code of the first (default) button of an alert.
    static constexpr int FirstButtonResponse = 1000;

    virtual ~DialogService();

    // A message with a single default OK button; answers the button's response.
    virtual int alert(const QString& message, const QString& informative) = 0;
    // An error presented as messageFor(error) / informativeFor(error).
    virtual int error(const Error& error) = 0;
    // Two choices; the negative one is the default button (Return) and the
    // escape button. True exactly when the affirmative one was chosen.
    virtual bool question(const QString& message, const QString& informative, const QString& affirmativeTitle,
        const QString& negativeTitle)
        = 0;
    // A single-line text field filled with initialValue. The entered text when
    // confirmed with something in it, otherwise a null string.
    virtual QString prompt(const QString& message, const QString& informative, const QString& initialValue,
        const QString& confirmTitle, const QString& cancelTitle)
        = 0;
    // A save panel opened on the suggested path's folder with its file name
    // filled in. The chosen path, or a null string when cancelled.
    virtual QString chooseSaveFile(const QString& suggestedPath) = 0;
    // An open panel for several files matching a name filter ("PDF
    // documents (*.pdf)"). The chosen paths; none when cancelled.
    virtual QStringList chooseOpenFiles(const QString& nameFilter) = 0;

    // A passing desktop notification; revealPath (when not empty) is the file
    // shown in the file manager when the user activates it.
    virtual void notify(const QString& title, const QString& text, const QString& revealPath) = 0;
    // A notification with actions, a tag or a progress; services that
    // show none of that pass on its title, text and folder to notify().
    virtual void post(const Notification& notification);
    // Takes the notification posted under tag off the screen.
    virtual void withdraw(const QString& tag);

    // The headline and the explanatory text an error is presented with.
    static QString messageFor(const Error& error);
    static QString informativeFor(const Error& error);

    // The process-wide service; a ScriptedDialogService until one is set.
    static DialogService& current();
    // Replaces the process-wide service; null restores the scripted default.
    static void setCurrent(std::unique_ptr<DialogService> service);
    // Replaces the process-wide service and hands back the one it replaces
    // (null when none was set), so that it can be put back later.
    static std::unique_ptr<DialogService> exchangeCurrent(std::unique_ptr<DialogService> service);

    // A burst of the same notification (a batch of deliveries) is shown
    // once per kRepeatMs, not once per file: whether this one repeats the
    // last one shown that recently (then it is not shown); notes it as
    // shown otherwise.
    static constexpr qint64 kRepeatMs = 2000;
    bool isRepeatedNotification(const QString& title, const QString& text);

protected:
    DialogService() = default;
    DialogService(const DialogService&) = delete;
    DialogService& operator=(const DialogService&) = delete;

private:
    QString m_lastNotification;
    QElapsedTimer m_sinceNotification;
};

} // namespace quirepad
