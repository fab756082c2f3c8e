#pragma once

#include "store/DestinationItem.h"
#include "store/PersistentStore.h"
#include "store/Predicate.h"
#include "store/SortDescriptor.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>
#include <vector>

namespace quirepad {

// The records of one store, loaded on first use and kept as objects until
// the context goes; edits stay in memory until save(). Fetches see unsaved
// inserts and not deleted records. The only entity is "Destination".
class ManagedObjectContext : public QObject
{
    Q_OBJECT

public:
    explicit ManagedObjectContext(std::unique_ptr<PersistentStore> store, QObject* parent = nullptr);
    ~ManagedObjectContext() override;

    PersistentStore* store() const { return m_store.get(); }

    DestinationItem* insertNewEntity(const QString& entity);
    DestinationItem* insertOrUpdateEntity(const QString& entity, const Predicate& matching);
    DestinationItem* firstEntity(const QString& entity, const Predicate& matching, const SortSpec& sortedBy = {});
    bool containsEntity(const QString& entity, const Predicate& matching);
    // nullopt when the fetch fails (unknown entity, unreadable store).
    std::optional<QList<DestinationItem*>> entities(const QString& entity, const Predicate& matching,
                                                    const SortSpec& sortedBy = {});
    void deleteEntities(const QString& entity, const Predicate& matching);
    void deleteObject(DestinationItem* object);
    DestinationItem* objectWithIDString(const QString& idString);

    bool hasChanges() const { return m_hasChanges; }
    // Writes every change in one transaction; on failure nothing is kept
    // as saved and the message says why.
    bool save(QString* error);

signals:
    void objectsChanged();

private:
    friend class DestinationItem;
    void noteChange();
    bool ensureLoaded();
    bool knows(const QString& entity) const;

    std::unique_ptr<PersistentStore> m_store;
    std::vector<std::unique_ptr<DestinationItem>> m_objects;
    std::vector<std::unique_ptr<DestinationItem>> m_deleted; // kept alive until the context goes
    QList<qint64> m_pendingDeletes;
    bool m_loaded = false;
    bool m_hasChanges = false;
};

// Every object of the entity.
QList<DestinationItem*> __get_all_entities(const QString& entity, ManagedObjectContext& context);
// The destinations the panel and the tray menu offer: in the menu, by order.
QList<DestinationItem*> menuDestinations(ManagedObjectContext& context);

} // namespace quirepad
