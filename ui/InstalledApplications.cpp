#include "ui/InstalledApplications.h"

#include "foundation/DesktopEntry.h"
#include "foundation/apps.h"

#include <QDirIterator>
#include <QSet>

namespace quirepad {

QList<InstalledApplications::Entry> InstalledApplications::list()
{
    QList<Entry> entries;
    QSet<QString> seen;
    for (const QString& dir : DesktopEntry::applicationDirs()) {
        QDirIterator it(dir, { QStringLiteral("*.desktop") }, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const std::optional<DesktopEntry> entry = DesktopEntry::fromFile(it.next());
            // The first folder with an ID wins, even when it hides the entry.
            if (!entry || seen.contains(entry->id()))
                continue;
            seen.insert(entry->id());
            if (!entry->isLaunchable() || entry->noDisplay() || entry->name().isEmpty())
                continue;
            entries << Entry { entry->id(), entry->name(), app_icon(entry->id()),
                entry->handlesMimeType(QStringLiteral("application/pdf")) };
        }
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        if (a.opensPdf != b.opensPdf)
            return a.opensPdf;
        return a.name.localeAwareCompare(b.name) < 0;
    });
    return entries;
}

} // namespace quirepad
