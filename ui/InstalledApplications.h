#pragma once

#include <QIcon>
#include <QList>
#include <QString>

namespace quirepad {

// The applications a destination can open files with: every launchable
// desktop entry shown in menus, those that open PDF documents first, then
// by name.
class InstalledApplications
{
public:
    struct Entry {
        QString id; // desktop-entry ID, as destinations store it
        QString name;
        QIcon icon;
        bool opensPdf = false;
    };

    static QList<Entry> list();
};

} // namespace quirepad
