#pragma once

#include "store/MainAppDelegateBase.h"

#include <memory>

namespace quirepad {

// What a command needs from the running program: the settings defaults
// registered and the destination store opened, once per process.
class AppSession
{
public:
    AppSession();
    ~AppSession();

    MainAppDelegateBase& delegate();
    // The store's context, or nullptr when it cannot be opened (the
    // reason was already reported).
    ManagedObjectContext* context();

private:
    std::unique_ptr<MainAppDelegateBase> m_delegate;
    bool m_started = false;
};

} // namespace quirepad
