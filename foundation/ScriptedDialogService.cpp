#include "foundation/ScriptedDialogService.h"

#include "foundation/Log.h"

#include <QCoreApplication>

namespace quirepad {

namespace {
QString okTitle()
{
    return QCoreApplication::translate("DialogService", "OK");
}
} // namespace

void ScriptedDialogService::enqueueAnswer(const QVariant& answer)
{
    m_answers.enqueue(answer);
}

QString ScriptedDialogService::kindName(Kind kind)
{
    switch (kind) {
    case Kind::Alert:
        return QStringLiteral("alert");
    case Kind::Error:
        return QStringLiteral("error");
    case Kind::Question:
        return QStringLiteral("question");
    case Kind::Prompt:
        return QStringLiteral("prompt");
    case Kind::Notification:
        return QStringLiteral("notification");
    case Kind::SavePanel:
        return QStringLiteral("save panel");
    case Kind::OpenPanel:
        return QStringLiteral("open panel");
    }
    return QString();
}

QVariant ScriptedDialogService::takeAnswer(bool* scripted)
{
    *scripted = !m_answers.isEmpty();
    return *scripted ? m_answers.dequeue() : QVariant();
}

int ScriptedDialogService::buttonAnswer(Kind kind)
{
    bool scripted = false;
    const QVariant answer = takeAnswer(&scripted);
    if (!scripted)
        return FirstButtonResponse;
    bool isNumber = false;
    const int response = answer.toInt(&isNumber);
    if (isNumber && answer.typeId() != QMetaType::Bool)
        return response;
    qCWarning(lcDesktop) << "scripted answer" << answer << "does not fit a" << kindName(kind)
                         << "- answering with the default button";
    return FirstButtonResponse;
}

void ScriptedDialogService::record(Interaction interaction)
{
    QString line = kindName(interaction.kind) + QStringLiteral(": \"") + interaction.message + u'"';
    if (!interaction.informative.isEmpty())
        line += QStringLiteral(" \"") + interaction.informative + u'"';
    if (interaction.kind == Kind::Notification) {
        if (!interaction.revealPath.isEmpty())
            line += QStringLiteral(" reveal ") + interaction.revealPath;
    } else {
        line += QStringLiteral(" -> ")
            + (interaction.answer.isValid() ? interaction.answer.toString() : QStringLiteral("(nothing)"));
    }
    qCInfo(lcDesktop).noquote() << line;
    // A long-running instance keeps the recent ones only.
    if (m_interactions.size() >= 2 * kKeptInteractions)
        m_interactions.remove(0, kKeptInteractions);
    m_interactions.append(std::move(interaction));
}

int ScriptedDialogService::alert(const QString& message, const QString& informative)
{
    const int response = buttonAnswer(Kind::Alert);
    record({ Kind::Alert, message, informative, okTitle(), QString(), QString(), QString(), response, QString(), QStringList(), QString(), -1 });
    return response;
}

int ScriptedDialogService::error(const quirepad::Error& error)
{
    const int response = buttonAnswer(Kind::Error);
    record({ Kind::Error, messageFor(error), informativeFor(error), okTitle(), QString(), QString(), QString(),
        response, QString(), QStringList(), QString(), -1 });
    return response;
}

bool ScriptedDialogService::question(
    const QString& message, const QString& informative, const QString& affirmativeTitle, const QString& negativeTitle)
{
    bool scripted = false;
    const QVariant answer = takeAnswer(&scripted);
    bool affirmative = false;
    if (scripted) {
        if (answer.typeId() == QMetaType::Bool)
            affirmative = answer.toBool();
        else
            qCWarning(lcDesktop) << "scripted answer" << answer
                                 << "does not fit a question - answering with the default button";
    }
    record(
        { Kind::Question, message, informative, negativeTitle, affirmativeTitle, QString(), QString(), affirmative,
            QString(), QStringList(), QString(), -1 });
    return affirmative;
}

QString ScriptedDialogService::prompt(const QString& message, const QString& informative, const QString& initialValue,
    const QString& confirmTitle, const QString& cancelTitle)
{
    bool scripted = false;
    const QVariant answer = takeAnswer(&scripted);
    QString entered;
    if (!scripted) {
        entered = initialValue;
    } else if (answer.typeId() == QMetaType::QString) {
        entered = answer.toString();
    } else if (answer.isValid()) {
        qCWarning(lcDesktop) << "scripted answer" << answer << "does not fit a prompt - answering with nothing";
    }
    // An empty field confirmed counts as no answer, like cancelling.
    const QString result = entered.isEmpty() ? QString() : entered;
    record({ Kind::Prompt, message, informative, confirmTitle, cancelTitle, initialValue, QString(),
        result.isNull() ? QVariant() : QVariant(result), QString(), QStringList(), QString(), -1 });
    return result;
}

QString ScriptedDialogService::chooseSaveFile(const QString& suggestedPath)
{
    // Unscripted, it saves under the suggested name, as Return would.
    bool scripted = false;
    const QVariant answer = takeAnswer(&scripted);
    const QString chosen = scripted ? (answer.typeId() == QMetaType::QString ? answer.toString() : QString())
                                    : suggestedPath;
    record({ Kind::SavePanel, suggestedPath, QString(), QString(), QString(), suggestedPath, QString(),
        chosen.isNull() ? QVariant() : QVariant(chosen), QString(), QStringList(), QString(), -1 });
    return chosen;
}

QStringList ScriptedDialogService::chooseOpenFiles(const QString& nameFilter)
{
    // Unscripted, it is cancelled: there is nothing to choose from.
    bool scripted = false;
    const QVariant answer = takeAnswer(&scripted);
    const QStringList chosen = scripted ? answer.toStringList() : QStringList();
    record({ Kind::OpenPanel, nameFilter, QString(), QString(), QString(), QString(), QString(),
        chosen.isEmpty() ? QVariant() : QVariant(chosen), QString(), QStringList(), QString(), -1 });
    return chosen;
}

void ScriptedDialogService::notify(const QString& title, const QString& text, const QString& revealPath)
{
    record({ Kind::Notification, title, text, QString(), QString(), QString(), revealPath, QVariant(), QString(), QStringList(), QString(), -1 });
}

void ScriptedDialogService::post(const Notification& notification)
{
    record({ Kind::Notification, notification.title, notification.text, QString(), QString(), QString(),
        notification.revealPath, QVariant(), notification.openPath, notification.actionLabels(), notification.tag,
        notification.progress });
    for (const Notification::Action& action : notification.actions)
        m_actions.prepend(action);
    if (m_actions.size() > kKeptInteractions)
        m_actions.resize(kKeptInteractions);
}

void ScriptedDialogService::withdraw(const QString& tag)
{
    m_withdrawn << tag;
}

bool ScriptedDialogService::triggerAction(const QString& label)
{
    for (const Notification::Action& action : std::as_const(m_actions)) {
        if (action.label == label && action.run) {
            const auto run = action.run; // the callback may post again
            run();
            return true;
        }
    }
    return false;
}

} // namespace quirepad
