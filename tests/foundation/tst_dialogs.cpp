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

QPushButton* buttonTitled(QWidget* window, const QString& title)
{
    const auto buttons = window->findChildren<QPushButton*>();
    for (QPushButton* button : buttons) {
        if (button->text() == title)
            return button;
    }
    return nullptr;
}

} // namespace

class DialogsTest : public QObject
{
    Q_OBJECT

private:
    ScriptedDialogService* m_scripted = nullptr;
    bool m_watchdogFired = false;

    void useQtDialogs()
    {
        // Notifications are not exercised here; a bus that is never
        // connected keeps them in the log.
        DialogService::setCurrent(
            std::make_unique<QtDialogService>(QDBusConnection(QStringLiteral("quirepad-no-bus"))));
        m_scripted = nullptr;
    }

private slots:
    void init()
    {
        auto scripted = std::make_unique<ScriptedDialogService>();
        m_scripted = scripted.get();
        DialogService::setCurrent(std::move(scripted));
        m_watchdogFired = false;
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

    void alertSplitsAtFirstNewline_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("informative");
        QTest::newRow("one line") << "Printing finished"
                                  << "Printing finished"
                                  << "";
        QTest::newRow("two lines") << "Printing finished\n12 pages"
                                   << "Printing finished"
                                   << "12 pages";
        QTest::newRow("several lines") << "Title\nfirst\nsecond\n"
                                       << "Title"
                                       << "first\nsecond\n";
        QTest::newRow("leading newline") << "\nonly details"
                                         << ""
                                         << "only details";
        QTest::newRow("percent signs") << "100% done\n50%d left"
                                       << "100% done"
                                       << "50%d left";
    }

    void alertSplitsAtFirstNewline()
    {
        QFETCH(QString, text);
        QFETCH(QString, message);
        QFETCH(QString, informative);

        QCOMPARE(MYDisplayAlert(text), DialogService::FirstButtonResponse);
        QCOMPARE(m_scripted->interactions().size(), 1);
        const auto& shown = m_scripted->interactions().constFirst();
        QCOMPARE(shown.kind, Kind::Alert);
        QCOMPARE(shown.message, message);
        QCOMPARE(shown.informative, informative);
        QCOMPARE(shown.defaultButton, QStringLiteral("OK"));
    }

    void questionSplitsAtFirstNewline_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("informative");
        QTest::newRow("one line") << "Overwrite the file?"
                                  << "Alert"
                                  << "Overwrite the file?";
        QTest::newRow("two lines") << "Overwrite?\nThe file exists."
                                   << "Overwrite?"
                                   << "The file exists.";
        QTest::newRow("several lines") << "A\nB\nC"
                                       << "A"
                                       << "B\nC";
    }

    void questionSplitsAtFirstNewline()
    {
        QFETCH(QString, text);
        QFETCH(QString, message);
        QFETCH(QString, informative);

        QCOMPARE(MYDisplayQuestion(text, QStringLiteral("Replace"), QStringLiteral("Keep")), false);
        QCOMPARE(m_scripted->interactions().size(), 1);
        const auto& asked = m_scripted->interactions().constFirst();
        QCOMPARE(asked.kind, Kind::Question);
        QCOMPARE(asked.message, message);
        QCOMPARE(asked.informative, informative);
        // The negative answer is the default button.
        QCOMPARE(asked.defaultButton, QStringLiteral("Keep"));
        QCOMPARE(asked.alternateButton, QStringLiteral("Replace"));
    }

    void promptSplitsAtFirstNewline_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("informative");
        QTest::newRow("one line") << "Name the copy"
                                  << "Prompt"
                                  << "Name the copy";
        QTest::newRow("percent signs kept") << "Use %@ or 100%"
                                            << "Prompt"
                                            << "Use %@ or 100%";
        QTest::newRow("two lines") << "Save as\nChoose a name"
                                   << "Save as"
                                   << "Choose a name";
        QTest::newRow("several lines") << "Save as\nline 1\nline 2"
                                       << "Save as"
                                       << "line 1\nline 2";
    }

    void promptSplitsAtFirstNewline()
    {
        QFETCH(QString, text);
        QFETCH(QString, message);
        QFETCH(QString, informative);

        MYDisplayPrompt(text, QStringLiteral("draft"), QStringLiteral("Save"), QStringLiteral("Cancel"));
        QCOMPARE(m_scripted->interactions().size(), 1);
        const auto& asked = m_scripted->interactions().constFirst();
        QCOMPARE(asked.kind, Kind::Prompt);
        QCOMPARE(asked.message, message);
        QCOMPARE(asked.informative, informative);
        QCOMPARE(asked.initialValue, QStringLiteral("draft"));
        QCOMPARE(asked.defaultButton, QStringLiteral("Save"));
        QCOMPARE(asked.alternateButton, QStringLiteral("Cancel"));
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

        QCOMPARE(m_scripted->interactions().size(), 2);
        const auto& shown = m_scripted->interactions().at(0);
        QCOMPARE(shown.kind, Kind::Error);
        QCOMPARE(shown.message, error.description);
        QVERIFY(shown.informative.contains(error.failureReason));
        QVERIFY(shown.informative.contains(error.recoverySuggestion));
        const auto& bareShown = m_scripted->interactions().at(1);
        QVERIFY(bareShown.message.contains(QStringLiteral("quirepad.net")));
        QVERIFY(bareShown.message.contains(QStringLiteral("7")));
        QVERIFY(bareShown.informative.isEmpty());
    }

    void scriptedAnswersAreUsedInOrder()
    {
        m_scripted->enqueueAnswer(1001);
        m_scripted->enqueueAnswer(true);
        m_scripted->enqueueAnswer(false);
        m_scripted->enqueueAnswer(QStringLiteral("report.pdf"));
        m_scripted->enqueueAnswer(QVariant());
        QCOMPARE(m_scripted->pendingAnswers(), 5);

        QCOMPARE(MYDisplayAlert(QStringLiteral("first")), 1001);
        QCOMPARE(MYDisplayQuestion(QStringLiteral("Go on?"), QStringLiteral("Yes"), QStringLiteral("No")), true);
        QCOMPARE(MYDisplayQuestion(QStringLiteral("Really?"), QStringLiteral("Yes"), QStringLiteral("No")), false);
        QCOMPARE(MYDisplayPrompt(
                     QStringLiteral("Name"), QStringLiteral("x"), QStringLiteral("OK"), QStringLiteral("Cancel")),
            QStringLiteral("report.pdf"));
        const QString cancelled = MYDisplayPrompt(
            QStringLiteral("Name"), QStringLiteral("x"), QStringLiteral("OK"), QStringLiteral("Cancel"));
        QVERIFY(cancelled.isNull());
        QCOMPARE(m_scripted->pendingAnswers(), 0);
        QCOMPARE(m_scripted->interactions().size(), 5);
        QCOMPARE(m_scripted->interactions().at(1).answer, QVariant(true));
    }

    void unscriptedAnswersAreThoseOfReturn()
    {
        QCOMPARE(MYDisplayAlert(QStringLiteral("hello")), 1000);
        QCOMPARE(MYDisplayQuestion(QStringLiteral("Delete?"), QStringLiteral("Delete"), QStringLiteral("Keep")), false);
        QCOMPARE(MYDisplayPrompt(QStringLiteral("Name"), QStringLiteral("untitled"), QStringLiteral("OK"),
                     QStringLiteral("Cancel")),
            QStringLiteral("untitled"));
        QVERIFY(MYDisplayPrompt(QStringLiteral("Name"), QString(), QStringLiteral("OK"), QStringLiteral("Cancel"))
                    .isNull());
    }

    void emptyPromptAnswerIsNull()
    {
        m_scripted->enqueueAnswer(QString(QLatin1String("")));
        const QString answer = MYDisplayPrompt(
            QStringLiteral("Name"), QStringLiteral("old"), QStringLiteral("OK"), QStringLiteral("Cancel"));
        QVERIFY(answer.isNull());
        QVERIFY(!m_scripted->interactions().constFirst().answer.isValid());
    }

    void notificationsAreRecorded()
    {
        MYDisplayNotification(
            QStringLiteral("Saved"), QStringLiteral("report.pdf is ready"), QStringLiteral("/tmp/report.pdf"));
        QCOMPARE(m_scripted->interactions().size(), 1);
        const auto& posted = m_scripted->interactions().constFirst();
        QCOMPARE(posted.kind, Kind::Notification);
        QCOMPARE(posted.message, QStringLiteral("Saved"));
        QCOMPARE(posted.informative, QStringLiteral("report.pdf is ready"));
        QCOMPARE(posted.revealPath, QStringLiteral("/tmp/report.pdf"));
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
        MYDisplayNotification(QStringLiteral("Shown"), QStringLiteral("shown"));
        QCOMPARE(m_scripted->interactions().size(), 1);
        QCOMPARE(m_scripted->interactions().constFirst().message, QStringLiteral("Shown"));

        UserDefaults::setStandard(nullptr);
    }

    // Real windows from here on, answered with the keyboard and the mouse.

    void alertWindowAnswersReturnWithFirstButton()
    {
        useQtDialogs();
        QString shownText;
        QString shownInformative;
        whenModalShows(
            [&](QWidget* modal) {
                if (auto* box = qobject_cast<QMessageBox*>(modal)) {
                    shownText = box->text();
                    shownInformative = box->informativeText();
                }
                QTest::keyClick(modal, Qt::Key_Return);
            },
            &m_watchdogFired);
        QCOMPARE(MYDisplayAlert(QStringLiteral("Printing finished\n<b>12</b> pages")), 1000);
        QVERIFY(!m_watchdogFired);
        QCOMPARE(shownText, QStringLiteral("Printing finished"));
        QCOMPARE(shownInformative, QStringLiteral("<b>12</b> pages"));
    }

    void questionWindowReturnChoosesNegative()
    {
        useQtDialogs();
        QString defaultTitle;
        QString escapeTitle;
        QString shownText;
        whenModalShows(
            [&](QWidget* modal) {
                if (auto* box = qobject_cast<QMessageBox*>(modal)) {
                    shownText = box->text();
                    if (box->defaultButton())
                        defaultTitle = box->defaultButton()->text();
                    if (box->escapeButton())
                        escapeTitle = box->escapeButton()->text();
                }
                QTest::keyClick(modal, Qt::Key_Return);
            },
            &m_watchdogFired);
        const bool answer
            = MYDisplayQuestion(QStringLiteral("Delete the file?"), QStringLiteral("Delete"), QStringLiteral("Keep"));
        QVERIFY(!m_watchdogFired);
        QCOMPARE(answer, false);
        QCOMPARE(shownText, QStringLiteral("Alert"));
        QCOMPARE(defaultTitle, QStringLiteral("Keep"));
        QCOMPARE(escapeTitle, QStringLiteral("Keep"));
    }

    void questionWindowAffirmativeClickAnswersTrue()
    {
        useQtDialogs();
        bool clicked = false;
        whenModalShows(
            [&](QWidget* modal) {
                if (QPushButton* affirmative = buttonTitled(modal, QStringLiteral("Delete"))) {
                    QTest::mouseClick(affirmative, Qt::LeftButton);
                    clicked = true;
                }
            },
            &m_watchdogFired);
        const bool answer = MYDisplayQuestion(
            QStringLiteral("Delete?\nIt cannot be undone."), QStringLiteral("Delete"), QStringLiteral("Keep"));
        QVERIFY(!m_watchdogFired);
        QVERIFY(clicked);
        QCOMPARE(answer, true);
    }

    void questionWindowEscapeChoosesNegative()
    {
        useQtDialogs();
        whenModalShows([&](QWidget* modal) { QTest::keyClick(modal, Qt::Key_Escape); }, &m_watchdogFired);
        const bool answer
            = MYDisplayQuestion(QStringLiteral("Delete?"), QStringLiteral("Delete"), QStringLiteral("Keep"));
        QVERIFY(!m_watchdogFired);
        QCOMPARE(answer, false);
    }

    void promptWindowReturnsTypedText()
    {
        useQtDialogs();
        QString initialShown;
        QSize fieldSize;
        QString labels;
        whenModalShows(
            [&](QWidget* modal) {
                auto* field = modal->findChild<QLineEdit*>(QLatin1String(QtDialogService::PromptFieldName));
                if (!field)
                    return QTest::keyClick(modal, Qt::Key_Escape);
                initialShown = field->text();
                fieldSize = field->size();
                for (QLabel* label : modal->findChildren<QLabel*>())
                    labels += label->text() + u'|';
                field->clear();
                QTest::keyClicks(field, QStringLiteral("Quarterly report"));
                QTest::keyClick(modal, Qt::Key_Return);
            },
            &m_watchdogFired);
        const QString answer = MYDisplayPrompt(QStringLiteral("Save as\nName the 100% copy"),
            QStringLiteral("untitled"), QStringLiteral("Save"), QStringLiteral("Cancel"));
        QVERIFY(!m_watchdogFired);
        QCOMPARE(answer, QStringLiteral("Quarterly report"));
        QCOMPARE(initialShown, QStringLiteral("untitled"));
        QCOMPARE(fieldSize, QSize(300, 24));
        QCOMPARE(labels, QStringLiteral("Save as|Name the 100% copy|"));
    }

    void promptWindowReturnKeepsInitialValue()
    {
        useQtDialogs();
        whenModalShows([&](QWidget* modal) { QTest::keyClick(modal, Qt::Key_Return); }, &m_watchdogFired);
        const QString answer = MYDisplayPrompt(
            QStringLiteral("Name"), QStringLiteral("untitled"), QStringLiteral("OK"), QStringLiteral("Cancel"));
        QVERIFY(!m_watchdogFired);
        QCOMPARE(answer, QStringLiteral("untitled"));
    }

    void promptWindowClearedFieldAnswersNull()
    {
        useQtDialogs();
        whenModalShows(
            [&](QWidget* modal) {
                if (auto* field = modal->findChild<QLineEdit*>(QLatin1String(QtDialogService::PromptFieldName)))
                    field->clear();
                QTest::keyClick(modal, Qt::Key_Return);
            },
            &m_watchdogFired);
        const QString answer = MYDisplayPrompt(
            QStringLiteral("Name"), QStringLiteral("untitled"), QStringLiteral("OK"), QStringLiteral("Cancel"));
        QVERIFY(!m_watchdogFired);
        QVERIFY(answer.isNull());
    }

    void promptWindowEscapeAnswersNull()
    {
        useQtDialogs();
        whenModalShows(
            [&](QWidget* modal) {
                if (auto* field = modal->findChild<QLineEdit*>(QLatin1String(QtDialogService::PromptFieldName)))
                    QTest::keyClicks(field, QStringLiteral(" edited"));
                QTest::keyClick(modal, Qt::Key_Escape);
            },
            &m_watchdogFired);
        const QString answer = MYDisplayPrompt(
            QStringLiteral("Name"), QStringLiteral("untitled"), QStringLiteral("OK"), QStringLiteral("Cancel"));
        QVERIFY(!m_watchdogFired);
        QVERIFY(answer.isNull());
    }

    void promptWindowCancelButtonAnswersNull()
    {
        useQtDialogs();
        bool clicked = false;
        whenModalShows(
            [&](QWidget* modal) {
                if (QPushButton* cancel = buttonTitled(modal, QStringLiteral("Not now"))) {
                    QTest::mouseClick(cancel, Qt::LeftButton);
                    clicked = true;
                }
            },
            &m_watchdogFired);
        const QString answer = MYDisplayPrompt(
            QStringLiteral("Name"), QStringLiteral("untitled"), QStringLiteral("OK"), QStringLiteral("Not now"));
        QVERIFY(!m_watchdogFired);
        QVERIFY(clicked);
        QVERIFY(answer.isNull());
    }
};

QUIREPAD_REGISTER_TEST(DialogsTest);
#include "tst_dialogs.moc"
