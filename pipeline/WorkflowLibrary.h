#pragma once

#include "pipeline/UserWorkflows.h"

#include <QList>
#include <QObject>
#include <QStringList>

namespace quirepad {

// The plugin and filter workflows the user can choose from: the user's
// folders first, then the built-in ones; and the installation of the
// sample workflows into the user's folders.
class WorkflowLibrary : public QObject
{
    Q_OBJECT

public:
    explicit WorkflowLibrary(QObject* parent = nullptr);

    QStringList allPluginFiles() const { return m_plugins; }
    QStringList allFilterFiles() const { return m_filters; }

    // Plugins: the user's sorted, "---", the built-in ones sorted (the
    // separator only when both parts have names). Filters: the user's, then
    // built-in ones not already listed, in listing order, no separator.
    void refreshPluginList();
    // Copies each sample under its installed name unless a file of that
    // name is already there, then refreshes the lists. Answers the paths
    // it installed.
    QStringList installWorkflows();

    static constexpr const char* separator = "---";

    // A sample workflow of ${APP_RESOURCES}/SamplePlugins or SampleFilters:
    // its file name there and the name it is installed under.
    struct Sample {
        const char* file;
        const char* installedName;
    };
    static QList<Sample> samples(WorkflowKind kind);

signals:
    void listsChanged();

private:
    QStringList m_plugins;
    QStringList m_filters;
};

} // namespace quirepad
