#include "ui/WorkflowEditor.h"

#include "foundation/dialogs.h"
#include "foundation/fileutil.h"
#include "pipeline/WorkflowLibrary.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QVBoxLayout>

namespace quirepad {

namespace {

QString kindTitle(WorkflowKind kind)
{
    return kind == WorkflowKind::Plugin ? QStringLiteral("Plugins") : QStringLiteral("Filters");
}

} // namespace

WorkflowEditor::WorkflowEditor(WorkflowKind kind, WorkflowLibrary& library, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_kind(kind)
    , m_library(library)
{
    setWindowTitle(tr("Quirepad %1").arg(kindTitle(kind)));
    resize(520, 380);
    auto* layout = new QVBoxLayout(this);
    m_folderLabel = new QLabel(this);
    m_folderLabel->setWordWrap(true);
    m_folderLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_folderLabel);

    m_list = new QListWidget(this);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    layout->addWidget(m_list, 1);
    connect(m_list, &QListWidget::itemSelectionChanged, this, [this] { updateButtons(); });
    connect(m_list, &QListWidget::itemActivated, this, [this] { editSelected(); });

    auto* buttons = new QHBoxLayout;
    m_open = new QPushButton(tr("Open"), this);
    m_remove = new QPushButton(tr("Remove"), this);
    m_refresh = new QPushButton(tr("Refresh"), this);
    m_new = new QPushButton(tr("New from Sample…"), this);
    m_samples = new QMenu(m_new);
    m_new->setMenu(m_samples);
    connect(m_open, &QPushButton::clicked, this, [this] { editSelected(); });
    connect(m_remove, &QPushButton::clicked, this, [this] { removeSelected(); });
    connect(m_refresh, &QPushButton::clicked, this, [this] { m_library.refreshPluginList(); });
    connect(m_samples, &QMenu::aboutToShow, this, [this] { rebuildSamplesMenu(); });
    buttons->addWidget(m_open);
    buttons->addWidget(m_remove);
    buttons->addWidget(m_refresh);
    buttons->addStretch(1);
    buttons->addWidget(m_new);
    layout->addLayout(buttons);

    // Whatever changed the workflow folders (this window, an installed
    // package, a command line) shows here.
    connect(&m_library, &WorkflowLibrary::listsChanged, this, [this] { refresh(); });
    rebuildSamplesMenu();
    refresh();
}

WorkflowEditor::~WorkflowEditor() = default;

void WorkflowEditor::present()
{
    refresh();
    show();
    raise();
    activateWindow();
}

void WorkflowEditor::refresh()
{
    const UserWorkflows workflows(m_kind);
    const QString selected = selectedEntry() ? selectedEntry()->name : QString();
    m_folderLabel->setText(tr("Your %1 workflows in %2. The built-in ones are not listed here.")
                               .arg(UserWorkflows::kindName(m_kind), workflows.folder()));
    m_entries = workflows.list();
    const QSignalBlocker blocker(m_list);
    m_list->clear();
    for (const UserWorkflows::Entry& entry : std::as_const(m_entries)) {
        auto* item = new QListWidgetItem(entry.name, m_list);
        item->setToolTip(entry.path);
    }
    if (!selected.isEmpty())
        select(selected);
    updateButtons();
}

QStringList WorkflowEditor::names() const
{
    QStringList names;
    for (const UserWorkflows::Entry& entry : m_entries)
        names << entry.name;
    return names;
}

bool WorkflowEditor::select(const QString& name)
{
    for (qsizetype row = 0; row < m_entries.size(); ++row) {
        if (m_entries.at(row).name == name) {
            m_list->setCurrentRow(int(row));
            return true;
        }
    }
    return false;
}

const UserWorkflows::Entry* WorkflowEditor::selectedEntry() const
{
    if (!m_list)
        return nullptr;
    const QList<QListWidgetItem*> selected = m_list->selectedItems();
    const int row = selected.isEmpty() ? -1 : m_list->row(selected.first());
    return row >= 0 && row < m_entries.size() ? &m_entries.at(row) : nullptr;
}

bool WorkflowEditor::editWorkflow(const QString& path)
{
    if (WorkflowCreator::openForEditing(path))
        return true;
    MYDisplayAlert(tr("The %1 cannot be opened\nNo application could be started to edit %2.")
                       .arg(UserWorkflows::kindName(m_kind), WorkflowCreator::editablePath(path)));
    return false;
}

bool WorkflowEditor::editWorkflowName(const QString& name)
{
    if (const std::optional<QString> problem = WorkflowCreator::nameProblem(name)) {
        MYDisplayAlert(*problem);
        return false;
    }
    QString base = name;
    if (base.endsWith(QLatin1String(".workflow")))
        base.chop(int(qstrlen(".workflow")));
    return editWorkflow(UserWorkflows(m_kind).folder() + u'/' + base + QStringLiteral(".workflow"));
}

bool WorkflowEditor::editSelected()
{
    const UserWorkflows::Entry* entry = selectedEntry();
    return entry && editWorkflow(entry->path);
}

bool WorkflowEditor::removeWorkflow(const UserWorkflows::Entry& entry)
{
    const QString kind = UserWorkflows::kindName(m_kind);
    if (!MYDisplayQuestion(tr("Remove the %1 \"%2\"?\n%3 is deleted.").arg(kind, entry.name, entry.path),
                           tr("Remove"), tr("Cancel")))
        return false;
    QString why;
    const bool removed = UserWorkflows(m_kind).remove(entry.name, &why);
    if (!removed)
        MYDisplayAlert(tr("The %1 \"%2\" was not removed\n%3").arg(kind, entry.name, why));
    m_library.refreshPluginList();
    return removed;
}

bool WorkflowEditor::removeSelected()
{
    const UserWorkflows::Entry* entry = selectedEntry();
    if (!entry)
        return false;
    const UserWorkflows::Entry chosen = *entry; // the list is rebuilt meanwhile
    return removeWorkflow(chosen);
}

WorkflowCreator::Result WorkflowEditor::createFromSample(const QString& sampleId, const QString& suggestedName)
{
    WorkflowCreator::Result result = WorkflowCreator(m_kind, &m_library).createInteractively(sampleId, suggestedName);
    if (result.outcome == WorkflowCreator::Outcome::Created || result.outcome == WorkflowCreator::Outcome::Existing)
        select(path_basename_noext(result.path));
    return result;
}

void WorkflowEditor::rebuildSamplesMenu()
{
    m_samples->clear();
    const QList<WorkflowCreator::Sample> samples = WorkflowCreator(m_kind).samples();
    for (const WorkflowCreator::Sample& sample : samples) {
        const QString id = sample.id;
        const QString title = sample.title;
        m_samples->addAction(title, this, [this, id, title] { createFromSample(id, title); });
    }
    if (samples.isEmpty())
        m_samples->addAction(tr("No samples installed"))->setEnabled(false);
}

void WorkflowEditor::updateButtons()
{
    const bool chosen = selectedEntry() != nullptr;
    m_open->setEnabled(chosen);
    m_remove->setEnabled(chosen);
}

} // namespace quirepad
