#pragma once

#include "foundation/DialogService.h"

#include <QList>
#include <QString>

namespace quirepad {

// The dialog service while work started from a command line runs: nothing
// is shown and nobody is waited for. What would have been shown becomes a
// report for the command's standard error. Questions take their default
// (negative) answer; alerts and errors, and prompts and file panels (which
// are cancelled), mean the work was not done as asked. Notifications are
// dropped: the command prints its own results.
class CommandLineDialogService final : public DialogService
{
public:
    struct Report {
        QString text; // one line, without "quirepad: " or a newline
        QString detail; // the explanation's first paragraph (may be empty)
        bool failure = false;
    };

    const QList<Report>& reports() const { return m_reports; }
    bool failed() const;

    int alert(const QString& message, const QString& informative) override;
    int error(const Error& error) override;
    bool question(const QString& message, const QString& informative, const QString& affirmativeTitle,
        const QString& negativeTitle) override;
    QString prompt(const QString& message, const QString& informative, const QString& initialValue,
        const QString& confirmTitle, const QString& cancelTitle) override;
    QString chooseSaveFile(const QString& suggestedPath) override;
    QStringList chooseOpenFiles(const QString& nameFilter) override;
    void notify(const QString& title, const QString& text, const QString& revealPath) override;

private:
    void report(const QString& message, const QString& informative, bool failure);

    QList<Report> m_reports;
};

} // namespace quirepad
