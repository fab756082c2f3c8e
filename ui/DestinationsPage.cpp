#include "ui/DestinationsPage.h"

#include "foundation/DialogService.h"
#include "foundation/dialogs.h"
#include "foundation/identifiers.h"
#include "store/DestinationSchema.h"
#include "store/DestinationTemplates.h"
#include "store/MainAppDelegateBase.h"
#include "store/SettingsFileStore.h"
#include "store/listorder.h"
#include "ui/DestinationForm.h"
#include "ui/DestinationItemDelegate.h"
#include "ui/DestinationListModel.h"

#include <QDir>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QPushButton>
#include <QScrollArea>
#include <QSplitter>
#include <QVBoxLayout>

namespace quirepad {

namespace {

QString settingsExtension()
{
    return QLatin1Char('.') + QLatin1String(SettingsFileStore::extension);
}

QString withSettingsExtension(QString path)
{
    if (!path.isEmpty() && !path.endsWith(settingsExtension()))
        path += settingsExtension();
    return path;
}

} // namespace

DestinationsPage::DestinationsPage(MainAppDelegateBase& delegate, ManagedObjectContext& context, QWidget* parent)
    : QWidget(parent)
    , m_delegate(delegate)
    , m_context(context)
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* splitter = new QSplitter(this);
    layout->addWidget(splitter);

    auto* side = new QWidget(splitter);
    auto* sideLayout = new QVBoxLayout(side);
    sideLayout->setContentsMargins(12, 12, 6, 12);
    m_model = new DestinationListModel(context, this);
    m_list = new QListView(side);
    m_list->setModel(m_model);
    m_list->setIconSize(QSize(28, 28));
    m_list->setUniformItemSizes(true);
    m_list->setItemDelegate(new DestinationItemDelegate(m_list));
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setDragDropMode(QAbstractItemView::DragDrop);
    m_list->setDefaultDropAction(Qt::MoveAction);
    m_list->setDropIndicatorShown(true);
    m_list->setMinimumWidth(230);
    sideLayout->addWidget(m_list, 1);

    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(4);
    m_add = new QPushButton(QIcon::fromTheme(QStringLiteral("list-add")), tr("Add"), side);
    auto* addMenu = new QMenu(m_add);
    for (const QString& letter : DestinationListModel::typeLetters())
        addMenu->addAction(DestinationListModel::typeTitle(letter), this, [this, letter] { addDestination(letter); });
    m_add->setMenu(addMenu);
    m_duplicate = new QPushButton(tr("Duplicate"), side);
    m_remove = new QPushButton(QIcon::fromTheme(QStringLiteral("list-remove")), tr("Remove"), side);
    buttons->addWidget(m_add);
    buttons->addWidget(m_duplicate);
    buttons->addWidget(m_remove);
    sideLayout->addLayout(buttons);
    auto* files = new QHBoxLayout;
    files->setSpacing(4);
    m_import = new QPushButton(tr("Import\u2026"), side);
    m_export = new QPushButton(tr("Export\u2026"), side);
    m_saveOne = new QPushButton(tr("Save One\u2026"), side);
    m_import->setToolTip(tr("Add the destinations of a settings file"));
    m_export->setToolTip(tr("Save every destination into a settings file"));
    m_saveOne->setToolTip(tr("Save the selected destination into a settings file"));
    files->addWidget(m_import);
    files->addWidget(m_export);
    files->addWidget(m_saveOne);
    sideLayout->addLayout(files);

    auto* scroll = new QScrollArea(splitter);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    m_form = new DestinationForm(context, scroll);
    scroll->setWidget(m_form);
    splitter->addWidget(side);
    splitter->addWidget(scroll);
    splitter->setStretchFactor(1, 1);
    splitter->setChildrenCollapsible(false);

    connect(m_duplicate, &QPushButton::clicked, this, [this] { duplicateSelected(); });
    connect(m_remove, &QPushButton::clicked, this, [this] { removeSelected(); });
    connect(m_import, &QPushButton::clicked, this, &DestinationsPage::importSettings);
    connect(m_export, &QPushButton::clicked, this, &DestinationsPage::exportAll);
    connect(m_saveOne, &QPushButton::clicked, this, &DestinationsPage::exportSelected);
    connect(m_form, &DestinationForm::edited, this, [this] {
        save();
        emit destinationsChanged();
    });
    connect(m_model, &DestinationListModel::reordered, this, [this] {
        save();
        emit destinationsChanged();
    });
    connect(m_model, &DestinationListModel::filesDropped, this,
        [this](const QStringList& dropped) { addFromFiles(dropped); });
    connect(m_list->selectionModel(), &QItemSelectionModel::currentChanged, this,
        [this](const QModelIndex& current, const QModelIndex& previous) {
            if (m_reverting)
                return;
            DestinationItem* item = m_model->itemAt(current.row());
            if (item == m_current)
                return;
            if (!mayLeaveCurrent()) {
                m_reverting = true;
                m_list->setCurrentIndex(previous);
                m_reverting = false;
                return;
            }
            m_current = item;
            m_form->setItem(item);
            updateButtons();
        });
    // After a reset the same record stays selected when it is still there.
    connect(m_model, &QAbstractItemModel::modelReset, this, [this] {
        const int row = m_model->rowOf(m_current);
        m_current = nullptr;
        m_list->setCurrentIndex(m_model->index(row >= 0 ? row : 0));
        if (m_model->rowCount() == 0)
            m_form->setItem(nullptr);
        updateButtons();
    });
    m_list->setCurrentIndex(m_model->index(0));
    updateButtons();
}

void DestinationsPage::save()
{
    m_delegate.saveAction();
}

DestinationItem* DestinationsPage::selectedItem() const
{
    return m_model->itemAt(m_list->currentIndex().row());
}

void DestinationsPage::select(const DestinationItem* item)
{
    const int row = m_model->rowOf(item);
    if (row >= 0)
        m_list->setCurrentIndex(m_model->index(row));
}

bool DestinationsPage::mayLeaveCurrent()
{
    if (!m_form->hasUnsavedInput())
        return true;
    return MYDisplayQuestion(tr("Some of what you typed for \u201c%1\u201d is not valid and was not saved. Discard it?")
                                 .arg(m_current ? m_current->name() : QString()),
        tr("Discard"), tr("Keep Editing"));
}

void DestinationsPage::updateButtons()
{
    const DestinationItem* item = selectedItem();
    const bool builtin = item && item->boolForKey(QStringLiteral("is_system"));
    m_duplicate->setEnabled(item);
    m_saveOne->setEnabled(item);
    // A built-in stays clickable: it says why it stays.
    m_remove->setEnabled(item);
    m_remove->setToolTip(
        builtin ? tr("Built-in destinations cannot be removed") : tr("Remove the selected destination"));
}

QString DestinationsPage::freeName(const QString& base, const DestinationItem* except) const
{
    QStringList taken;
    for (int row = 0; row < m_model->rowCount(); ++row)
        if (m_model->itemAt(row) != except)
            taken << m_model->itemAt(row)->name().toLower();
    QString name = base;
    for (int n = 2; taken.contains(name.toLower()); ++n)
        name = QStringLiteral("%1 %2").arg(base).arg(n);
    return name;
}

DestinationItem* DestinationsPage::addDestination(const QString& typeLetter)
{
    if (!mayLeaveCurrent())
        return nullptr;
    DestinationItem* item = DestinationTemplates(m_context).createDestination(
        typeLetter, freeName(DestinationListModel::typeTitle(typeLetter)));
    if (!item)
        return nullptr;
    save();
    m_model->reload();
    select(item);
    // The name is the first thing to make one's own.
    m_form->lineEdit(DestinationForm::Name)->setFocus();
    m_form->lineEdit(DestinationForm::Name)->selectAll();
    emit destinationsChanged();
    return item;
}

DestinationItem* DestinationsPage::duplicateSelected()
{
    DestinationItem* original = selectedItem();
    if (!original || !mayLeaveCurrent())
        return nullptr;
    DestinationItem* copy = m_context.insertNewEntity(QString::fromLatin1(DestinationSchema::entityName));
    if (!copy)
        return nullptr;
    const QVariantMap values = original->objectAsDictionary();
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        if (it.key() != QLatin1String("recid") && it.key() != QLatin1String("is_system"))
            copy->setValue(it.key(), it.value());
    copy->setValue(QStringLiteral("recid"), generateUUID());
    copy->setValue(QStringLiteral("name"), freeName(tr("%1 copy").arg(original->name())));
    // Right behind the original, by the store's ordering rules.
    QList<DestinationItem*> list;
    for (int row = 0; row < m_model->rowCount(); ++row)
        list << m_model->itemAt(row);
    listInsertObjectAfter(list, { copy }, original);
    listStoreOrder(list, QStringLiteral("order"));
    save();
    m_model->reload();
    select(copy);
    emit destinationsChanged();
    return copy;
}

bool DestinationsPage::removeSelected()
{
    DestinationItem* item = selectedItem();
    if (!item)
        return false;
    if (item->boolForKey(QStringLiteral("is_system"))) {
        MYDisplayAlert(
            tr("\u201c%1\u201d is built in and cannot be removed. Take it out of the panel and the tray menu "
               "instead (\u201cShow in the panel and the tray menu\u201d).")
                .arg(item->name()));
        return false;
    }
    if (!MYDisplayQuestion(tr("Remove the destination \u201c%1\u201d?").arg(item->name()), tr("Remove"), tr("Cancel")))
        return false;
    const int row = m_model->rowOf(item);
    m_form->setItem(nullptr);
    m_current = nullptr;
    m_context.deleteObject(item);
    save();
    m_model->reload();
    m_list->setCurrentIndex(m_model->index(std::min(row, m_model->rowCount() - 1)));
    emit destinationsChanged();
    return true;
}

void DestinationsPage::importSettings()
{
    const QStringList paths
        = DialogService::current().chooseOpenFiles(tr("Quirepad settings (*%1)").arg(settingsExtension()));
    bool any = false;
    for (const QString& path : paths) {
        QString error;
        if (m_delegate.importFrom(path, &error))
            any = true;
        else
            MYDisplayAlert(tr("%1 could not be imported: %2").arg(path, error));
    }
    if (!any)
        return;
    save();
    m_model->reload();
    emit destinationsChanged();
}

void DestinationsPage::exportAll()
{
    const QString path = withSettingsExtension(DialogService::current().chooseSaveFile(
        QDir::homePath() + QStringLiteral("/Destinations") + settingsExtension()));
    QString error;
    if (!path.isEmpty() && !m_delegate.exportTo(path, &error))
        MYDisplayAlert(tr("The destinations could not be exported to %1: %2").arg(path, error));
}

void DestinationsPage::exportSelected()
{
    const DestinationItem* item = selectedItem();
    if (!item)
        return;
    QString suggested = item->name();
    suggested.replace(QLatin1Char('/'), QLatin1Char('-'));
    const QString path = withSettingsExtension(
        DialogService::current().chooseSaveFile(QDir::homePath() + QLatin1Char('/') + suggested + settingsExtension()));
    QString error;
    if (!path.isEmpty() && !m_delegate.exportItemTo(*item, path, &error))
        MYDisplayAlert(tr("\u201c%1\u201d could not be exported to %2: %3").arg(item->name(), path, error));
}

DestinationItem* DestinationsPage::addFromFiles(const QStringList& files)
{
    if (!mayLeaveCurrent())
        return nullptr;
    DestinationItem* item = DestinationTemplates(m_context).readObjectsFromPasteboard(files);
    if (!item) {
        MYDisplayAlert(tr("Drop a folder, an application's .desktop file or a .workflow to make a destination of it."));
        return nullptr;
    }
    // A name already taken gets a number.
    m_model->reload();
    item->setValue(QStringLiteral("name"), freeName(item->name(), item));
    save();
    m_model->reload();
    select(item);
    emit destinationsChanged();
    return item;
}

} // namespace quirepad
