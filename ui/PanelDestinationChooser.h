#pragma once

#include "pipeline/DestinationChooser.h"

namespace quirepad {

class DestinationPanel;

// Asks through the destination panel: a chosen name, or a cancel (Escape,
// closing, the preferences) that lets the batch discard its jobs. A panel
// that is busy or withdrawn (Stop) leaves the job in the spool.
class PanelDestinationChooser : public DestinationChooser
{
public:
    // The panel must outlive the chooser.
    explicit PanelDestinationChooser(DestinationPanel& panel);

    Answer chooseDestination() override;

private:
    DestinationPanel& m_panel;
};

} // namespace quirepad
