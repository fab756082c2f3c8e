#pragma once

namespace quirepad {

class DestinationItem;
class ManagedObjectContext;

// Copies every Destination of the source into the target, matched by
// recid. Only recid, type, order, name and the four carried attributes
// travel; a record new to the target arrives without anything else, and an
// existing one keeps the rest of its own.
void destination_copy(ManagedObjectContext& source, ManagedObjectContext& target);
void destination_copy_item(const DestinationItem& record, ManagedObjectContext& target);

} // namespace quirepad
