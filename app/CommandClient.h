#pragma once

#include "InstanceMessage.h"
#include "SingleInstance.h"

#include <functional>

namespace quirepad {

// Gets a request from this process's command line done exactly once: by
// the user's running Quirepad when one listens, else here. Once the request
// may have reached an instance it is never done here as well: when no
// answer comes, the reply says so with InstanceReply::unavailableStatus.
class CommandClient
{
public:
    using LocalRun = std::function<InstanceReply(const InstanceRequest&)>;

    explicit CommandClient(LocalRun runHere, const QString& runtimeDir = SingleInstance::defaultRuntimeDir());

    void setOptions(ForwardOptions options) { m_options = std::move(options); }

    InstanceReply run(const InstanceRequest& request) const;

private:
    LocalRun m_runHere;
    QString m_runtimeDir;
    ForwardOptions m_options;
};

} // namespace quirepad
