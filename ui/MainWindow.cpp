#include "ui/MainWindow.h"

#include "foundation/Shutdown.h"
#include "pipeline/JobQueue.h"
#include "pipeline/MainAppDelegate.h"
#include "ui/StatusMenu.h"

#include <QCloseEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace quirepad {

MainWindow::MainWindow(MainAppDelegate& delegate, JobQueue& queue, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_delegate(delegate)
    , m_queue(queue)
{
    setWindowTitle(QStringLiteral("Quirepad"));
    setObjectName(QStringLiteral("mainWindow"));
    setWindowIcon(StatusMenu::statusIcon(false, 0));

    auto* picture = new QLabel(this);
    picture->setPixmap(StatusMenu::statusIcon(false, 0).pixmap(48, 48));
    picture->setAlignment(Qt::AlignTop);
    m_status = new QLabel(this);
    QFont bold = m_status->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.15);
    m_status->setFont(bold);
    m_status->setTextFormat(Qt::PlainText);
    m_summary = new QLabel(this);
    m_summary->setTextFormat(Qt::PlainText);
    m_summary->setWordWrap(true);
    auto* hint = new QLabel(tr("Print to “Print_to_Quirepad” from any application; each job is delivered to its "
                               "destination."),
        this);
    hint->setWordWrap(true);
    hint->setForegroundRole(QPalette::PlaceholderText);

    m_print = new QPushButton(tr("Print a File…"), this);
    m_queueButton = new QPushButton(tr("Queue"), this);
    m_preferences = new QPushButton(tr("Preferences"), this);
    m_quit = new QPushButton(tr("Quit"), this);

    auto* texts = new QVBoxLayout;
    texts->addWidget(m_status);
    texts->addWidget(m_summary);
    texts->addWidget(hint);
    auto* top = new QHBoxLayout;
    top->addWidget(picture);
    top->addLayout(texts, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_print);
    buttons->addWidget(m_queueButton);
    buttons->addWidget(m_preferences);
    buttons->addStretch();
    buttons->addWidget(m_quit);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addStretch();
    layout->addLayout(buttons);
    setMinimumWidth(460);

    connect(m_print, &QPushButton::clicked, this,
        [this] { QTimer::singleShot(0, this, [this] { m_delegate.choosePDFFiles(); }); });
    connect(m_queueButton, &QPushButton::clicked, this, &MainWindow::queueRequested);
    connect(m_preferences, &QPushButton::clicked, this, &MainWindow::preferencesRequested);
    connect(m_quit, &QPushButton::clicked, this, &MainWindow::quitRequested);
    connect(&m_queue, &JobQueue::changed, this, &MainWindow::refreshSummary);
    setStatus(tr("Idle"));
    refreshSummary();
}

MainWindow::~MainWindow() = default;

void MainWindow::setStatus(const QString& status)
{
    m_status->setText(status.section(u'\n', 0, 0));
}

void MainWindow::refreshSummary()
{
    const QList<QueuedJob> jobs = m_queue.jobs();
    const auto kept = std::count_if(
        jobs.cbegin(), jobs.cend(), [](const QueuedJob& job) { return job.reason == QueuedJob::Reason::Kept; });
    if (jobs.isEmpty())
        m_summary->setText(tr("No print jobs wait."));
    else if (jobs.size() == 1)
        m_summary->setText(kept > 0 ? tr("1 print job waits; it was not delivered.") : tr("1 print job waits."));
    else if (kept > 0)
        m_summary->setText(tr("%1 print jobs wait, %2 not delivered.").arg(jobs.size()).arg(kept));
    else
        m_summary->setText(tr("%1 print jobs wait.").arg(jobs.size()));
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    // The user closing it (from the window manager) while no tray leads
    // back to the program: it stays within reach, minimised, and printed
    // jobs go on being delivered. Quitting closes it for good.
    if (!m_trayAvailable && event->spontaneous() && !Shutdown::isRequested()) {
        event->ignore();
        showMinimized();
        return;
    }
    QWidget::closeEvent(event);
}

} // namespace quirepad
