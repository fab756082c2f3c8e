#include "store/destination_copy.h"

#include "store/DestinationSchema.h"
#include "store/ManagedObjectContext.h"

namespace quirepad {

void destination_copy(ManagedObjectContext& source, ManagedObjectContext& target)
{
    for (DestinationItem* record : __get_all_entities(QString::fromLatin1(DestinationSchema::entityName), source))
        destination_copy_item(*record, target);
}

void destination_copy_item(const DestinationItem& record, ManagedObjectContext& target)
{
    const QString entity = QString::fromLatin1(DestinationSchema::entityName);
    DestinationItem* copy = target.firstEntity(entity, Predicate::equals(QStringLiteral("recid"), record.value("recid")));
    if (!copy) {
        copy = target.insertNewEntity(entity);
        if (!copy)
            return;
        copy->setValue(QStringLiteral("recid"), record.value(QStringLiteral("recid")));
    }
    for (const QString& attribute : DestinationSchema::transferredAttributes()) {
        if (attribute != QLatin1String("recid"))
            copy->setValue(attribute, record.value(attribute)); // nil included
    }
}

} // namespace quirepad
