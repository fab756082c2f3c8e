#pragma once

#include "pipeline/DestinationChooser.h"

#include <memory>

namespace quirepad {

class DestinationPanel;
class MainAppDelegateBase;

// Asks through the destination panel: a chosen name, or a cancel (Escape,
// closing, the preferences) that lets the batch discard its jobs. A panel
// that is busy or withdrawn (Stop) leaves the job in the spool.
class PanelDestinationChooser : public DestinationChooser
{
public:
    explicit PanelDestinationChooser(MainAppDelegateBase& delegate);
    ~PanelDestinationChooser() override;

    Answer chooseDestination() override;
    DestinationPanel& panel() const { return *m_panel; }

private:
    std::unique_ptr<DestinationPanel> m_panel;
};

} // namespace quirepad
