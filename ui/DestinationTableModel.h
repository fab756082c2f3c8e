#pragma once

#include <QAbstractTableModel>
#include <QList>

namespace quirepad {

class DestinationItem;
class ManagedObjectContext;

// The destinations as table rows, sorted by their order, with the fields a
// user edits most: shown in the menu, name, name pattern, where the files
// go, compress, overwrite and filter.
class DestinationTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { InMenu, Name, Type, Pattern, Target, Compress, Overwrite, Filter, ColumnCount };

    explicit DestinationTableModel(ManagedObjectContext& context, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    DestinationItem* itemAt(int row) const;
    int rowOf(const DestinationItem* item) const;
    // Reads the records again (after records were added or removed).
    void reload();

    // The config key that says where a destination of this type delivers.
    static QString targetKey(const QString& typeLetter);
    static QString typeTitle(const QString& typeLetter);

signals:
    // A record was edited through the table.
    void edited(quirepad::DestinationItem* item);

private:
    QList<DestinationItem*> fetch() const;

    ManagedObjectContext& m_context;
    QList<DestinationItem*> m_items; // owned by the context
};

} // namespace quirepad
