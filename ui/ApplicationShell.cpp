#include "ui/ApplicationShell.h"

#include "pipeline/MainAppDelegate.h"
#include "foundation/dialogs.h"
#include "pipeline/DriverInstaller.h"
#include "ui/DestinationPanel.h"
#include "ui/NetworkSettingsBox.h"
#include "ui/PanelDestinationChooser.h"
#include "ui/PreferencesWindow.h"
#include "ui/StatusMenu.h"

#include <QInputDialog>
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
    m_statusMenu->applySettings();
}

ApplicationShell::~ApplicationShell()
{
    m_delegate.setDestinationChooser(nullptr); // before the panel it asks through goes
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
