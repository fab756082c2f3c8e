#include "pipeline/TriggerWatcher.h"

#include <QDir>
#include <QFileInfo>

namespace quirepad {

TriggerWatcher::TriggerWatcher(const QString& sharedDirectory, const QString& triggerFile, QObject* parent)
    : QObject(parent)
    , m_directory(QDir::cleanPath(sharedDirectory))
    , m_trigger(triggerFile)
{
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, [this](const QString& path) {
        if (path == m_trigger)
            emit triggered(m_trigger);
        rewatch(); // a replaced file drops out of the watch
    });
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, [this] { rewatch(); });
    rewatch();
}

void TriggerWatcher::rewatch()
{
    const bool wasWatched = m_watcher.files().contains(m_trigger);
    const QString parent = QFileInfo(m_directory).absolutePath();
    if (QFileInfo(m_directory).isDir()) {
        if (!m_watcher.directories().contains(m_directory))
            m_watcher.addPath(m_directory);
        if (m_watcher.directories().contains(parent))
            m_watcher.removePath(parent);
    } else if (QFileInfo(parent).isDir() && !m_watcher.directories().contains(parent)) {
        m_watcher.addPath(parent); // to see the folder appear
    }
    if (QFileInfo::exists(m_trigger) && !m_watcher.files().contains(m_trigger))
        m_watcher.addPath(m_trigger);
    if (!wasWatched && m_watcher.files().contains(m_trigger))
        emit triggered(m_trigger); // the trigger file has just been made (or its folder)
}

bool TriggerWatcher::isWatching() const
{
    return m_watcher.directories().contains(m_directory);
}

} // namespace quirepad
