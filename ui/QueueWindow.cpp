#include "ui/QueueWindow.h"

#include "foundation/dialogs.h"
#include "pipeline/JobQueue.h"
#include "pipeline/MainAppDelegate.h"
#include "store/DestinationItem.h"
#include "store/ManagedObjectContext.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLocale>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace quirepad {

namespace {

QString ageText(qint64 seconds)
{
    if (seconds < 60)
        return QueueWindow::tr("just now");
    if (seconds < 3600)
        return QueueWindow::tr("%n min", nullptr, int(seconds / 60));
    if (seconds < 86400)
        return QueueWindow::tr("%n h", nullptr, int(seconds / 3600));
    return QueueWindow::tr("%n day(s)", nullptr, int(seconds / 86400));
}

} // namespace

QueueWindow::QueueWindow(MainAppDelegate& delegate, JobQueue& queue, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_delegate(delegate)
    , m_queue(queue)
{
    setWindowTitle(tr("Print Queue — Quirepad"));
    setObjectName(QStringLiteral("queueWindow"));

    m_table = new QTreeWidget(this);
    m_table->setRootIsDecorated(false);
    m_table->setUniformRowHeights(true);
    m_table->setAlternatingRowColors(true);
    m_table->setSelectionMode(QAbstractItemView::SingleSelection);
    m_table->setHeaderLabels({ tr("Document"), tr("Owner"), tr("Age"), tr("Size"), tr("Why it waits") });
    m_table->header()->setStretchLastSection(true);
    m_table->setColumnWidth(TitleColumn, 220);
    m_table->setColumnWidth(OwnerColumn, 80);
    m_table->setColumnWidth(AgeColumn, 70);
    m_table->setColumnWidth(SizeColumn, 70);

    m_summary = new QLabel(this);
    m_retry = new QPushButton(tr("Retry"), this);
    m_retry->setToolTip(tr("Deliver the selected job again, or every job when none is selected"));
    m_deliver = new QToolButton(this);
    m_deliver->setText(tr("Deliver to…"));
    m_deliver->setPopupMode(QToolButton::InstantPopup);
    m_deliver->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_deliverMenu = new QMenu(m_deliver);
    m_deliver->setMenu(m_deliverMenu);
    m_remove = new QPushButton(tr("Remove"), this);
    m_removeAll = new QPushButton(tr("Remove All…"), this);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_summary, 1);
    buttons->addWidget(m_retry);
    buttons->addWidget(m_deliver);
    buttons->addWidget(m_remove);
    buttons->addWidget(m_removeAll);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_table, 1);
    layout->addLayout(buttons);
    resize(860, 320);

    connect(m_retry, &QPushButton::clicked, this, &QueueWindow::retry);
    connect(m_remove, &QPushButton::clicked, this, &QueueWindow::remove);
    connect(m_removeAll, &QPushButton::clicked, this, &QueueWindow::removeAll);
    connect(m_deliverMenu, &QMenu::aboutToShow, this, &QueueWindow::fillDeliverMenu);
    connect(m_table, &QTreeWidget::itemSelectionChanged, this, &QueueWindow::updateButtons);
    connect(&m_queue, &JobQueue::changed, this, [this] {
        if (isVisible())
            refresh();
    });
    m_ages.setInterval(30 * 1000);
    connect(&m_ages, &QTimer::timeout, this, &QueueWindow::refresh);
    fillDeliverMenu();
    refresh();
}

QueueWindow::~QueueWindow() = default;

void QueueWindow::present()
{
    refresh();
    show();
    raise();
    activateWindow();
    m_ages.start();
}

void QueueWindow::refresh()
{
    const QString selected = selectedId();
    const QList<QueuedJob> jobs = m_queue.jobs();
    const QDateTime now = QDateTime::currentDateTime();
    const QLocale locale;
    m_table->clear();
    int kept = 0;
    for (const QueuedJob& job : jobs) {
        auto* item = new QTreeWidgetItem(m_table);
        item->setText(TitleColumn, job.title);
        item->setToolTip(TitleColumn, job.title);
        item->setText(OwnerColumn, job.owner);
        item->setText(AgeColumn, ageText(qMax<qint64>(0, job.queued.secsTo(now))));
        item->setToolTip(AgeColumn, locale.toString(job.queued, QLocale::ShortFormat));
        item->setText(SizeColumn, locale.formattedDataSize(job.size, 1, QLocale::DataSizeTraditionalFormat));
        item->setTextAlignment(SizeColumn, Qt::AlignRight | Qt::AlignVCenter);
        item->setText(WhyColumn, job.reasonText());
        item->setToolTip(WhyColumn, job.reasonText());
        item->setData(TitleColumn, kIdRole, job.id);
        if (job.reason == QueuedJob::Reason::Kept) {
            ++kept;
            item->setIcon(TitleColumn, QIcon::fromTheme(QStringLiteral("dialog-warning")));
            item->setForeground(WhyColumn, QColor(0xb0, 0x30, 0x20));
        }
        if (job.id == selected)
            item->setSelected(true);
    }
    if (jobs.isEmpty())
        m_summary->setText(tr("No print jobs wait."));
    else if (jobs.size() == 1)
        m_summary->setText(kept > 0 ? tr("1 job waits; it was not delivered.") : tr("1 job waits."));
    else if (kept > 0)
        m_summary->setText(tr("%1 jobs wait, %2 not delivered.").arg(jobs.size()).arg(kept));
    else
        m_summary->setText(tr("%1 jobs wait.").arg(jobs.size()));
    updateButtons();
}

QString QueueWindow::selectedId() const
{
    const QList<QTreeWidgetItem*> selected = m_table->selectedItems();
    return selected.isEmpty() ? QString() : selected.first()->data(TitleColumn, kIdRole).toString();
}

void QueueWindow::updateButtons()
{
    const bool any = m_table->topLevelItemCount() > 0;
    const bool chosen = !selectedId().isEmpty();
    m_retry->setEnabled(any);
    m_deliver->setEnabled(chosen && !m_deliverMenu->isEmpty());
    m_remove->setEnabled(chosen);
    m_removeAll->setEnabled(any);
}

void QueueWindow::fillDeliverMenu()
{
    m_deliverMenu->clear();
    ManagedObjectContext* context = m_delegate.managedObjectContext();
    if (!context)
        return;
    for (const DestinationItem* record : menuDestinations(*context)) {
        const QString recid = record->recid();
        m_deliverMenu->addAction(record->icon(), record->name(), this, [this, recid] { deliver(recid); });
    }
}

void QueueWindow::retry()
{
    const QString id = selectedId();
    QString why;
    if (id.isEmpty())
        m_queue.retryAll();
    else if (!m_queue.retry(id, &why))
        MYDisplayAlert(tr("The job could not be retried.\n%1").arg(why));
    refresh();
}

void QueueWindow::deliver(const QString& destination)
{
    const QString id = selectedId();
    QString why;
    if (!id.isEmpty() && !m_queue.deliver(id, destination, &why))
        MYDisplayAlert(tr("The job could not be delivered.\n%1").arg(why));
    refresh();
}

void QueueWindow::remove()
{
    QString why;
    const QString id = selectedId();
    if (!id.isEmpty() && !m_queue.remove(id, &why))
        MYDisplayAlert(tr("The job could not be removed.\n%1").arg(why));
    refresh();
}

void QueueWindow::removeAll()
{
    const int count = m_table->topLevelItemCount();
    if (count == 0)
        return;
    const QString what = count == 1
        ? tr("The job in the queue will be deleted without being delivered.")
        : tr("The %1 jobs in the queue will be deleted without being delivered.").arg(count);
    if (!MYDisplayQuestion(tr("Remove every waiting print job?") + u'\n' + what, tr("Remove All"), tr("Cancel")))
        return;
    m_queue.removeAll();
    refresh();
}

} // namespace quirepad
