#pragma once

#include "foundation/DialogService.h"

#include <QList>
#include <QQueue>
#include <QString>
#include <QVariant>

namespace quirepad {

// A DialogService without windows: it records every interaction, logs it, and
// answers from a queue of scripted answers. With the queue empty it answers
// as a user pressing Return would: OK for alerts and errors, the negative
// (default) button for questions, the initial value (or nothing) for prompts.
class ScriptedDialogService final : public DialogService
{
public:
    enum class Kind { Alert, Error, Question, Prompt, Notification, SavePanel, OpenPanel };

    struct Interaction {
        Kind kind = Kind::Alert;
        QString message; // notifications: the title
        QString informative; // notifications: the text
        QString defaultButton; // the button Return activates
        QString alternateButton; // questions: affirmative; prompts: cancel
        QString initialValue; // prompts
        QString revealPath; // notifications
        QVariant answer; // what was answered (invalid for notifications)
        // Notifications: the file to open, the labels of the actions
        // offered, the tag and the progress.
        QString openPath;
        QStringList actions;
        QString tag;
        int progress = -1;
    };

    ScriptedDialogService() = default;

    // Queues the answer to a coming interaction (first in, first out):
    // int for alerts and errors, bool for questions, QString or an invalid
    // QVariant (nothing entered / cancelled) for prompts, QStringList for
    // open panels.
    void enqueueAnswer(const QVariant& answer);
    qsizetype pendingAnswers() const { return m_answers.size(); }

    // The recent interactions (at least the last kKeptInteractions).
    static constexpr qsizetype kKeptInteractions = 256;
    const QList<Interaction>& interactions() const { return m_interactions; }
    void clearInteractions() { m_interactions.clear(); }

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
    // Runs the callback of the action with this label of the latest
    // notification offering one, as a click on it would; false when none.
    bool triggerAction(const QString& label);
    // The tags withdrawn, in order.
    const QStringList& withdrawn() const { return m_withdrawn; }

    static QString kindName(Kind kind);

private:
    // The next scripted answer; an invalid QVariant when none is queued.
    QVariant takeAnswer(bool* scripted);
    int buttonAnswer(Kind kind);
    void record(Interaction interaction);

    QQueue<QVariant> m_answers;
    QList<Interaction> m_interactions;
    QList<Notification::Action> m_actions; // of the recent notifications
    QStringList m_withdrawn;
};

} // namespace quirepad
