#pragma once

#include "pipeline/UserWorkflows.h"

#include <QList>
#include <QString>

#include <optional>

namespace quirepad {

class WorkflowLibrary;

// Makes a workflow of the user's own from one of the shipped samples
// (${APP_RESOURCES}/SamplePlugins or SampleFilters): the sample is copied
// into the user's folder as "NAME.workflow" and opened for editing, then
// the workflow lists are refreshed. A workflow of that name already there
// is kept as it is (and opened).
class WorkflowCreator
{
public:
    struct Sample {
        QString id;    // file name in the sample folder, without ".workflow"
        QString title; // the name suggested for the copy
        QString path;
    };

    enum class Outcome {
        Created,
        Existing,  // a workflow of that name was there already; it was kept
        Cancelled, // the user cancelled the prompt
        Refused,   // no such sample, or a name that cannot be a file name
        Failed,    // the copy could not be written
    };

    struct Result {
        Outcome outcome = Outcome::Refused;
        QString path;  // the user's workflow
        QString error;
        bool opened = false;
    };

    explicit WorkflowCreator(WorkflowKind kind, WorkflowLibrary* library = nullptr);

    // The samples of this kind, in folder order.
    QList<Sample> samples() const;
    std::optional<Sample> sample(const QString& idOrTitle) const;

    // Asks for the name (suggestedName to start with), then copies, opens
    // and refreshes. Refusals are shown in an alert.
    Result createInteractively(const QString& sampleId, const QString& suggestedName);
    // The same without asking; opens the copy only when told to.
    Result create(const QString& sampleId, const QString& name, bool openForEditing);

    // Why a name typed by the user cannot name a workflow; nothing when it
    // can. A trailing ".workflow" is allowed.
    static std::optional<QString> nameProblem(const QString& name);
    // The file to edit: a folder workflow's "run", a file workflow itself.
    static QString editablePath(const QString& workflowPath);
    // Opens the workflow's editable file with the desktop's handler for it.
    static bool openForEditing(const QString& workflowPath);

    static constexpr const char* kPluginPrompt
        = "Create Custom Workflow\nThe Automator editor workflow will open up so you can customize it further.";
    static constexpr const char* kFilterPrompt
        = "Create Trasnformation Filter\nThe Automator editor workflow will open up so you can customize it further.";

private:
    QString sampleFolder() const;
    bool copySample(const QString& source, const QString& target, Result& result) const;

    WorkflowKind m_kind;
    WorkflowLibrary* m_library = nullptr;
};

} // namespace quirepad
