#pragma once

#include <QTimer>
#include <QWidget>

class QLabel;
class QMenu;
class QPushButton;
class QToolButton;
class QTreeWidget;

namespace quirepad {

class JobQueue;
class MainAppDelegate;

// The print jobs that wait: title, owner, age, size and why each waits,
// kept up to date while the window is open. The selected job can be
// retried, sent to another destination or removed; Remove All asks first.
class QueueWindow : public QWidget
{
    Q_OBJECT

public:
    QueueWindow(MainAppDelegate& delegate, JobQueue& queue, QWidget* parent = nullptr);
    ~QueueWindow() override;

    void present();
    // Reads the queue again.
    void refresh();

    QTreeWidget* table() const { return m_table; }
    QPushButton* retryButton() const { return m_retry; }
    QToolButton* deliverButton() const { return m_deliver; }
    QPushButton* removeButton() const { return m_remove; }
    QPushButton* removeAllButton() const { return m_removeAll; }
    QMenu* deliverMenu() const { return m_deliverMenu; }

    enum Column { TitleColumn, OwnerColumn, AgeColumn, SizeColumn, WhyColumn };
    static constexpr int kIdRole = Qt::UserRole + 1;

private:
    QString selectedId() const;
    void updateButtons();
    void fillDeliverMenu();
    void retry();
    void deliver(const QString& destination);
    void remove();
    void removeAll();

    MainAppDelegate& m_delegate;
    JobQueue& m_queue;
    QTreeWidget* m_table = nullptr; // children
    QLabel* m_summary = nullptr;
    QPushButton* m_retry = nullptr;
    QToolButton* m_deliver = nullptr;
    QMenu* m_deliverMenu = nullptr;
    QPushButton* m_remove = nullptr;
    QPushButton* m_removeAll = nullptr;
    QTimer m_ages; // the age column moves on
};

} // namespace quirepad
