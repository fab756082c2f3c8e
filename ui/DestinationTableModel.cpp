#include "ui/DestinationTableModel.h"

#include "store/DestinationItem.h"
#include "store/DestinationSchema.h"
#include "store/ManagedObjectContext.h"
#include "store/Predicate.h"

namespace quirepad {

namespace {

const char* attributeOf(int column)
{
    switch (column) {
    case DestinationTableModel::InMenu: return "in_menu";
    case DestinationTableModel::Name: return "name";
    case DestinationTableModel::Type: return "type";
    case DestinationTableModel::Pattern: return "name_pattern";
    case DestinationTableModel::Compress: return "do_compress";
    case DestinationTableModel::Overwrite: return "do_overwrite";
    case DestinationTableModel::Filter: return "tranform";
    default: return nullptr;
    }
}

bool isCheckColumn(int column)
{
    return column == DestinationTableModel::InMenu || column == DestinationTableModel::Compress
           || column == DestinationTableModel::Overwrite;
}

} // namespace

DestinationTableModel::DestinationTableModel(ManagedObjectContext& context, QObject* parent)
    : QAbstractTableModel(parent)
    , m_context(context)
    , m_items(fetch())
{
    // Edits elsewhere (the command line, the panel's store) show up here;
    // added or removed records rebuild the rows.
    connect(&m_context, &ManagedObjectContext::objectsChanged, this, [this] {
        if (fetch() != m_items)
            reload();
        else if (!m_items.isEmpty())
            emit dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
    });
}

QList<DestinationItem*> DestinationTableModel::fetch() const
{
    return m_context
        .entities(QString::fromLatin1(DestinationSchema::entityName), Predicate::always(),
                  {{QStringLiteral("order"), true}, {QStringLiteral("name"), true}})
        .value_or(QList<DestinationItem*>());
}

void DestinationTableModel::reload()
{
    beginResetModel();
    m_items = fetch();
    endResetModel();
}

int DestinationTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

int DestinationTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

DestinationItem* DestinationTableModel::itemAt(int row) const
{
    return row >= 0 && row < m_items.size() ? m_items.at(row) : nullptr;
}

int DestinationTableModel::rowOf(const DestinationItem* item) const
{
    for (int row = 0; row < m_items.size(); ++row)
        if (m_items.at(row) == item)
            return row;
    return -1;
}

QString DestinationTableModel::targetKey(const QString& typeLetter)
{
    if (typeLetter == QLatin1String("O"))
        return QStringLiteral("config.appid");
    if (typeLetter == QLatin1String("X"))
        return QStringLiteral("config.plugin_name");
    if (typeLetter == QLatin1String("I") || typeLetter == QLatin1String("B"))
        return QStringLiteral("config.author_name");
    return QStringLiteral("config.output_dir");
}

QString DestinationTableModel::typeTitle(const QString& typeLetter)
{
    static const QHash<QString, QString> titles{
        {QStringLiteral("F"), tr("Folder")},       {QStringLiteral("O"), tr("Application")},
        {QStringLiteral("X"), tr("Workflow")},     {QStringLiteral("D"), tr("Sync folder")},
        {QStringLiteral("I"), tr("Media library")}, {QStringLiteral("B"), tr("E-book library")},
        {QStringLiteral("K"), tr("E-reader")},
    };
    return titles.value(typeLetter, tr("Folder"));
}

QVariant DestinationTableModel::data(const QModelIndex& index, int role) const
{
    const DestinationItem* item = itemAt(index.row());
    if (!item)
        return {};
    const int column = index.column();
    if (isCheckColumn(column)) {
        if (role == Qt::CheckStateRole)
            return item->boolForKey(QString::fromLatin1(attributeOf(column))) ? Qt::Checked : Qt::Unchecked;
        return {};
    }
    if (role == Qt::DecorationRole && column == Name)
        return item->icon();
    if (role != Qt::DisplayRole && role != Qt::EditRole && role != Qt::ToolTipRole)
        return {};
    if (column == Type)
        return role == Qt::EditRole ? item->type() : typeTitle(item->type());
    if (column == Target)
        return item->value(targetKey(item->type()));
    return item->value(QString::fromLatin1(attributeOf(column)));
}

bool DestinationTableModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    DestinationItem* item = itemAt(index.row());
    if (!item)
        return false;
    const int column = index.column();
    bool changed = false;
    if (isCheckColumn(column) && role == Qt::CheckStateRole) {
        item->setBool(value.toInt() == Qt::Checked, QString::fromLatin1(attributeOf(column)));
        changed = true;
    } else if (role == Qt::EditRole && column == Target) {
        const QString text = value.toString().trimmed();
        changed = item->setValue(targetKey(item->type()), text.isEmpty() ? QVariant() : QVariant(text));
    } else if (role == Qt::EditRole && (column == Name || column == Pattern || column == Filter)) {
        const QString text = column == Name ? value.toString().trimmed() : value.toString();
        if (column == Name && text.isEmpty())
            return false; // a destination is chosen by its name
        changed = item->setValue(QString::fromLatin1(attributeOf(column)), text.isEmpty() ? QVariant() : QVariant(text));
    }
    if (!changed)
        return false;
    emit dataChanged(index, index);
    emit edited(item);
    return true;
}

QVariant DestinationTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case InMenu: return tr("In Menu");
    case Name: return tr("Name");
    case Type: return tr("Type");
    case Pattern: return tr("File Name");
    case Target: return tr("Folder / Application / Workflow");
    case Compress: return tr("Compress");
    case Overwrite: return tr("Overwrite");
    case Filter: return tr("Filter");
    default: return {};
    }
}

Qt::ItemFlags DestinationTableModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (isCheckColumn(index.column()))
        flags |= Qt::ItemIsUserCheckable;
    else if (index.column() != Type)
        flags |= Qt::ItemIsEditable;
    return flags;
}

} // namespace quirepad
