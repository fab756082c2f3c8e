#include "ui/PreferencesWindow.h"

#include "foundation/UserDefaults.h"
#include "foundation/dialogs.h"
#include "store/DestinationItem.h"
#include "store/DestinationTemplates.h"
#include "store/MainAppDelegateBase.h"
#include "ui/DestinationTableModel.h"
#include "ui/NetworkSettingsBox.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QSpinBox>
#include <QTableView>
#include <QVBoxLayout>

namespace quirepad {

namespace {

const QString kFollowMouse = QStringLiteral("follow_mouse");
const QString kShowTray = QStringLiteral("show_menubar_icon");
const QString kMaxcount = QStringLiteral("maxcount");
const QString kDestinationName = QStringLiteral("destination_name");

} // namespace

PreferencesWindow::PreferencesWindow(MainAppDelegateBase& delegate, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_delegate(delegate)
{
    setWindowTitle(tr("Quirepad Preferences"));
    resize(860, 440);
    auto* layout = new QVBoxLayout(this);

    ManagedObjectContext* context = m_delegate.managedObjectContext();
    if (!context) {
        layout->addWidget(new QLabel(tr("The destinations cannot be shown: the store could not be opened."), this));
        return;
    }

    m_model = new DestinationTableModel(*context, this);
    m_table = new QTableView(this);
    m_table->setModel(m_model);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->horizontalHeader()->setSectionResizeMode(DestinationTableModel::Target, QHeaderView::Stretch);
    m_table->setIconSize(QSize(20, 20));
    layout->addWidget(m_table, 1);
    connect(m_model, &DestinationTableModel::edited, this, [this] { save(); });
    connect(m_model, &QAbstractItemModel::modelReset, this, [this] {
        updateButtons();
        readSettings();
    });
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] { updateButtons(); });

    auto* buttons = new QHBoxLayout;
    auto* add = new QPushButton(tr("Add"), this);
    auto* addMenu = new QMenu(add);
    for (const QString& letter : {QStringLiteral("F"), QStringLiteral("O"), QStringLiteral("X")}) {
        addMenu->addAction(DestinationTableModel::typeTitle(letter), this, [this, letter] {
            const QString name = MYDisplayPrompt(QStringLiteral("Create new destination with name:\n"), QString(),
                                                 QStringLiteral("Create"), QStringLiteral("Cancel"));
            addDestination(letter, name);
        });
    }
    add->setMenu(addMenu);
    m_remove = new QPushButton(tr("Remove"), this);
    connect(m_remove, &QPushButton::clicked, this, [this] { removeSelected(); });
    buttons->addWidget(add);
    buttons->addWidget(m_remove);
    buttons->addStretch(1);
    m_plugins = new QPushButton(tr("Plugins…"), this);
    m_filters = new QPushButton(tr("Filters…"), this);
    connect(m_plugins, &QPushButton::clicked, this, &PreferencesWindow::pluginsRequested);
    connect(m_filters, &QPushButton::clicked, this, &PreferencesWindow::filtersRequested);
    buttons->addWidget(m_plugins);
    buttons->addWidget(m_filters);
    layout->addLayout(buttons);

    auto* settings = new QWidget(this);
    buildSettings(*settings);
    layout->addWidget(settings);
    m_network = new NetworkSettingsBox(this);
    connect(m_network, &NetworkSettingsBox::settingsChanged, this, &PreferencesWindow::settingsChanged);
    layout->addWidget(m_network);
    readSettings();
    updateButtons();
}

PreferencesWindow::~PreferencesWindow() = default;

void PreferencesWindow::buildSettings(QWidget& page)
{
    auto* form = new QFormLayout(&page);
    form->setContentsMargins(0, 8, 0, 0);
    m_defaultDestination = new QComboBox(&page);
    form->addRow(tr("Printed jobs go to:"), m_defaultDestination);
    m_maxcount = new QSpinBox(&page);
    m_maxcount->setRange(1, 20);
    form->addRow(tr("Destinations per row in the panel:"), m_maxcount);
    m_followMouse = new QCheckBox(tr("Open the panel at the mouse pointer"), &page);
    form->addRow(QString(), m_followMouse);
    m_showTray = new QCheckBox(tr("Show the Quirepad icon in the tray"), &page);
    form->addRow(QString(), m_showTray);

    connect(m_defaultDestination, &QComboBox::activated, this, [this] {
        UserDefaults::standard().setValue(kDestinationName, m_defaultDestination->currentData().toString());
        emit settingsChanged();
    });
    connect(m_maxcount, &QSpinBox::valueChanged, this, [this](int value) {
        UserDefaults& defaults = UserDefaults::standard();
        if (defaults.integerValue(kMaxcount) == value)
            return;
        defaults.setValue(kMaxcount, value);
        emit settingsChanged();
    });
    connect(m_followMouse, &QCheckBox::toggled, this, [this](bool on) {
        UserDefaults::standard().setValue(kFollowMouse, on);
        emit settingsChanged();
    });
    connect(m_showTray, &QCheckBox::toggled, this, [this](bool on) {
        UserDefaults::standard().setValue(kShowTray, on);
        emit settingsChanged();
    });
}

void PreferencesWindow::readSettings()
{
    if (!m_model)
        return;
    const UserDefaults& defaults = UserDefaults::standard();
    m_network->readSettings();
    const QSignalBlocker blockMax(m_maxcount), blockFollow(m_followMouse), blockTray(m_showTray);
    m_maxcount->setValue(int(defaults.integerValue(kMaxcount)));
    m_followMouse->setChecked(defaults.boolValue(kFollowMouse));
    m_showTray->setChecked(defaults.boolValue(kShowTray));

    const QString current = defaults.stringValue(kDestinationName);
    m_defaultDestination->clear();
    m_defaultDestination->addItem(tr("Ask every time"), QString());
    for (int row = 0; row < m_model->rowCount(); ++row) {
        const QString name = m_model->itemAt(row)->name();
        m_defaultDestination->addItem(name, name);
    }
    const int index = m_defaultDestination->findData(current);
    if (index < 0 && !current.isEmpty())
        m_defaultDestination->addItem(tr("%1 (missing)").arg(current), current);
    m_defaultDestination->setCurrentIndex(index < 0 ? (current.isEmpty() ? 0 : m_defaultDestination->count() - 1) : index);
}

void PreferencesWindow::present()
{
    if (m_model)
        m_model->reload();
    show();
    raise();
    activateWindow();
}

int PreferencesWindow::addDestination(const QString& typeLetter, const QString& name)
{
    ManagedObjectContext* context = m_delegate.managedObjectContext();
    if (!m_model || !context)
        return -1;
    DestinationItem* item = DestinationTemplates(*context).createDestination(typeLetter, name);
    if (!item)
        return -1;
    save();
    m_model->reload();
    const int row = m_model->rowOf(item);
    if (row >= 0)
        m_table->selectRow(row);
    return row;
}

bool PreferencesWindow::removeSelected()
{
    ManagedObjectContext* context = m_delegate.managedObjectContext();
    if (!m_model || !context)
        return false;
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    DestinationItem* item = rows.isEmpty() ? nullptr : m_model->itemAt(rows.first().row());
    if (!item || item->boolForKey(QStringLiteral("is_system")))
        return false;
    if (!MYDisplayQuestion(QStringLiteral("Remove the destination \"%1\"?").arg(item->name()), QStringLiteral("Remove"),
                           QStringLiteral("Cancel")))
        return false;
    context->deleteObject(item);
    save();
    m_model->reload();
    return true;
}

void PreferencesWindow::updateButtons()
{
    if (!m_model)
        return;
    const QModelIndexList rows = m_table->selectionModel()->selectedRows();
    const DestinationItem* item = rows.isEmpty() ? nullptr : m_model->itemAt(rows.first().row());
    m_remove->setEnabled(item && !item->boolForKey(QStringLiteral("is_system")));
}

void PreferencesWindow::save()
{
    m_delegate.saveAction();
}

} // namespace quirepad
