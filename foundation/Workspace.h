#pragma once

#include <QString>
#include <QUrl>

#include <memory>

namespace quirepad {

// The desktop's handling of documents and locations: opening a URL with its
// preferred application and showing a file in the file manager.
class Workspace
{
public:
    virtual ~Workspace();

    // Opens the URL with the application the desktop associates with it.
    virtual bool openUrl(const QUrl& url) = 0;
    // Shows the file (or folder) selected in the file manager. False when
    // there is nothing at path or nothing could be asked to show it.
    virtual bool revealFile(const QString& path) = 0;

    // The process-wide workspace; an XdgWorkspace on the session bus until
    // one is set.
    static Workspace& current();
    // Replaces the process-wide workspace; null restores the default.
    static void setCurrent(std::unique_ptr<Workspace> workspace);

protected:
    Workspace() = default;
    Workspace(const Workspace&) = delete;
    Workspace& operator=(const Workspace&) = delete;
};

} // namespace quirepad
