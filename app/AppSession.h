#pragma once

#include "pipeline/MainAppDelegate.h"

#include <functional>
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

    // How this process shows its preferences window; none without windows.
    void setPreferencesHandler(std::function<void()> handler) { m_showPreferences = std::move(handler); }
    // Shows the window; false when this process has none.
    bool showPreferences();

private:
    std::unique_ptr<MainAppDelegate> m_delegate;
    bool m_started = false;
    bool m_isInstance = false;
    std::function<void()> m_showPreferences;
};

} // namespace quirepad
