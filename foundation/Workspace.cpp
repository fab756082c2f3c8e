#include "foundation/Workspace.h"

#include "foundation/XdgWorkspace.h"

namespace quirepad {

namespace {
std::unique_ptr<Workspace>& currentInstance()
{
    static std::unique_ptr<Workspace> instance;
    return instance;
}
} // namespace

Workspace::~Workspace() = default;

Workspace& Workspace::current()
{
    auto& instance = currentInstance();
    if (!instance)
        instance = std::make_unique<XdgWorkspace>();
    return *instance;
}

void Workspace::setCurrent(std::unique_ptr<Workspace> workspace)
{
    currentInstance() = std::move(workspace);
}

} // namespace quirepad
