#pragma once

#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>
#include <utility>

namespace quirepad {

class DestinationPanel;
class JobQueue;
class MainAppDelegate;
class MainWindow;
class QueueWindow;
class PreferencesWindow;
class StatusMenu;
class WorkflowEditor;

// The windowed program around the pipeline: the destination panel asks
// for destinations, the tray menu offers the commands, the preferences
// window edits destinations and settings, the workflow editors list the
// user's plugins and filters. The delegate must outlive it.
class ApplicationShell : public QObject
{
    Q_OBJECT

public:
    explicit ApplicationShell(MainAppDelegate& delegate, QObject* parent = nullptr);
    ~ApplicationShell() override;

    DestinationPanel& panel() const { return *m_panel; }
    StatusMenu& statusMenu() const { return *m_statusMenu; }
    PreferencesWindow* preferencesWindow() const { return m_preferences.get(); }
    WorkflowEditor* pluginEditor() const { return m_pluginEditor.get(); }
    WorkflowEditor* filterEditor() const { return m_filterEditor.get(); }
    JobQueue& jobQueue() const { return *m_jobQueue; }
    QueueWindow* queueWindow() const { return m_queueWindow.get(); }
    MainWindow* mainWindow() const { return m_mainWindow.get(); }

    // Puts the icon in the tray, or, where the desktop has no tray, opens
    // the main window instead; follows the tray coming and going.
    void startTrayOrWindow();
    // Tests decide whether a tray is there.
    void setTrayProbe(std::function<bool()> probe) { m_trayAvailable = std::move(probe); }
    // Looks at the tray again (also done every few seconds).
    void checkTray();
    void showQueue();
    void showMainWindow();

    void showPreferences();
    // The user's plugin or filter workflows.
    void showPluginEditor();
    void showFilterEditor();
    // Settings may have changed behind our back (a forwarded command).
    void applySettings();

    // What the network services are doing, for the preferences: the
    // feed's address and a line on the AirPrint record.
    void setNetworkStatus(std::function<std::pair<QString, QString>()> status) { m_networkStatus = std::move(status); }
    void refreshNetworkStatus();

signals:
    void quitRequested();
    // Settings changed in a window of this shell.
    void settingsChanged();
    // The user gave the address of a web page to print.
    void webPagePrintRequested(const QUrl& url);

private:
    void shareQueue();
    void askForWebPage();

    MainAppDelegate& m_delegate;
    std::unique_ptr<DestinationPanel> m_panel;
    std::unique_ptr<StatusMenu> m_statusMenu;
    std::unique_ptr<PreferencesWindow> m_preferences; // made on first use
    std::unique_ptr<WorkflowEditor> m_pluginEditor;   // made on first use
    std::unique_ptr<WorkflowEditor> m_filterEditor;   // made on first use
    std::function<std::pair<QString, QString>()> m_networkStatus;
    std::unique_ptr<JobQueue> m_jobQueue;
    std::unique_ptr<QueueWindow> m_queueWindow; // made on first use
    std::unique_ptr<MainWindow> m_mainWindow;   // made when there is no tray
    std::function<bool()> m_trayAvailable;
    QTimer m_trayWatch;
    bool m_hadTray = false;
};

} // namespace quirepad
