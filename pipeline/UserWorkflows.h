#pragma once

#include <QList>
#include <QString>

namespace quirepad {

enum class WorkflowKind { Plugin, Filter };

// The user's own workflows of one kind: plugins in ${APP_SUPPORT_PLUGINS},
// filters in ${APP_SUPPORT_PLUGINS}/Filters. Built-in workflows are not
// listed and cannot be removed here.
class UserWorkflows
{
public:
    struct Entry {
        QString name; // file name without ".workflow"
        QString path;
    };

    explicit UserWorkflows(WorkflowKind kind);

    // The expanded folder (it may not exist yet).
    QString folder() const;
    // Every "*.workflow" of the folder: plugins sorted by name, filters in
    // listing order.
    QList<Entry> list() const;
    // Deletes "NAME.workflow" (a file, a folder with what it holds, or a
    // link, never what a link points to). NAME may carry the extension.
    bool remove(const QString& name, QString* why = nullptr) const;

    static QString kindName(WorkflowKind kind);

private:
    WorkflowKind m_kind;
};

} // namespace quirepad
