#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>

namespace quirepad {

// Watches the shared directory for the print backend's end trigger file
// (inotify) and reports every change of it, also when the file is made or
// replaced after the watch began.
class TriggerWatcher : public QObject
{
    Q_OBJECT

public:
    TriggerWatcher(const QString& sharedDirectory, const QString& triggerFile, QObject* parent = nullptr);

    bool isWatching() const;

signals:
    void triggered(const QString& triggerFile);

private:
    void rewatch();

    QFileSystemWatcher m_watcher;
    QString m_directory;
    QString m_trigger;
};

} // namespace quirepad
