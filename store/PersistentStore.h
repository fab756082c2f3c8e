#pragma once

#include <QList>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace quirepad {

// One record as a store keeps it: a row id (0 for a record never saved)
// and its attribute values.
struct StoredRecord {
    qint64 rowId = 0;
    QVariantMap values;
};

// The changes of one save. Stores that rewrite whole files use 'all'.
struct SaveRequest {
    QList<QVariantMap> inserted;
    QList<StoredRecord> updated;
    QList<qint64> deleted;
    QList<StoredRecord> all; // every live record after the save, new ones with rowId 0
};

// Where a ManagedObjectContext loads records from and saves them to.
class PersistentStore
{
public:
    virtual ~PersistentStore() = default;

    virtual std::optional<QList<StoredRecord>> loadAll(QString* error) = 0;
    // Saves atomically: all of it or nothing. On success, insertedRowIds
    // holds the ids given to request.inserted, in order.
    virtual bool save(const SaveRequest& request, QList<qint64>* insertedRowIds, QString* error) = 0;
    virtual QString location() const = 0;
};

} // namespace quirepad
