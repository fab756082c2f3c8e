#pragma once

#include <QAbstractListModel>
#include <QList>

namespace quirepad {

class DestinationItem;
class ManagedObjectContext;

// The destinations in the store's order, for the list of the preferences:
// name, icon and the type in words. Rows are moved by dragging them (the
// order is kept by the store's list ordering rules); files and folders
// dropped on the list are handed on to become destinations.
class DestinationListModel : public QAbstractListModel
{
    Q_OBJECT

public:
    enum Role { TypeTitleRole = Qt::UserRole + 1 };

    explicit DestinationListModel(ManagedObjectContext& context, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    Qt::DropActions supportedDropActions() const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool canDropMimeData(
        const QMimeData* data, Qt::DropAction action, int row, int column, const QModelIndex& parent) const override;
    bool dropMimeData(
        const QMimeData* data, Qt::DropAction action, int row, int column, const QModelIndex& parent) override;

    DestinationItem* itemAt(int row) const;
    int rowOf(const DestinationItem* item) const;
    // Reads the records again.
    void reload();
    // Puts the records of these rows, in their order, in front of the row
    // `before` (rowCount(): at the end) and numbers the list again.
    bool moveRecords(const QList<int>& rows, int before);

    // The type in words: "Copy to folder", "Open with application", ...
    static QString typeTitle(const QString& typeLetter);
    static const QStringList& typeLetters();

signals:
    // The order was changed: the store is to be saved.
    void reordered();
    void filesDropped(const QStringList& files);

private:
    QList<DestinationItem*> fetch() const;
    void refresh();

    ManagedObjectContext& m_context;
    QList<DestinationItem*> m_items; // owned by the context
};

} // namespace quirepad
