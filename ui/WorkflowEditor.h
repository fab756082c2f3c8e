#pragma once

#include "pipeline/UserWorkflows.h"
#include "pipeline/WorkflowCreator.h"

#include <QList>
#include <QWidget>

class QLabel;
class QListWidget;
class QMenu;
class QPushButton;

namespace quirepad {

class WorkflowLibrary;

// The user's own workflows of one kind (plugins or filters) in a window:
// a list of {path, name} (plugins by name, filters in folder order), and
// buttons to open one for editing, remove one, read the folder again and
// make a new one from a sample. Built-in workflows are not shown.
class WorkflowEditor : public QWidget
{
    Q_OBJECT

public:
    WorkflowEditor(WorkflowKind kind, WorkflowLibrary& library, QWidget* parent = nullptr);
    ~WorkflowEditor() override;

    WorkflowKind kind() const { return m_kind; }

    // Raises the window with the list read again.
    void present();
    // Rebuilds the list from the folder.
    void refresh();

    const QList<UserWorkflows::Entry>& workflows() const { return m_entries; }
    QStringList names() const;
    QListWidget* list() const { return m_list; }
    QPushButton* openButton() const { return m_open; }
    QPushButton* removeButton() const { return m_remove; }
    QPushButton* refreshButton() const { return m_refresh; }
    QPushButton* newButton() const { return m_new; }
    QMenu* samplesMenu() const { return m_samples; }

    // Selects the workflow of that name; false when it is not listed.
    bool select(const QString& name);
    // Opens the workflow for editing (a folder's "run", a file itself).
    bool editWorkflow(const QString& path);
    // Opens "NAME.workflow" of the user's folder.
    bool editWorkflowName(const QString& name);
    bool editSelected();
    // Deletes the workflow after asking (a link goes itself, never what
    // it points to), then refreshes the lists.
    bool removeWorkflow(const UserWorkflows::Entry& entry);
    bool removeSelected();
    // Asks for a name, copies the sample and opens the copy.
    WorkflowCreator::Result createFromSample(const QString& sampleId, const QString& suggestedName);

private:
    const UserWorkflows::Entry* selectedEntry() const;
    void rebuildSamplesMenu();
    void updateButtons();

    WorkflowKind m_kind;
    WorkflowLibrary& m_library;
    QList<UserWorkflows::Entry> m_entries;
    QLabel* m_folderLabel = nullptr; // children
    QListWidget* m_list = nullptr;
    QPushButton* m_open = nullptr;
    QPushButton* m_remove = nullptr;
    QPushButton* m_refresh = nullptr;
    QPushButton* m_new = nullptr;
    QMenu* m_samples = nullptr;
};

} // namespace quirepad
