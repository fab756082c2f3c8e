#include "ui/PanelDestinationChooser.h"

#include "ui/DestinationPanel.h"

namespace quirepad {

PanelDestinationChooser::PanelDestinationChooser(DestinationPanel& panel)
    : m_panel(panel)
{
}

DestinationChooser::Answer PanelDestinationChooser::chooseDestination()
{
    if (m_panel.isChoosing())
        return {Outcome::Unavailable, QString()}; // asked already: this job waits for a later scan
    const QString name = m_panel.chooseDestination();
    if (m_panel.wasWithdrawn())
        return {Outcome::Unavailable, QString()};
    if (name.isNull())
        return {Outcome::Cancelled, QString()};
    return {Outcome::Chosen, name};
}

} // namespace quirepad
