#include "CommandClient.h"

namespace quirepad {

CommandClient::CommandClient(LocalRun runHere, const QString& runtimeDir)
    : m_runHere(std::move(runHere))
    , m_runtimeDir(runtimeDir)
{
}

InstanceReply CommandClient::run(const InstanceRequest& request) const
{
    const ForwardResult result = SingleInstance::forward(request, m_runtimeDir, m_options);
    switch (result.outcome) {
    case ForwardResult::Outcome::Answered:
        return result.reply;
    case ForwardResult::Outcome::Unanswered:
        return { InstanceReply::unavailableStatus, {},
            QStringLiteral("quirepad: the running Quirepad did not answer: %1.\n"
                           "quirepad: the request was not carried out here; it may or may not have been "
                           "carried out there.\n")
                .arg(result.problem) };
    case ForwardResult::Outcome::NoInstance:
        break;
    }
    return m_runHere(request);
}

} // namespace quirepad
