#include "TestFiles.h"
#include "TestRegistry.h"
#include "UiFixture.h"

#include "foundation/Workspace.h"
#include "foundation/fileutil.h"
#include "pipeline/UserWorkflows.h"
#include "pipeline/WorkflowCreator.h"
#include "pipeline/WorkflowLibrary.h"
#include "ui/WorkflowEditor.h"

#include <QDir>
#include <QFileInfo>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QTest>

using namespace quirepad;
using namespace quirepad::test;

Q_DECLARE_METATYPE(WorkflowKind)

namespace {

// Records what would be opened instead of starting an application.
class RecordingWorkspace : public Workspace
{
public:
    QList<QUrl>* opened = nullptr;
    bool openUrl(const QUrl& url) override
    {
        opened->append(url);
        return true;
    }
    bool revealFile(const QString& path) override { return openUrl(QUrl::fromLocalFile(path)); }
};

} // namespace

// The windows that list, open, remove and create the user's own plugin and
// filter workflows, on a real (offscreen) window.
class WorkflowEditorTest : public QObject
{
    Q_OBJECT

    UiFixture m_fx;
    QList<QUrl> m_opened;
    std::unique_ptr<WorkflowEditor> m_editor;

    static QString folderOf(WorkflowKind kind) { return UserWorkflows(kind).folder(); }

    WorkflowEditor& editor(WorkflowKind kind)
    {
        m_editor = std::make_unique<WorkflowEditor>(kind, m_fx.delegate->workflowLibrary());
        m_editor->present();
        return *m_editor;
    }
    static QStringList shownNames(const WorkflowEditor& editor)
    {
        QStringList names;
        for (int row = 0; row < editor.list()->count(); ++row)
            names << editor.list()->item(row)->text();
        return names;
    }
    // A file workflow, a folder workflow with its run script, or a link to
    // a workflow elsewhere.
    QString makeWorkflow(WorkflowKind kind, const QString& name, const QString& shape)
    {
        const QString path = folderOf(kind) + '/' + name + ".workflow";
        if (shape == "folder") {
            QDir().mkpath(path);
            writeFile(path + "/run", "#!/bin/sh\n", kExecutable);
        } else if (shape == "link") {
            const QString target = m_fx.root.filePath("elsewhere/" + name + ".workflow");
            QDir().mkpath(path_dirname(target));
            writeFile(target, "#!/bin/sh\n# the link's target\n", kExecutable);
            QFile::link(target, path);
        } else {
            writeFile(path, "#!/bin/sh\n", kExecutable);
        }
        return path;
    }
    static bool present(const QString& path) { return QFileInfo(path).exists() || QFileInfo(path).isSymLink(); }

private slots:
    void initTestCase()
    {
        qRegisterMetaType<WorkflowKind>();
        m_fx.setUpEnvironment();
    }

    void init()
    {
        m_fx.start();
        // The folders are fixed for the process: empty them for each case.
        const QString plugins = folderOf(WorkflowKind::Plugin);
        QVERIFY2(plugins.startsWith(QDir::tempPath()), qPrintable(plugins));
        QDir(plugins).removeRecursively();
        QVERIFY(QDir().mkpath(folderOf(WorkflowKind::Filter)));
        m_opened.clear();
        auto workspace = std::make_unique<RecordingWorkspace>();
        workspace->opened = &m_opened;
        Workspace::setCurrent(std::move(workspace));
    }

    void cleanup()
    {
        m_editor.reset();
        Workspace::setCurrent(nullptr);
        m_fx.stop();
    }

    // Plugins by name; filters as the folder lists them (where "alpha
    // beta.workflow" comes before "alpha.workflow").
    void listsOrder_data()
    {
        QTest::addColumn<WorkflowKind>("kind");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("plugins by name") << WorkflowKind::Plugin << QStringList{"alpha", "alpha beta", "beta", "gamma"};
        QTest::newRow("filters in folder order")
            << WorkflowKind::Filter << QStringList{"alpha beta", "alpha", "beta", "gamma"};
    }

    void listsOrder()
    {
        QFETCH(WorkflowKind, kind);
        QFETCH(QStringList, expected);
        makeWorkflow(kind, "gamma", "file");
        makeWorkflow(kind, "alpha", "folder");
        makeWorkflow(kind, "beta", "link");
        makeWorkflow(kind, "alpha beta", "file");
        writeFile(folderOf(kind) + "/notes.txt", "not a workflow");
        WorkflowEditor& window = editor(kind);
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QCOMPARE(window.names(), expected);
        QCOMPARE(shownNames(window), expected);
        QCOMPARE(window.workflows().at(0).path, folderOf(kind) + '/' + expected.at(0) + ".workflow");
        // Nothing chosen, nothing to open or remove.
        QVERIFY(!window.openButton()->isEnabled());
        QVERIFY(!window.removeButton()->isEnabled());

        // Refresh reads the folder again.
        makeWorkflow(kind, "delta", "file");
        window.refreshButton()->click();
        QVERIFY(window.names().contains("delta"));
    }

    // Remove asks first; yes removes a file, a folder with its contents,
    // or a link itself (what it points to stays).
    void removeAsksAndRemoves_data()
    {
        QTest::addColumn<WorkflowKind>("kind");
        QTest::addColumn<QString>("shape");
        QTest::addColumn<bool>("answer");
        QTest::newRow("plugin file") << WorkflowKind::Plugin << "file" << true;
        QTest::newRow("plugin folder") << WorkflowKind::Plugin << "folder" << true;
        QTest::newRow("plugin link") << WorkflowKind::Plugin << "link" << true;
        QTest::newRow("filter folder") << WorkflowKind::Filter << "folder" << true;
        QTest::newRow("filter link") << WorkflowKind::Filter << "link" << true;
        QTest::newRow("declined") << WorkflowKind::Plugin << "folder" << false;
    }

    void removeAsksAndRemoves()
    {
        QFETCH(WorkflowKind, kind);
        QFETCH(QString, shape);
        QFETCH(bool, answer);
        const QString gone = makeWorkflow(kind, "Going", shape);
        makeWorkflow(kind, "Staying", "file");
        const QString target = m_fx.root.filePath("elsewhere/Going.workflow");
        WorkflowEditor& window = editor(kind);
        QVERIFY(window.select("Going"));
        QVERIFY(window.removeButton()->isEnabled());

        m_fx.dialogs->enqueueAnswer(answer);
        window.removeButton()->click();
        const auto& asked = m_fx.dialogs->interactions();
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked.first().kind, ScriptedDialogService::Kind::Question);
        QCOMPARE(asked.first().message, QStringLiteral("Remove the %1 \"Going\"?").arg(UserWorkflows::kindName(kind)));
        QCOMPARE(asked.first().alternateButton, QStringLiteral("Remove"));
        QCOMPARE(asked.first().defaultButton, QStringLiteral("Cancel"));

        QCOMPARE(present(gone), !answer);
        QCOMPARE(window.names(), answer ? QStringList({"Staying"}) : QStringList({"Going", "Staying"}));
        if (shape == "link")
            QCOMPARE(readFile(target), QByteArray("#!/bin/sh\n# the link's target\n"));
        if (answer) {
            const QStringList listed = kind == WorkflowKind::Plugin ? m_fx.delegate->workflowLibrary().allPluginFiles()
                                                                    : m_fx.delegate->workflowLibrary().allFilterFiles();
            QVERIFY(!listed.contains("Going")); // the lists the destinations choose from follow
        }
    }

    // Open edits a folder workflow's run script, a file workflow itself.
    void openEditsTheScript_data()
    {
        QTest::addColumn<QString>("shape");
        QTest::addColumn<QString>("edited");
        QTest::newRow("folder") << "folder" << "/Mine.workflow/run";
        QTest::newRow("file") << "file" << "/Mine.workflow";
    }

    void openEditsTheScript()
    {
        QFETCH(QString, shape);
        QFETCH(QString, edited);
        makeWorkflow(WorkflowKind::Plugin, "Mine", shape);
        WorkflowEditor& window = editor(WorkflowKind::Plugin);
        QVERIFY(window.select("Mine"));
        window.openButton()->click();
        QCOMPARE(m_opened, QList<QUrl>{QUrl::fromLocalFile(folderOf(WorkflowKind::Plugin) + edited)});
    }

    // A sample copied under the name typed into the prompt, opened and
    // listed; Cancel and unusable names make nothing; a workflow of that
    // name already there is kept and opened.
    void createFromSample_data()
    {
        QTest::addColumn<WorkflowKind>("kind");
        QTest::addColumn<QString>("sample");
        QTest::addColumn<QVariant>("typed"); // invalid: Cancel
        QTest::addColumn<QString>("created"); // empty: nothing made
        QTest::addColumn<QString>("alert");   // a part of the alert shown, if any
        const QVariant cancel;
        QTest::newRow("plugin") << WorkflowKind::Plugin << "SaveAsText" << QVariant("My Text") << "My Text" << "";
        QTest::newRow("filter") << WorkflowKind::Filter << "Monochrome" << QVariant("Inky") << "Inky" << "";
        QTest::newRow("extension typed too") << WorkflowKind::Filter << "Monochrome" << QVariant("Inky.workflow")
                                             << "Inky" << "";
        QTest::newRow("plugin cancelled") << WorkflowKind::Plugin << "SaveAsText" << cancel << "" << "";
        QTest::newRow("filter cancelled") << WorkflowKind::Filter << "Monochrome" << cancel << "" << "";
        QTest::newRow("slash refused") << WorkflowKind::Plugin << "SaveAsText" << QVariant("../Escaped") << ""
                                       << "must not contain \"/\"";
        QTest::newRow("dot-dot refused") << WorkflowKind::Filter << "Monochrome" << QVariant("..") << ""
                                         << "cannot name a workflow";
    }

    void createFromSample()
    {
        QFETCH(WorkflowKind, kind);
        QFETCH(QString, sample);
        QFETCH(QVariant, typed);
        QFETCH(QString, created);
        QFETCH(QString, alert);
        const bool plugin = kind == WorkflowKind::Plugin;
        WorkflowEditor& window = editor(kind);
        // The menu offers the samples under their suggested names.
        emit window.samplesMenu()->aboutToShow();
        QAction* offered = nullptr;
        const std::optional<WorkflowCreator::Sample> known = WorkflowCreator(kind).sample(sample);
        QVERIFY(known);
        for (QAction* action : window.samplesMenu()->actions())
            if (action->text() == known->title)
                offered = action;
        QVERIFY2(offered, qPrintable(known->title));

        m_fx.dialogs->enqueueAnswer(typed);
        offered->trigger();
        const auto& asked = m_fx.dialogs->interactions();
        QVERIFY(!asked.isEmpty());
        QCOMPARE(asked.first().kind, ScriptedDialogService::Kind::Prompt);
        QCOMPARE(asked.first().message, plugin ? QStringLiteral("Create Custom Workflow")
                                               : QStringLiteral("Create Trasnformation Filter"));
        QCOMPARE(asked.first().informative,
                 QStringLiteral("The Automator editor workflow will open up so you can customize it further."));
        QCOMPARE(asked.first().defaultButton,
                 plugin ? QStringLiteral("Create and Edit The Plugin") : QStringLiteral("Create and Edit The Filter"));
        QCOMPARE(asked.first().alternateButton, QStringLiteral("Cancel"));
        QCOMPARE(asked.first().initialValue, known->title);
        QCOMPARE(asked.size(), alert.isEmpty() ? 1 : 2);
        if (!alert.isEmpty()) {
            QCOMPARE(asked.last().kind, ScriptedDialogService::Kind::Alert);
            QVERIFY2(asked.last().informative.contains(alert), qPrintable(asked.last().informative));
        }

        if (created.isEmpty()) {
            QCOMPARE(window.names(), QStringList());
            QCOMPARE(QDir(folderOf(WorkflowKind::Plugin)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System),
                     QStringList{"Filters"});
            QCOMPARE(QDir(folderOf(WorkflowKind::Filter)).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System),
                     QStringList());
            QVERIFY(!present(folderOf(WorkflowKind::Plugin) + "/../Escaped.workflow"));
            QCOMPARE(m_opened, QList<QUrl>());
            return;
        }
        const QString path = folderOf(kind) + '/' + created + ".workflow";
        QCOMPARE(readFile(path), readFile(known->path));
        QVERIFY(QFileInfo(path).isExecutable());
        QCOMPARE(m_opened, QList<QUrl>{QUrl::fromLocalFile(path)});
        QCOMPARE(window.names(), QStringList{created}); // refreshed
        const QStringList listed = plugin ? m_fx.delegate->workflowLibrary().allPluginFiles()
                                          : m_fx.delegate->workflowLibrary().allFilterFiles();
        QVERIFY(listed.contains(created));
    }

    // Creating under a name already taken keeps the user's workflow and
    // opens it.
    void createKeepsAnExistingWorkflow()
    {
        const QString mine = folderOf(WorkflowKind::Filter) + "/Inky.workflow";
        QVERIFY(writeFile(mine, "#!/bin/sh\n# mine\n", kExecutable));
        WorkflowEditor& window = editor(WorkflowKind::Filter);
        m_fx.dialogs->enqueueAnswer(QStringLiteral("Inky"));
        const WorkflowCreator::Result result = window.createFromSample("Monochrome", "Monochrome");
        QCOMPARE(result.outcome, WorkflowCreator::Outcome::Existing);
        QCOMPARE(readFile(mine), QByteArray("#!/bin/sh\n# mine\n"));
        QCOMPARE(m_opened, QList<QUrl>{QUrl::fromLocalFile(mine)});
        QCOMPARE(m_fx.dialogs->interactions().size(), 1); // the prompt, no alert
    }
};

QUIREPAD_REGISTER_TEST(WorkflowEditorTest);
#include "tst_workflow_editor.moc"
