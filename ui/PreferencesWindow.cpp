#include "ui/PreferencesWindow.h"

#include "foundation/UserDefaults.h"
#include "store/MainAppDelegateBase.h"
#include "ui/DestinationForm.h"
#include "ui/DestinationsPage.h"
#include "ui/GeneralSettingsPage.h"
#include "ui/SettingsFileWatcher.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace quirepad {

PreferencesWindow::PreferencesWindow(MainAppDelegateBase& delegate, QWidget* parent)
    : QWidget(parent, Qt::Window)
    , m_delegate(delegate)
{
    setWindowTitle(tr("Quirepad Preferences"));
    resize(920, 640);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    // The sections on the side, with the workflow windows below them.
    auto* side = new QWidget(this);
    side->setAutoFillBackground(true);
    side->setBackgroundRole(QPalette::AlternateBase);
    auto* sideLayout = new QVBoxLayout(side);
    sideLayout->setContentsMargins(8, 12, 8, 12);
    m_sections = new QListWidget(side);
    m_sections->setFrameShape(QFrame::NoFrame);
    m_sections->setIconSize(QSize(22, 22));
    m_sections->setSpacing(3);
    m_sections->viewport()->setAutoFillBackground(false);
    m_sections->setFixedWidth(170);
    m_sections->setStyleSheet(QStringLiteral("QListWidget::item { padding: 6px 4px; }"));
    m_sections->addItem(new QListWidgetItem(QIcon::fromTheme(QStringLiteral("printer")), tr("Destinations")));
    m_sections->addItem(new QListWidgetItem(QIcon::fromTheme(QStringLiteral("preferences-system")), tr("General")));
    sideLayout->addWidget(m_sections, 1);
    m_plugins = new QPushButton(tr("Plugins\u2026"), side);
    m_filters = new QPushButton(tr("Filters\u2026"), side);
    sideLayout->addWidget(m_plugins);
    sideLayout->addWidget(m_filters);
    layout->addWidget(side);
    connect(m_plugins, &QPushButton::clicked, this, &PreferencesWindow::pluginsRequested);
    connect(m_filters, &QPushButton::clicked, this, &PreferencesWindow::filtersRequested);

    m_pages = new QStackedWidget(this);
    layout->addWidget(m_pages, 1);
    ManagedObjectContext* context = m_delegate.managedObjectContext();
    if (!context) {
        auto* broken = new QLabel(tr("The destinations cannot be shown: the store could not be opened."), m_pages);
        broken->setAlignment(Qt::AlignCenter);
        m_pages->addWidget(broken);
        m_sections->setEnabled(false);
        return;
    }
    m_destinations = new DestinationsPage(m_delegate, *context, m_pages);
    m_pages->addWidget(m_destinations);
    auto* generalScroll = new QScrollArea(m_pages);
    generalScroll->setWidgetResizable(true);
    generalScroll->setFrameShape(QFrame::NoFrame);
    m_general = new GeneralSettingsPage(*m_destinations->model(), generalScroll);
    generalScroll->setWidget(m_general);
    m_pages->addWidget(generalScroll);
    connect(m_sections, &QListWidget::currentRowChanged, m_pages, &QStackedWidget::setCurrentIndex);
    m_sections->setCurrentRow(Destinations);

    connect(m_destinations, &DestinationsPage::destinationsChanged, this, &PreferencesWindow::settingsChanged);
    connect(m_general, &GeneralSettingsPage::settingsChanged, this, &PreferencesWindow::settingsChanged);
    m_watcher = new SettingsFileWatcher(UserDefaults::standard().fileName(), this);
    connect(m_watcher, &SettingsFileWatcher::changed, this, &PreferencesWindow::settingsFileChanged);
}

PreferencesWindow::~PreferencesWindow() = default;

DestinationListModel* PreferencesWindow::model() const
{
    return m_destinations ? m_destinations->model() : nullptr;
}

NetworkSettingsBox* PreferencesWindow::networkBox() const
{
    return m_general ? m_general->networkBox() : nullptr;
}

void PreferencesWindow::showPage(Page page)
{
    if (m_sections->isEnabled())
        m_sections->setCurrentRow(page);
}

void PreferencesWindow::settingsFileChanged()
{
    // Written by another process (`quirepad defaults write`) or by us.
    UserDefaults::standard().sync();
    if (m_general)
        m_general->readSettings();
    emit settingsChanged();
}

void PreferencesWindow::present()
{
    if (m_general)
        m_general->readSettings();
    show();
    raise();
    activateWindow();
}

bool PreferencesWindow::event(QEvent* event)
{
    // Coming back to the window: what changed meanwhile is shown.
    if (event->type() == QEvent::WindowActivate && m_general) {
        UserDefaults::standard().sync();
        m_general->readSettings();
        m_general->refreshDriverState();
    }
    return QWidget::event(event);
}

void PreferencesWindow::closeEvent(QCloseEvent* event)
{
    if (m_destinations && !m_destinations->mayLeaveCurrent()) {
        event->ignore();
        return;
    }
    if (m_destinations)
        m_destinations->form()->reload(); // what was discarded goes from the fields
    QWidget::closeEvent(event);
}

} // namespace quirepad
