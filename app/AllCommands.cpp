#include "AllCommands.h"

#include "CaptureCommands.h"
#include "DefaultsCommands.h"
#include "DeliveryCommands.h"
#include "DestinationCommands.h"
#include "JobQueueCommands.h"
#include "NetworkCommands.h"
#include "PluginCommands.h"
#include "QueueCommands.h"

namespace quirepad {

void addAllCommands(CommandLine& commandLine, AppSession& session)
{
    addDestinationCommands(commandLine, session);
    addDefaultsCommands(commandLine, session);
    addDeliveryCommands(commandLine, session);
    addQueueCommands(commandLine, session);
    addJobQueueCommands(commandLine, session);
    addPluginCommands(commandLine, session);
    addNetworkCommands(commandLine, session);
    addCaptureCommands(commandLine, session);
}

} // namespace quirepad
