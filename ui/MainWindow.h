#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace quirepad {

class JobQueue;
class MainAppDelegate;

// The small window the program shows where the desktop has no tray to put
// its icon in: what it is doing, how many jobs wait, and the commands the
// tray menu would offer. The user closing it minimises it while there is
// no tray, so printed jobs go on being delivered; Quit ends the program.
class MainWindow : public QWidget
{
    Q_OBJECT

public:
    MainWindow(MainAppDelegate& delegate, JobQueue& queue, QWidget* parent = nullptr);
    ~MainWindow() override;

    // The status line (from the tray's status).
    void setStatus(const QString& status);
    void refreshSummary();
    // Whether closing only minimises (no tray to find the program in).
    void setTrayAvailable(bool available) { m_trayAvailable = available; }

    QLabel* statusLabel() const { return m_status; }
    QLabel* summaryLabel() const { return m_summary; }
    QPushButton* printButton() const { return m_print; }
    QPushButton* queueButton() const { return m_queueButton; }
    QPushButton* preferencesButton() const { return m_preferences; }
    QPushButton* quitButton() const { return m_quit; }

signals:
    void queueRequested();
    void preferencesRequested();
    void quitRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    MainAppDelegate& m_delegate;
    JobQueue& m_queue;
    QLabel* m_status = nullptr; // children
    QLabel* m_summary = nullptr;
    QPushButton* m_print = nullptr;
    QPushButton* m_queueButton = nullptr;
    QPushButton* m_preferences = nullptr;
    QPushButton* m_quit = nullptr;
    bool m_trayAvailable = false;
};

} // namespace quirepad
