#pragma once

#include "pipeline/MainAppDelegate.h"

#include <memory>

namespace quirepad {

// What a command needs from the running program: the settings defaults
// registered and the destination store opened, once per process.
class AppSession
{
public:
    AppSession();
    ~AppSession();

    MainAppDelegate& delegate();
    // Whether this process is the user's running instance (commands such
    // as "stop" only mean something there).
    bool isInstance() const { return m_isInstance; }
    void setInstance(bool instance) { m_isInstance = instance; }
    // The store's context, or nullptr when it cannot be opened (the
    // reason was already reported).
    ManagedObjectContext* context();

private:
    std::unique_ptr<MainAppDelegate> m_delegate;
    bool m_started = false;
    bool m_isInstance = false;
};

} // namespace quirepad
