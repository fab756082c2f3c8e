#include "ui/DestinationListModel.h"

#include "store/DestinationSchema.h"
#include "store/ManagedObjectContext.h"
#include "store/listorder.h"

#include <QApplication>
#include <QDataStream>
#include <QIODevice>
#include <QMimeData>
#include <QStyle>
#include <QUrl>

namespace quirepad {

namespace {

const QString kRowsMime = QStringLiteral("application/x-quirepad-destination-rows");

} // namespace

DestinationListModel::DestinationListModel(ManagedObjectContext& context, QObject* parent)
    : QAbstractListModel(parent)
    , m_context(context)
    , m_items(fetch())
{
    // Edits from elsewhere (the command line through this instance, the
    // panel) show at once.
    connect(&m_context, &ManagedObjectContext::objectsChanged, this, &DestinationListModel::refresh);
}

QList<DestinationItem*> DestinationListModel::fetch() const
{
    return m_context
        .entities(QString::fromLatin1(DestinationSchema::entityName), Predicate::always(),
            { { QStringLiteral("order"), true }, { QStringLiteral("name"), true } })
        .value_or(QList<DestinationItem*>());
}

void DestinationListModel::reload()
{
    beginResetModel();
    m_items = fetch();
    endResetModel();
}

void DestinationListModel::refresh()
{
    const QList<DestinationItem*> items = fetch();
    if (items == m_items) {
        if (!m_items.isEmpty())
            emit dataChanged(index(0), index(rowCount() - 1));
        return;
    }
    QList<DestinationItem*> sortedOld = m_items, sortedNew = items;
    std::sort(sortedOld.begin(), sortedOld.end());
    std::sort(sortedNew.begin(), sortedNew.end());
    if (sortedOld != sortedNew) {
        reload();
        return;
    }
    // The same records in another order: the selection follows them.
    emit layoutAboutToBeChanged();
    const QModelIndexList from = persistentIndexList();
    QModelIndexList to;
    for (const QModelIndex& index : from)
        to << this->index(int(items.indexOf(m_items.value(index.row()))));
    m_items = items;
    changePersistentIndexList(from, to);
    emit layoutChanged();
}

int DestinationListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

DestinationItem* DestinationListModel::itemAt(int row) const
{
    return row >= 0 && row < m_items.size() ? m_items.at(row) : nullptr;
}

int DestinationListModel::rowOf(const DestinationItem* item) const
{
    return int(m_items.indexOf(const_cast<DestinationItem*>(item)));
}

const QStringList& DestinationListModel::typeLetters()
{
    static const QStringList letters { QStringLiteral("F"), QStringLiteral("O"), QStringLiteral("B"),
        QStringLiteral("I"), QStringLiteral("D"), QStringLiteral("K"), QStringLiteral("X") };
    return letters;
}

QString DestinationListModel::typeTitle(const QString& typeLetter)
{
    if (typeLetter == QLatin1String("O"))
        return tr("Open with application");
    if (typeLetter == QLatin1String("B"))
        return tr("E-book library");
    if (typeLetter == QLatin1String("I"))
        return tr("Media library");
    if (typeLetter == QLatin1String("D"))
        return tr("Sync folder");
    if (typeLetter == QLatin1String("K"))
        return tr("E-reader");
    if (typeLetter == QLatin1String("X"))
        return tr("Workflow");
    return tr("Copy to folder");
}

QVariant DestinationListModel::data(const QModelIndex& index, int role) const
{
    const DestinationItem* item = itemAt(index.row());
    if (!item)
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return item->name();
    case Qt::DecorationRole: {
        const QIcon icon = item->icon();
        if (!icon.isNull())
            return icon;
        // Without an icon theme: the style's own pictures.
        const bool folder = item->type() == QLatin1String("F") || item->type() == QLatin1String("D");
        return QApplication::style()->standardIcon(folder ? QStyle::SP_DirIcon
                : item->type() == QLatin1String("X")      ? QStyle::SP_CommandLink
                                                          : QStyle::SP_FileIcon);
    }
    case Qt::ToolTipRole:
        return QStringLiteral("%1 \u2014 %2").arg(item->name(), typeTitle(item->type()));
    case TypeTitleRole:
        return typeTitle(item->type());
    default:
        return {};
    }
}

Qt::ItemFlags DestinationListModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::ItemIsDropEnabled;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
}

Qt::DropActions DestinationListModel::supportedDropActions() const
{
    return Qt::MoveAction | Qt::CopyAction | Qt::LinkAction;
}

QStringList DestinationListModel::mimeTypes() const
{
    return { kRowsMime, QStringLiteral("text/uri-list") };
}

QMimeData* DestinationListModel::mimeData(const QModelIndexList& indexes) const
{
    QList<int> rows;
    for (const QModelIndex& index : indexes)
        if (index.isValid() && !rows.contains(index.row()))
            rows << index.row();
    std::sort(rows.begin(), rows.end());
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << rows;
    auto* data = new QMimeData; // handed to the drag, which owns it
    data->setData(kRowsMime, bytes);
    return data;
}

bool DestinationListModel::canDropMimeData(const QMimeData* data, Qt::DropAction, int, int, const QModelIndex&) const
{
    if (data->hasFormat(kRowsMime))
        return true;
    return std::any_of(data->urls().cbegin(), data->urls().cend(), [](const QUrl& url) { return url.isLocalFile(); });
}

bool DestinationListModel::dropMimeData(
    const QMimeData* data, Qt::DropAction action, int row, int, const QModelIndex& parent)
{
    if (action == Qt::IgnoreAction)
        return true;
    // Dropped onto a row: in front of it.
    const int before = row >= 0 ? row : (parent.isValid() ? parent.row() : rowCount());
    if (data->hasFormat(kRowsMime)) {
        QList<int> rows;
        QByteArray bytes = data->data(kRowsMime);
        QDataStream stream(&bytes, QIODevice::ReadOnly);
        stream >> rows;
        moveRecords(rows, before);
        return false; // moved here: nothing for the view to remove
    }
    QStringList files;
    for (const QUrl& url : data->urls())
        if (url.isLocalFile())
            files << url.toLocalFile();
    if (files.isEmpty())
        return false;
    emit filesDropped(files);
    return true;
}

bool DestinationListModel::moveRecords(const QList<int>& rows, int before)
{
    QList<DestinationItem*> moved;
    for (int row : rows)
        if (DestinationItem* item = itemAt(row))
            moved << item;
    if (moved.isEmpty())
        return false;
    // The record in front of the drop point that is not moved itself.
    DestinationItem* inFront = nullptr;
    for (int row = std::min(before, rowCount()) - 1; row >= 0 && !inFront; --row)
        if (!moved.contains(m_items.at(row)))
            inFront = m_items.at(row);
    const QList<DestinationItem*> content = m_items;
    listDropReorder(content, moved, inFront, SortDescriptor { QStringLiteral("order"), true });
    refresh();
    emit reordered();
    return true;
}

} // namespace quirepad
