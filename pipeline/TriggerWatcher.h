#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>

namespace quirepad {

// Watches the shared directory for the print backend's end trigger file
// (inotify) and reports every change of it, also when the file is made or
// replaced after the watch began. A shared directory that does not exist
// yet is waited for in its parent: when the driver is installed later, the
// watch begins then (and reports once, so the spool is looked at).
class TriggerWatcher : public QObject
{
    Q_OBJECT

public:
    TriggerWatcher(const QString& sharedDirectory, const QString& triggerFile, QObject* parent = nullptr);

    bool isWatching() const;
    // Looks again for the folder and the file (after an install, say).
    void rewatch();

signals:
    void triggered(const QString& triggerFile);

private:

    QFileSystemWatcher m_watcher;
    QString m_directory;
    QString m_trigger;
};

} // namespace quirepad
