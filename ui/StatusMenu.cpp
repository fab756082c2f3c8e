#include "ui/StatusMenu.h"

#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"
#include "pipeline/MainAppDelegate.h"
#include "store/DestinationItem.h"
#include "store/ManagedObjectContext.h"

#include <QAction>
#include <QCursor>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QSystemTrayIcon>
#include <QTimer>

namespace quirepad {

StatusMenu::StatusMenu(MainAppDelegate& delegate, QObject* parent)
    : QObject(parent)
    , m_delegate(delegate)
    , m_menu(std::make_unique<QMenu>())
    , m_tray(std::make_unique<QSystemTrayIcon>())
{
    m_menu->setTitle(QStringLiteral("Quirepad"));
    m_statusAction = m_menu->addAction(QString());
    m_statusAction->setEnabled(false);
    m_menu->addSeparator();
    m_destinationsEnd = m_menu->addSeparator();

    // Commands run on the next turn of the event loop, after the menu closed.
    auto later = [this](auto call) { return [this, call] { QTimer::singleShot(0, this, call); }; };
    m_menu->addAction(tr("Process PDF Files…"), this, later([this] { m_delegate.choosePDFFiles(); }));
    m_menu->addAction(tr("Take Screenshot"), this, later([this] { m_delegate.takeScreenShot(); }));
    m_menu->addAction(tr("Print Web Page…"), this, later([this] { emit webPageRequested(); }));
    m_menu->addSeparator();
    m_menu->addAction(tr("Queue…"), this, [this] { emit queueRequested(); });
    m_menu->addAction(tr("Retry"), this, later([this] { m_delegate.retryAgrain(); }));
    // Stop must get in while a batch waits, so it acts at once.
    m_stopAction = m_menu->addAction(tr("Stop"), this, [this] { m_delegate.stopProcessing(); });
    m_menu->addAction(tr("Clear Queue"), this, later([this] {
        m_delegate.clearQueue();
        refreshStatus();
    }));
    m_menu->addSeparator();
    m_menu->addAction(tr("Install Print Driver…"), this, later([this] { m_delegate.installDriver(); }));
    m_menu->addAction(tr("Preferences…"), this, [this] { emit preferencesRequested(); });
    m_menu->addAction(tr("Plugins…"), this, [this] { emit pluginsRequested(); });
    m_menu->addAction(tr("Filters…"), this, [this] { emit filtersRequested(); });
    m_menu->addSeparator();
    m_menu->addAction(tr("Quit"), this, [this] { emit quitRequested(); });

    connect(m_menu.get(), &QMenu::aboutToShow, this, [this] {
        rebuildMenu();
        refreshStatus();
    });
    // The count follows the pipeline's own reports, so a long batch does
    // not list the spool once per job.
    connect(&m_delegate, &MainAppDelegate::runningChanged, this, [this](bool running) {
        if (!running)
            m_progressText.clear();
        showStatus();
    });
    connect(&m_delegate, &MainAppDelegate::batchProgress, this, [this](int number, int total, const QString& title) {
        m_progressText = tr("Delivering %1 of %2: %3").arg(number).arg(total).arg(title);
        showStatus();
    });
    connect(&m_delegate, &MainAppDelegate::spoolScanned, this, [this](int remoteJobs, int localJobs) {
        if (m_delegate.running())
            return; // a scan inside a batch lists nothing
        m_waiting = remoteJobs + localJobs;
        showStatus();
    });
    connect(&m_delegate, &MainAppDelegate::jobFinished, this, [this](const QString&, bool removedFromSpool) {
        if (removedFromSpool && m_waiting > 0)
            --m_waiting;
        showStatus();
    });
    connect(&m_delegate, &MainAppDelegate::jobKept, this, [this] { showStatus(); });
    connect(&m_delegate, &MainAppDelegate::currentFileInfoChanged, this, [this](const QVariantMap& info) {
        m_currentTitle = info.value(QStringLiteral("title")).toString();
        showStatus();
    });

    m_tray->setContextMenu(m_menu.get());
    // A plain click opens the menu too, where the tray host leaves it to us.
    connect(m_tray.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            m_menu->popup(QCursor::pos());
    });
    rebuildMenu();
    refreshStatus();
}

StatusMenu::~StatusMenu()
{
    m_tray->setContextMenu(nullptr);
}

void StatusMenu::applySettings()
{
    m_tray->setVisible(UserDefaults::standard().boolValue(SettingKey::ShowMenubarIcon));
}

void StatusMenu::rebuildMenu()
{
    for (QAction* action : std::as_const(m_destinationActions)) {
        m_menu->removeAction(action);
        action->deleteLater();
    }
    m_destinationActions.clear();

    ManagedObjectContext* context = m_delegate.managedObjectContext();
    if (!context)
        return;
    for (const DestinationItem* record : menuDestinations(*context)) {
        const QString name = record->name();
        auto* action = new QAction(record->icon(), name, m_menu.get());
        action->setToolTip(tr("Send PDF files to %1").arg(name));
        connect(action, &QAction::triggered, this,
                [this, name] { QTimer::singleShot(0, this, [this, name] { m_delegate.choosePDFFiles(name); }); });
        m_menu->insertAction(m_destinationsEnd, action);
        m_destinationActions << action;
    }
}

void StatusMenu::refreshStatus()
{
    m_waiting = m_delegate.waitingJobs().count();
    showStatus();
}

void StatusMenu::showStatus()
{
    const bool busy = m_delegate.running();
    QString text;
    if (busy && !m_progressText.isEmpty())
        text = m_progressText;
    else if (busy && !m_currentTitle.isEmpty())
        text = tr("Delivering “%1”").arg(m_currentTitle);
    else if (busy)
        text = tr("Delivering");
    else
        text = tr("Idle");
    if (m_waiting > 0)
        text += tr(" — %n job(s) waiting", nullptr, m_waiting);
    m_statusText = text;
    // The jobs that wait for a reason, and the reason, a line each.
    const QList<MainAppDelegate::KeptJob> kept = m_delegate.keptJobs();
    for (qsizetype i = 0; i < kept.size() && i < kMaxKeptLines; ++i)
        m_statusText += QStringLiteral("\n“%1” waits: %2").arg(kept.at(i).title, kept.at(i).reason);
    if (kept.size() > kMaxKeptLines)
        m_statusText += tr("\n… and %n more", nullptr, int(kept.size() - kMaxKeptLines));
    m_statusAction->setText(text);
    m_statusAction->setToolTip(m_statusText);
    m_stopAction->setEnabled(busy);
    m_tray->setToolTip(QStringLiteral("Quirepad\n") + m_statusText);
    m_tray->setIcon(statusIcon(busy, m_waiting));
    emit statusChanged(m_statusText);
}

QIcon StatusMenu::statusIcon(bool busy, int waiting)
{
    QIcon icon;
    for (const int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(size / 32.0, size / 32.0);
        // A sheet with a folded corner and three lines of text.
        QPainterPath sheet;
        sheet.moveTo(7, 3);
        sheet.lineTo(20, 3);
        sheet.lineTo(26, 9);
        sheet.lineTo(26, 29);
        sheet.lineTo(7, 29);
        sheet.closeSubpath();
        painter.setPen(QPen(QColor(0x2b, 0x3a, 0x4a), 1.6));
        painter.setBrush(Qt::white);
        painter.drawPath(sheet);
        painter.drawLine(QPointF(20, 3), QPointF(20, 9));
        painter.drawLine(QPointF(20, 9), QPointF(26, 9));
        painter.setPen(QPen(busy ? QColor(0xe0, 0x7a, 0x10) : QColor(0x2f, 0x6f, 0xd0), 2.2, Qt::SolidLine, Qt::RoundCap));
        for (const int y : {14, 19, 24})
            painter.drawLine(QPointF(11, y), QPointF(22, y));
        if (waiting > 0) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(QColor(0xd0, 0x30, 0x30));
            painter.drawEllipse(QPointF(24, 24), 7.5, 7.5);
            painter.setPen(Qt::white);
            QFont font = painter.font();
            font.setPixelSize(10);
            font.setBold(true);
            painter.setFont(font);
            painter.drawText(QRectF(16.5, 16.5, 15, 15), Qt::AlignCenter,
                             waiting > 9 ? QStringLiteral("9+") : QString::number(waiting));
        }
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

} // namespace quirepad
