#pragma once

#include <QList>
#include <QString>

#include <functional>

namespace quirepad {

// A desktop notification with what the user can do from it. A file that
// was written can be opened (its default application) or shown in its
// folder; other actions run a callback. Notifications with the same tag
// replace each other on screen (a progress that moves on).
struct Notification {
    struct Action {
        QString key; // unique among the notification's actions
        QString label; // shown on the button
        std::function<void()> run;
    };

    QString title;
    QString text;
    QString revealPath; // "Show in Folder"
    QString openPath; // "Open"
    QList<Action> actions;
    QString tag;
    int progress = -1; // 0..100; -1 shows none

    // The labels of every action offered, in order.
    QStringList actionLabels() const;
};

} // namespace quirepad
