#pragma once

#include <QList>
#include <QString>

namespace quirepad {

// One sort key: an attribute (or key path) and its direction.
struct SortDescriptor {
    QString key;
    bool ascending = true;
};

using SortSpec = QList<SortDescriptor>;

} // namespace quirepad
