#include "foundation/Notification.h"

#include <QCoreApplication>

namespace quirepad {

QStringList Notification::actionLabels() const
{
    QStringList labels;
    if (!openPath.isEmpty())
        labels << QCoreApplication::translate("Notification", "Open");
    if (!revealPath.isEmpty())
        labels << QCoreApplication::translate("Notification", "Show in Folder");
    for (const Action& action : actions)
        labels << action.label;
    return labels;
}

} // namespace quirepad
