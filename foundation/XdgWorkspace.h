#pragma once

#include "foundation/Workspace.h"

#include <QDBusConnection>
#include <QObject>

#include <memory>

namespace quirepad {

// The workspace of a freedesktop.org session: URLs open through
// QDesktopServices (xdg-open and the portal), files are revealed with the
// org.freedesktop.FileManager1 service and, where no file manager offers it,
// by opening the folder that holds them.
class XdgWorkspace final : public Workspace
{
public:
    explicit XdgWorkspace(const QDBusConnection& sessionBus = QDBusConnection::sessionBus());
    ~XdgWorkspace() override;

    bool openUrl(const QUrl& url) override;
    // Asks the file manager without waiting for it; the folder is opened
    // instead when the request fails.
    bool revealFile(const QString& path) override;

private:
    QDBusConnection m_bus;
    // Owns the replies still awaited, so none outlives the workspace.
    std::unique_ptr<QObject> m_pendingCalls;
};

} // namespace quirepad
