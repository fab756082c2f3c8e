#pragma once

#include <QObject>
#include <QString>

#include <memory>

class QAction;
class QIcon;
class QMenu;
class QSystemTrayIcon;

namespace quirepad {

class MainAppDelegate;

// The tray icon and its menu: the destinations in the menu (each sends
// chosen PDF files there), the queue commands, the driver installer, the
// preferences, the user's plugin and filter workflows, and Quit. The icon and tooltip tell whether a batch is
// running and how many jobs wait in the spool.
class StatusMenu : public QObject
{
    Q_OBJECT

public:
    explicit StatusMenu(MainAppDelegate& delegate, QObject* parent = nullptr);
    ~StatusMenu() override;

    QMenu* menu() const { return m_menu.get(); }
    QSystemTrayIcon* trayIcon() const { return m_tray.get(); }

    // Shows or hides the icon after the "show_menubar_icon" setting.
    void applySettings();
    // Rebuilds the destination entries from the store.
    void rebuildMenu();
    // Reads the spool again and updates icon, tooltip and status line.
    void refreshStatus();

    // The status line, then a line for each job that waits for a reason.
    QString statusText() const { return m_statusText; }
    static constexpr qsizetype kMaxKeptLines = 5;
    int waitingJobCount() const { return m_waiting; }

    // The tray picture: a page, busy (a batch runs) or not, with a badge
    // when jobs wait.
    static QIcon statusIcon(bool busy, int waiting);

    // While a long batch runs: "Delivering 4 of 12: Quarterly plan".
    QString progressText() const { return m_progressText; }

signals:
    void preferencesRequested();
    void queueRequested();
    // The status changed (the no-tray window shows it too).
    void statusChanged(const QString& status);
    // The user wants a web page printed (asks for its address).
    void webPageRequested();
    void pluginsRequested();
    void filtersRequested();
    void quitRequested();

private:
    // Icon, tooltip and status line from the known state.
    void showStatus();

    MainAppDelegate& m_delegate;
    std::unique_ptr<QMenu> m_menu;
    std::unique_ptr<QSystemTrayIcon> m_tray;
    QAction* m_statusAction = nullptr;      // owned by the menu
    QAction* m_destinationsEnd = nullptr;   // the separator after the destinations
    QAction* m_stopAction = nullptr;
    QList<QAction*> m_destinationActions;   // owned by the menu
    QString m_statusText;
    QString m_currentTitle;
    QString m_progressText;
    int m_waiting = 0;
};

} // namespace quirepad
