#include "CommandLineDialogService.h"

#include <QStringList>

#include <algorithm>

namespace quirepad {

bool CommandLineDialogService::failed() const
{
    return std::any_of(m_reports.cbegin(), m_reports.cend(), [](const Report& r) { return r.failure; });
}

void CommandLineDialogService::report(const QString& message, const QString& informative, bool failure)
{
    QString text = message.simplified();
    const QString explanation = informative.simplified();
    if (!explanation.isEmpty()) {
        const bool closed = text.endsWith(u'.') || text.endsWith(u'?') || text.endsWith(u'!') || text.endsWith(u':');
        text += (text.isEmpty() || closed ? QStringLiteral(" ") : QStringLiteral(": ")) + explanation;
    }
    const QString detail = informative.section(QStringLiteral("\n\n"), 0, 0).simplified();
    m_reports.append({ text.trimmed(), detail, failure });
}

int CommandLineDialogService::alert(const QString& message, const QString& informative)
{
    report(message, informative, true);
    return FirstButtonResponse;
}

int CommandLineDialogService::error(const Error& error)
{
    report(messageFor(error), informativeFor(error), true);
    return FirstButtonResponse;
}

bool CommandLineDialogService::question(
    const QString& message, const QString& informative, const QString& affirmativeTitle, const QString& negativeTitle)
{
    Q_UNUSED(affirmativeTitle);
    report(message, informative, false);
    m_reports.last().text += QStringLiteral(" (answered \"%1\")").arg(negativeTitle);
    return false;
}

QString CommandLineDialogService::prompt(const QString& message, const QString& informative,
    const QString& initialValue, const QString& confirmTitle, const QString& cancelTitle)
{
    Q_UNUSED(initialValue);
    Q_UNUSED(confirmTitle);
    Q_UNUSED(cancelTitle);
    report(message, informative, true);
    m_reports.last().text += QStringLiteral(" (nobody to answer from the command line)");
    return QString();
}

QString CommandLineDialogService::chooseSaveFile(const QString& suggestedPath)
{
    report(
        QStringLiteral("saving %1 needs a choice in a save panel, which a command line cannot show").arg(suggestedPath),
        QString(), true);
    return QString();
}

QStringList CommandLineDialogService::chooseOpenFiles(const QString& nameFilter)
{
    report(QStringLiteral("choosing %1 needs an open panel, which a command line cannot show").arg(nameFilter),
        QString(), true);
    return {};
}

void CommandLineDialogService::notify(const QString& title, const QString& text, const QString& revealPath)
{
    Q_UNUSED(title);
    Q_UNUSED(text);
    Q_UNUSED(revealPath);
}

} // namespace quirepad
