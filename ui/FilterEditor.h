#pragma once

#include "ui/WorkflowEditor.h"

namespace quirepad {

// The window of the user's filter workflows, in the folder's order.
class FilterEditor final : public WorkflowEditor
{
    Q_OBJECT

public:
    explicit FilterEditor(WorkflowLibrary& library, QWidget* parent = nullptr)
        : WorkflowEditor(WorkflowKind::Filter, library, parent)
    {
    }
};

} // namespace quirepad
