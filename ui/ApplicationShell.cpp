#include "ui/ApplicationShell.h"

#include "pipeline/MainAppDelegate.h"
#include "foundation/dialogs.h"
#include "pipeline/DriverInstaller.h"
#include "ui/DestinationPanel.h"
#include "pipeline/JobQueue.h"
#include "ui/MainWindow.h"
#include "ui/QueueWindow.h"
#include "ui/NetworkSettingsBox.h"
#include "ui/PanelDestinationChooser.h"
#include "ui/PreferencesWindow.h"
#include "ui/StatusMenu.h"

#include <QInputDialog>
#include <QSystemTrayIcon>
#include <QLineEdit>
#include <QUrl>
#include "ui/FilterEditor.h"
#include "ui/PluginEditor.h"

namespace quirepad {

ApplicationShell::ApplicationShell(MainAppDelegate& delegate, QObject* parent)
    : QObject(parent)
    , m_delegate(delegate)
    , m_panel(std::make_unique<DestinationPanel>(delegate))
    , m_statusMenu(std::make_unique<StatusMenu>(delegate))
    , m_jobQueue(std::make_unique<JobQueue>(delegate))
    , m_trayAvailable([] { return QSystemTrayIcon::isSystemTrayAvailable(); })
{
    m_delegate.setDestinationChooser(std::make_unique<PanelDestinationChooser>(*m_panel));

    // Stop while the panel waits: the question goes away, the job stays.
    connect(&m_delegate, &MainAppDelegate::runningChanged, this, [this](bool running) {
        if (!running)
            m_panel->withdraw();
    });
    connect(m_panel.get(), &DestinationPanel::preferencesRequested, this, &ApplicationShell::showPreferences);
    connect(m_statusMenu.get(), &StatusMenu::preferencesRequested, this, &ApplicationShell::showPreferences);
    connect(m_statusMenu.get(), &StatusMenu::pluginsRequested, this, &ApplicationShell::showPluginEditor);
    connect(m_statusMenu.get(), &StatusMenu::filtersRequested, this, &ApplicationShell::showFilterEditor);
    connect(m_statusMenu.get(), &StatusMenu::quitRequested, this, &ApplicationShell::quitRequested);
    connect(m_statusMenu.get(), &StatusMenu::webPageRequested, this, &ApplicationShell::askForWebPage);
    connect(m_statusMenu.get(), &StatusMenu::queueRequested, this, &ApplicationShell::showQueue);
    connect(&m_delegate, &MainAppDelegate::queueRequested, this, &ApplicationShell::showQueue);
    // The panel names the document it asks about.
    connect(&m_delegate, &MainAppDelegate::currentFileInfoChanged, this, [this](const QVariantMap& info) {
        if (!info.isEmpty())
            m_panel->setDocumentTitle(info.value(QStringLiteral("title")).toString());
    });
    m_statusMenu->applySettings();
}

void ApplicationShell::startTrayOrWindow()
{
    m_hadTray = m_trayAvailable();
    if (!m_hadTray)
        showMainWindow();
    // Qt tells nothing when a tray host comes or goes: looked at now and then.
    m_trayWatch.setInterval(5000);
    m_trayWatch.callOnTimeout(this, &ApplicationShell::checkTray);
    m_trayWatch.start();
}

void ApplicationShell::checkTray()
{
    const bool tray = m_trayAvailable();
    if (tray == m_hadTray)
        return;
    m_hadTray = tray;
    if (tray) {
        // The icon takes over; the window goes where a closed window goes.
        m_statusMenu->applySettings();
        if (m_mainWindow) {
            m_mainWindow->setTrayAvailable(true);
            m_mainWindow->hide();
        }
    } else {
        showMainWindow();
    }
}

void ApplicationShell::showMainWindow()
{
    if (!m_mainWindow) {
        m_mainWindow = std::make_unique<MainWindow>(m_delegate, *m_jobQueue);
        connect(m_mainWindow.get(), &MainWindow::queueRequested, this, &ApplicationShell::showQueue);
        connect(m_mainWindow.get(), &MainWindow::preferencesRequested, this, &ApplicationShell::showPreferences);
        connect(m_mainWindow.get(), &MainWindow::quitRequested, this, &ApplicationShell::quitRequested);
        connect(m_statusMenu.get(), &StatusMenu::statusChanged, m_mainWindow.get(), &MainWindow::setStatus);
        m_mainWindow->setStatus(m_statusMenu->statusText());
    }
    m_mainWindow->setTrayAvailable(m_hadTray);
    m_mainWindow->refreshSummary();
    m_mainWindow->showNormal();
    m_mainWindow->raise();
    m_mainWindow->activateWindow();
}

void ApplicationShell::showQueue()
{
    if (!m_queueWindow)
        m_queueWindow = std::make_unique<QueueWindow>(m_delegate, *m_jobQueue);
    m_queueWindow->present();
}

ApplicationShell::~ApplicationShell()
{
    m_delegate.setDestinationChooser(nullptr); // before the panel it asks through goes
    m_queueWindow.reset();
    m_mainWindow.reset(); // both before the queue they show
}

void ApplicationShell::showPreferences()
{
    if (!m_preferences) {
        m_preferences = std::make_unique<PreferencesWindow>(m_delegate);
        connect(m_preferences.get(), &PreferencesWindow::settingsChanged, this, [this] {
            applySettings();
            emit settingsChanged();
        });
        connect(m_preferences->networkBox(), &NetworkSettingsBox::shareQueueRequested, this, &ApplicationShell::shareQueue);
        connect(m_preferences.get(), &PreferencesWindow::pluginsRequested, this, &ApplicationShell::showPluginEditor);
        connect(m_preferences.get(), &PreferencesWindow::filtersRequested, this, &ApplicationShell::showFilterEditor);
    }
    m_preferences->present();
    refreshNetworkStatus();
}

void ApplicationShell::askForWebPage()
{
    bool ok = false;
    const QString text = QInputDialog::getText(nullptr, tr("Print Web Page"), tr("Address of the page:"),
                                               QLineEdit::Normal, QStringLiteral("https://"), &ok);
    if (!ok || text.trimmed().isEmpty())
        return;
    const QUrl url = QUrl::fromUserInput(text.trimmed());
    if (!url.isValid() || (url.scheme() != QLatin1String("http") && url.scheme() != QLatin1String("https")
                           && url.scheme() != QLatin1String("file"))) {
        MYDisplayAlert(tr("\u201c%1\u201d is not the address of a web page.").arg(text.trimmed()));
        return;
    }
    emit webPagePrintRequested(url);
}

void ApplicationShell::refreshNetworkStatus()
{
    if (!m_preferences || !m_networkStatus)
        return;
    const auto [feedUrl, airPrint] = m_networkStatus();
    m_preferences->networkBox()->showStatus(feedUrl, airPrint);
}

void ApplicationShell::shareQueue()
{
    // pkexec asks for the administrator's password; the window waits.
    const ProcessRunner::Result result = DriverInstaller().run({ QStringLiteral("--share") });
    const QString output = QString::fromLocal8Bit(result.standardOutput + result.standardError).trimmed();
    if (result.succeeded())
        MYDisplayNotification(tr("Print queue shared"), tr("Phones on this network can now print to Quirepad."));
    else
        MYDisplayAlert(tr("The print queue could not be shared.\n\n%1").arg(output));
    refreshNetworkStatus();
}

void ApplicationShell::showPluginEditor()
{
    if (!m_pluginEditor)
        m_pluginEditor = std::make_unique<PluginEditor>(m_delegate.workflowLibrary());
    m_pluginEditor->present();
}

void ApplicationShell::showFilterEditor()
{
    if (!m_filterEditor)
        m_filterEditor = std::make_unique<FilterEditor>(m_delegate.workflowLibrary());
    m_filterEditor->present();
}

void ApplicationShell::applySettings()
{
    m_statusMenu->applySettings();
    m_statusMenu->rebuildMenu();
    m_statusMenu->refreshStatus();
}

} // namespace quirepad
