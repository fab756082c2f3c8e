#include "store/ManagedObjectContext.h"

#include "store/DestinationSchema.h"

#include <QLoggingCategory>

#include <algorithm>

namespace quirepad {

ManagedObjectContext::ManagedObjectContext(std::unique_ptr<PersistentStore> store, QObject* parent)
    : QObject(parent)
    , m_store(std::move(store))
{
}

ManagedObjectContext::~ManagedObjectContext() = default;

bool ManagedObjectContext::knows(const QString& entity) const
{
    return entity == QLatin1String(DestinationSchema::entityName);
}

bool ManagedObjectContext::ensureLoaded()
{
    if (m_loaded)
        return true;
    if (!m_store)
        return false;
    QString error;
    const std::optional<QList<StoredRecord>> records = m_store->loadAll(&error);
    if (!records) {
        qWarning().noquote() << "cannot read" << m_store->location() << ":" << error;
        return false;
    }
    for (const StoredRecord& record : *records)
        m_objects.push_back(std::unique_ptr<DestinationItem>(new DestinationItem(this, record.rowId, record.values)));
    m_loaded = true;
    return true;
}

void ManagedObjectContext::noteChange()
{
    m_hasChanges = true;
    emit objectsChanged();
}

DestinationItem* ManagedObjectContext::insertNewEntity(const QString& entity)
{
    if (!knows(entity) || !ensureLoaded())
        return nullptr;
    m_objects.push_back(std::unique_ptr<DestinationItem>(new DestinationItem(this, 0, {})));
    DestinationItem* item = m_objects.back().get();
    item->m_dirty = true;
    noteChange();
    return item;
}

DestinationItem* ManagedObjectContext::insertOrUpdateEntity(const QString& entity, const Predicate& matching)
{
    if (DestinationItem* found = firstEntity(entity, matching))
        return found;
    return insertNewEntity(entity);
}

DestinationItem* ManagedObjectContext::firstEntity(const QString& entity, const Predicate& matching,
                                                   const SortSpec& sortedBy)
{
    const std::optional<QList<DestinationItem*>> found = entities(entity, matching, sortedBy);
    return found && !found->isEmpty() ? found->first() : nullptr;
}

bool ManagedObjectContext::containsEntity(const QString& entity, const Predicate& matching)
{
    const std::optional<QList<DestinationItem*>> found = entities(entity, matching);
    return found && !found->isEmpty();
}

std::optional<QList<DestinationItem*>> ManagedObjectContext::entities(const QString& entity,
                                                                      const Predicate& matching,
                                                                      const SortSpec& sortedBy)
{
    if (!knows(entity) || !ensureLoaded())
        return std::nullopt;
    QList<DestinationItem*> result;
    for (const auto& object : m_objects)
        if (matching.matches(object->m_values))
            result << object.get();
    if (!sortedBy.isEmpty()) {
        std::stable_sort(result.begin(), result.end(), [&](DestinationItem* a, DestinationItem* b) {
            for (const SortDescriptor& sort : sortedBy) {
                const int c = compareValues(a->value(sort.key), b->value(sort.key));
                if (c != 0)
                    return sort.ascending ? c < 0 : c > 0;
            }
            return false;
        });
    }
    return result;
}

void ManagedObjectContext::deleteObject(DestinationItem* object)
{
    const auto it = std::find_if(m_objects.begin(), m_objects.end(),
                                 [object](const auto& candidate) { return candidate.get() == object; });
    if (it == m_objects.end())
        return;
    object->m_deleted = true;
    if (object->m_rowId > 0)
        m_pendingDeletes << object->m_rowId;
    m_deleted.push_back(std::move(*it));
    m_objects.erase(it);
    noteChange();
}

void ManagedObjectContext::deleteEntities(const QString& entity, const Predicate& matching)
{
    const std::optional<QList<DestinationItem*>> found = entities(entity, matching);
    if (!found)
        return;
    for (DestinationItem* object : *found)
        deleteObject(object);
}

DestinationItem* ManagedObjectContext::objectWithIDString(const QString& idString)
{
    if (!ensureLoaded())
        return nullptr;
    for (const auto& object : m_objects)
        if (object->objectIDString() == idString)
            return object.get();
    return nullptr;
}

bool ManagedObjectContext::save(QString* error)
{
    if (!m_hasChanges)
        return true;
    if (!m_store) {
        *error = QStringLiteral("there is no store to save to");
        return false;
    }
    SaveRequest request;
    QList<DestinationItem*> inserted;
    for (const auto& object : m_objects) {
        if (object->m_rowId == 0) {
            request.inserted << object->m_values;
            inserted << object.get();
        } else if (object->m_dirty) {
            request.updated << StoredRecord{object->m_rowId, object->m_values};
        }
        request.all << StoredRecord{object->m_rowId, object->m_values};
    }
    request.deleted = m_pendingDeletes;

    QList<qint64> ids;
    if (!m_store->save(request, &ids, error))
        return false;
    for (qsizetype i = 0; i < inserted.size() && i < ids.size(); ++i)
        inserted[i]->m_rowId = ids[i];
    for (const auto& object : m_objects)
        object->m_dirty = false;
    m_pendingDeletes.clear();
    m_hasChanges = false;
    return true;
}

QList<DestinationItem*> __get_all_entities(const QString& entity, ManagedObjectContext& context)
{
    return context.entities(entity, Predicate::always()).value_or(QList<DestinationItem*>());
}

QList<DestinationItem*> menuDestinations(ManagedObjectContext& context)
{
    return context
        .entities(QString::fromLatin1(DestinationSchema::entityName), Predicate::equals(QStringLiteral("in_menu"), true),
                  {{QStringLiteral("order"), true}})
        .value_or(QList<DestinationItem*>());
}

} // namespace quirepad
