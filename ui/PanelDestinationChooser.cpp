#include "ui/PanelDestinationChooser.h"

#include "ui/DestinationPanel.h"

namespace quirepad {

PanelDestinationChooser::PanelDestinationChooser(MainAppDelegateBase& delegate)
    : m_panel(std::make_unique<DestinationPanel>(delegate))
{
}

PanelDestinationChooser::~PanelDestinationChooser() = default;

DestinationChooser::Answer PanelDestinationChooser::chooseDestination()
{
    const QString name = m_panel->chooseDestination();
    if (name.isNull())
        return {Outcome::Cancelled, QString()};
    return {Outcome::Chosen, name};
}

} // namespace quirepad
