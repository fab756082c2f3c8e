#pragma once

#include "ui/WorkflowEditor.h"

namespace quirepad {

// The window of the user's plugin workflows, listed by name.
class PluginEditor final : public WorkflowEditor
{
    Q_OBJECT

public:
    explicit PluginEditor(WorkflowLibrary& library, QWidget* parent = nullptr)
        : WorkflowEditor(WorkflowKind::Plugin, library, parent)
    {
    }
};

} // namespace quirepad
