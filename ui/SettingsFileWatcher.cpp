#include "ui/SettingsFileWatcher.h"

#include <QDir>
#include <QFileInfo>

namespace quirepad {

SettingsFileWatcher::SettingsFileWatcher(const QString& file, QObject* parent)
    : QObject(parent)
    , m_file(QFileInfo(file).absoluteFilePath())
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(100);
    connect(&m_settle, &QTimer::timeout, this, [this] {
        rewatch();
        emit changed();
    });
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, [this] { m_settle.start(); });
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, [this] { m_settle.start(); });
    rewatch();
}

void SettingsFileWatcher::rewatch()
{
    const QString folder = QFileInfo(m_file).absolutePath();
    QDir().mkpath(folder);
    if (!m_watcher.directories().contains(folder))
        m_watcher.addPath(folder);
    // A replaced file is a new one: the watch moves to it.
    if (m_watcher.files().contains(m_file))
        m_watcher.removePath(m_file);
    if (QFileInfo::exists(m_file))
        m_watcher.addPath(m_file);
}

} // namespace quirepad
