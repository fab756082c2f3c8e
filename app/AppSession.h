#pragma once

#include "pipeline/DriverInstaller.h"
#include "pipeline/MainAppDelegate.h"

#include <functional>
#include <memory>

namespace quirepad {

class NetworkServices;
class WebCaptureClient;

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

    // The print driver this process installs: the shipped one unless told
    // otherwise (tests put a stand-in installer in its place).
    void setDriverPaths(DriverInstaller::Paths paths) { m_driverPaths = std::move(paths); }
    DriverInstaller driverInstaller() const { return DriverInstaller(m_driverPaths); }

    // Web pages to PDF, through a worker started on first use.
    WebCaptureClient& webCapture();

    // The running instance's network services; nullptr in other processes.
    NetworkServices* networkServices() const { return m_network; }
    void setNetworkServices(NetworkServices* network) { m_network = network; }

private:
    std::unique_ptr<MainAppDelegate> m_delegate; // made on first use
    NetworkServices* m_network = nullptr;
    std::unique_ptr<WebCaptureClient> m_webCapture;
    DriverInstaller::Paths m_driverPaths;
    bool m_isInstance = false;
    std::function<void()> m_showPreferences;
};

} // namespace quirepad
