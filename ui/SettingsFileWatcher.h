#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

namespace quirepad {

// Says when a settings file changes on disk, whoever wrote it. The file is
// replaced rather than rewritten by most writers, so its folder is watched
// too and the file watched again after each replace. A burst of changes
// is told once.
class SettingsFileWatcher : public QObject
{
    Q_OBJECT
public:
    explicit SettingsFileWatcher(const QString& file, QObject* parent = nullptr);

signals:
    void changed();

private:
    void rewatch();

    QString m_file;
    QFileSystemWatcher m_watcher;
    QTimer m_settle;
};

} // namespace quirepad
