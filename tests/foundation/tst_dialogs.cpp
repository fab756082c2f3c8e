#include "TestRegistry.h"

#include "foundation/DialogService.h"
#include "foundation/QtDialogService.h"
#include "foundation/ScriptedDialogService.h"
#include "foundation/UserDefaults.h"
#include "foundation/dialogs.h"

#include <QApplication>
#include <QDBusConnection>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <functional>

using namespace quirepad;
using Kind = ScriptedDialogService::Kind;

Q_DECLARE_METATYPE(Kind)

namespace {

// Bumped after every test function, so that a watch left over from one test
// never acts on the windows of another.
int s_watchGeneration = 0;

// Runs action on the application-modal window once it is up; the timer is
// served by the dialog's own event loop. Should the action leave the window
// open, a watchdog rejects it after a while so the test fails instead of
// hanging, and *watchdogFired tells.
void whenModalShows(std::function<void(QWidget*)> action, bool* watchdogFired, int attemptsLeft = 500,
    int generation = s_watchGeneration)
{
    QTimer::singleShot(10, qApp, [action, watchdogFired, attemptsLeft, generation] {
        if (generation != s_watchGeneration)
            return;
        QWidget* modal = QApplication::activeModalWidget();
        if (!modal) {
            if (attemptsLeft > 0)
                whenModalShows(action, watchdogFired, attemptsLeft - 1, generation);
            return;
        }
        action(modal);
        QPointer<QWidget> stillOpen = modal;
        QTimer::singleShot(5000, qApp, [stillOpen, watchdogFired] {
            if (stillOpen && stillOpen->isVisible()) {
                *watchdogFired = true;
                if (auto* dialog = qobject_cast<QDialog*>(stillOpen.data()))
                    dialog->reject();
            }
        });
    });
}

// One dialog of the given kind, with fixed buttons and initial value; the
// answer as a variant, invalid for a null prompt answer.
QVariant ask(Kind kind, const QString& text)
{
    switch (kind) {
    case Kind::Alert:
        return MYDisplayAlert(text);
    case Kind::Question:
        return MYDisplayQuestion(text, QStringLiteral("Delete"), QStringLiteral("Keep"));
    default: {
        const QString answer
            = MYDisplayPrompt(text, QStringLiteral("untitled"), QStringLiteral("Save"), QStringLiteral("Cancel"));
        return answer.isNull() ? QVariant() : QVariant(answer);
    }
    }
}

// The headline and explanation as the window shows them, "|" after each.
QString shownText(QWidget* window)
{
    if (auto* box = qobject_cast<QMessageBox*>(window))
        return box->text() + u'|' + box->informativeText() + u'|';
    QString text;
    for (QLabel* label : window->findChildren<QLabel*>())
        text += label->text() + u'|';
    return text;
}

// Carries out steps on a window: "Return", "Escape", "clear", "type <text>"
// into the prompt field, "click <button title>".
void perform(QWidget* window, const QStringList& steps)
{
    auto* field = window->findChild<QLineEdit*>(QLatin1String(QtDialogService::PromptFieldName));
    for (const QString& step : steps) {
        if (step == QLatin1String("Return") || step == QLatin1String("Escape"))
            QTest::keyClick(window, step == QLatin1String("Return") ? Qt::Key_Return : Qt::Key_Escape);
        else if (step == QLatin1String("clear") && field)
            field->clear();
        else if (step.startsWith(QLatin1String("type ")) && field)
            QTest::keyClicks(field, step.mid(5));
        for (QPushButton* button : window->findChildren<QPushButton*>()) {
            if (step == QLatin1String("click ") + button->text())
                QTest::mouseClick(button, Qt::LeftButton);
        }
    }
}

} // namespace

class DialogsTest : public QObject
{
    Q_OBJECT

private:
    ScriptedDialogService* m_scripted = nullptr;

private slots:
    void init()
    {
        auto scripted = std::make_unique<ScriptedDialogService>();
        m_scripted = scripted.get();
        DialogService::setCurrent(std::move(scripted));
    }

    void cleanup()
    {
        ++s_watchGeneration;
        m_scripted = nullptr;
        DialogService::setCurrent(nullptr);
        UserDefaults::setStandard(nullptr);
    }

    void scriptedServiceIsTheDefault()
    {
        DialogService::setCurrent(nullptr);
        QVERIFY(dynamic_cast<ScriptedDialogService*>(&DialogService::current()) != nullptr);
    }

    void textSplitsAtFirstNewline_data()
    {
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("informative");
        QTest::newRow("alert, one line") << Kind::Alert << "Printing finished" << "Printing finished" << "";
        QTest::newRow("alert, several lines") << Kind::Alert << "Title\nfirst\nsecond\n" << "Title"
                                              << "first\nsecond\n";
        QTest::newRow("alert, leading newline") << Kind::Alert << "\nonly details" << "" << "only details";
        QTest::newRow("alert, percent signs") << Kind::Alert << "100% done\n50%d left" << "100% done" << "50%d left";
        QTest::newRow("question, one line") << Kind::Question << "Overwrite the file?" << "Alert"
                                            << "Overwrite the file?";
        QTest::newRow("question, several lines") << Kind::Question << "A\nB\nC" << "A" << "B\nC";
        QTest::newRow("prompt, one line") << Kind::Prompt << "Use %@ or 100%" << "Prompt" << "Use %@ or 100%";
        QTest::newRow("prompt, several lines") << Kind::Prompt << "Save as\nline 1\nline 2" << "Save as"
                                               << "line 1\nline 2";
    }

    void textSplitsAtFirstNewline()
    {
        QFETCH(Kind, kind);
        QFETCH(QString, text);
        QFETCH(QString, message);
        QFETCH(QString, informative);
        ask(kind, text);
        QCOMPARE(m_scripted->interactions().size(), 1);
        const auto& shown = m_scripted->interactions().constFirst();
        QCOMPARE(shown.kind, kind);
        QCOMPARE(shown.message, message);
        QCOMPARE(shown.informative, informative);
    }

    void buttonsAndDefaults()
    {
        // Unscripted answers are those of Return: the default button.
        QCOMPARE(ask(Kind::Alert, QStringLiteral("hello")), QVariant(1000));
        QCOMPARE(ask(Kind::Question, QStringLiteral("Delete?")), QVariant(false));
        QCOMPARE(ask(Kind::Prompt, QStringLiteral("Name")), QVariant(QStringLiteral("untitled")));
        const auto& shown = m_scripted->interactions();
        QCOMPARE(shown.at(0).defaultButton, QStringLiteral("OK"));
        // The negative answer is the default button of a question.
        QCOMPARE(shown.at(1).defaultButton, QStringLiteral("Keep"));
        QCOMPARE(shown.at(1).alternateButton, QStringLiteral("Delete"));
        QCOMPARE(shown.at(2).defaultButton, QStringLiteral("Save"));
        QCOMPARE(shown.at(2).alternateButton, QStringLiteral("Cancel"));
        QCOMPARE(shown.at(2).initialValue, QStringLiteral("untitled"));
        QVERIFY(MYDisplayPrompt(QStringLiteral("Name"), QString(), QStringLiteral("OK"), QStringLiteral("Cancel"))
                    .isNull());
    }

    void scriptedAnswersAreUsedInOrder()
    {
        for (const QVariant& answer : { QVariant(1001), QVariant(true), QVariant(false),
                 QVariant(QStringLiteral("report.pdf")), QVariant(), QVariant(QStringLiteral("")) })
            m_scripted->enqueueAnswer(answer);

        QCOMPARE(ask(Kind::Alert, QStringLiteral("first")), QVariant(1001));
        QCOMPARE(ask(Kind::Question, QStringLiteral("Go on?")), QVariant(true));
        QCOMPARE(ask(Kind::Question, QStringLiteral("Really?")), QVariant(false));
        QCOMPARE(ask(Kind::Prompt, QStringLiteral("Name")), QVariant(QStringLiteral("report.pdf")));
        QCOMPARE(ask(Kind::Prompt, QStringLiteral("Cancelled")), QVariant());
        // An empty answer to a prompt is no answer.
        QCOMPARE(ask(Kind::Prompt, QStringLiteral("Emptied")), QVariant());
        QVERIFY(!m_scripted->interactions().at(5).answer.isValid());
        QCOMPARE(m_scripted->pendingAnswers(), 0);
    }

    void errorShowsDescriptionAndExplanation()
    {
        Error error;
        error.domain = QStringLiteral("quirepad.files");
        error.code = 4;
        error.description = QStringLiteral("The document could not be saved.");
        error.failureReason = QStringLiteral("The disk is full.");
        error.recoverySuggestion = QStringLiteral("Free some space and try again.");
        QCOMPARE(MYDisplayError(error), DialogService::FirstButtonResponse);
        Error bare;
        bare.domain = QStringLiteral("quirepad.net");
        bare.code = 7;
        MYDisplayError(bare);

        const auto& shown = m_scripted->interactions().at(0);
        QCOMPARE(shown.kind, Kind::Error);
        QCOMPARE(shown.message, error.description);
        QVERIFY(shown.informative.contains(error.failureReason));
        QVERIFY(shown.informative.contains(error.recoverySuggestion));
        const auto& bareShown = m_scripted->interactions().at(1);
        QVERIFY(bareShown.message.contains(QStringLiteral("quirepad.net")) && bareShown.message.contains(u'7'));
        QVERIFY(bareShown.informative.isEmpty());
    }

    void notificationsCanBeDisabled()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        auto defaults = std::make_unique<UserDefaults>(dir.filePath(QStringLiteral("settings.ini")));
        UserDefaults* settings = defaults.get();
        UserDefaults::setStandard(std::move(defaults));

        settings->setValue(QStringLiteral("disable_all_displaynotifications"), true);
        MYDisplayNotification(QStringLiteral("Hidden"), QStringLiteral("not shown"));
        QCOMPARE(m_scripted->interactions().size(), 0);

        settings->setValue(QStringLiteral("disable_all_displaynotifications"), false);
        MYDisplayNotification(QStringLiteral("Saved"), QStringLiteral("r.pdf is ready"), QStringLiteral("/tmp/r.pdf"));
        QCOMPARE(m_scripted->interactions().size(), 1);
        const auto& posted = m_scripted->interactions().constFirst();
        QCOMPARE(posted.kind, Kind::Notification);
        QCOMPARE(posted.message, QStringLiteral("Saved"));
        QCOMPARE(posted.informative, QStringLiteral("r.pdf is ready"));
        QCOMPARE(posted.revealPath, QStringLiteral("/tmp/r.pdf"));
    }


    // A batch posts the same notification per file: it shows once, a
    // different one shows at once, and the interactions kept stay bounded.
    void repeatedNotificationsShowOnce()
    {
        for (int i = 0; i < 5; ++i)
            MYDisplayNotification(QStringLiteral("Quirepad"), QStringLiteral("File Copied"), QStringLiteral("/tmp/%1").arg(i));
        MYDisplayNotification(QStringLiteral("Quirepad"), QStringLiteral("processing files"));
        MYDisplayNotification(QStringLiteral("Quirepad"), QStringLiteral("File Copied"));
        QStringList shown;
        for (const auto& posted : m_scripted->interactions())
            shown << posted.informative + u' ' + posted.revealPath;
        QCOMPARE(shown, (QStringList{"File Copied /tmp/0", "processing files ", "File Copied "}));

        for (int i = 0; i < 3 * ScriptedDialogService::kKeptInteractions; ++i)
            m_scripted->alert(QStringLiteral("Alert %1").arg(i), QString());
        QVERIFY(m_scripted->interactions().size() <= 2 * ScriptedDialogService::kKeptInteractions);
        QCOMPARE(m_scripted->interactions().constLast().message,
                 QStringLiteral("Alert %1").arg(3 * ScriptedDialogService::kKeptInteractions - 1));
    }
    // Real windows, answered with the keyboard and the mouse.
    void windowAnswers_data()
    {
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QVariant>("answer");
        QTest::newRow("alert, Return") << Kind::Alert << "Printed\n<b>12</b> pages" << QStringList { "Return" }
                                       << "Printed|<b>12</b> pages|" << QVariant(1000);
        QTest::newRow("question, Return") << Kind::Question << "Delete the file?" << QStringList { "Return" }
                                          << "Alert|Delete the file?|" << QVariant(false);
        QTest::newRow("question, Escape") << Kind::Question << "Delete?" << QStringList { "Escape" }
                                          << "Alert|Delete?|" << QVariant(false);
        QTest::newRow("question, affirmative") << Kind::Question << "Delete?\nIt cannot be undone."
                                               << QStringList { "click Delete" } << "Delete?|It cannot be undone.|"
                                               << QVariant(true);
        QTest::newRow("prompt, typed") << Kind::Prompt << "Save as\nName the 100% copy"
                                       << QStringList { "clear", "type Quarterly report", "Return" }
                                       << "Save as|Name the 100% copy|" << QVariant(QStringLiteral("Quarterly report"));
        QTest::newRow("prompt, Return") << Kind::Prompt << "Name" << QStringList { "Return" } << "Prompt|Name|"
                                        << QVariant(QStringLiteral("untitled"));
        QTest::newRow("prompt, cleared") << Kind::Prompt << "Name" << QStringList { "clear", "Return" }
                                         << "Prompt|Name|" << QVariant();
        QTest::newRow("prompt, Escape") << Kind::Prompt << "Name" << QStringList { "type  edited", "Escape" }
                                        << "Prompt|Name|" << QVariant();
        QTest::newRow("prompt, cancel button") << Kind::Prompt << "Name" << QStringList { "click Cancel" }
                                               << "Prompt|Name|" << QVariant();
    }

    void windowAnswers()
    {
        QFETCH(Kind, kind);
        QFETCH(QString, text);
        QFETCH(QStringList, steps);
        QFETCH(QString, shown);
        QFETCH(QVariant, answer);
        // A bus that is never connected keeps notifications in the log.
        DialogService::setCurrent(
            std::make_unique<QtDialogService>(QDBusConnection(QStringLiteral("quirepad-no-bus"))));
        m_scripted = nullptr;
        bool watchdogFired = false;
        QString seen;
        whenModalShows(
            [&](QWidget* modal) {
                seen = shownText(modal);
                perform(modal, steps);
            },
            &watchdogFired);
        const QVariant given = ask(kind, text);
        QVERIFY(!watchdogFired);
        QCOMPARE(given, answer);
        QCOMPARE(seen, shown);
    }
};

QUIREPAD_REGISTER_TEST(DialogsTest);
#include "tst_dialogs.moc"
