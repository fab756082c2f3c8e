#pragma once

#include "pipeline/CopyFileProcessor.h"

#include <memory>

namespace quirepad {

class ManagedObjectContext;

// copyProcessorForName: the processor for the first destination whose
// recid, else whose name, equals the name exactly; configured from the
// record. nullptr when no destination matches.
std::unique_ptr<CopyFileProcessor> copyProcessorForName(ManagedObjectContext& context, const QString& name);

// The processor class for a type letter; any unknown letter is a folder.
std::unique_ptr<CopyFileProcessor> makeProcessorForType(const QString& type);

} // namespace quirepad
