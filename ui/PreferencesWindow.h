#pragma once

#include <QWidget>

class QListWidget;
class QPushButton;
class QStackedWidget;

namespace quirepad {

class DestinationListModel;
class DestinationsPage;
class GeneralSettingsPage;
class MainAppDelegateBase;
class NetworkSettingsBox;
class SettingsFileWatcher;

// The preferences: a page of destinations (list and form) and a page of
// general settings, chosen on the side. Every change is saved at once;
// changes made meanwhile by the command line show up while it is open.
class PreferencesWindow : public QWidget
{
    Q_OBJECT

public:
    enum Page { Destinations, General };

    explicit PreferencesWindow(MainAppDelegateBase& delegate, QWidget* parent = nullptr);
    ~PreferencesWindow() override;

    // Raises the window, reading the records and settings again.
    void present();
    void showPage(Page page);

    DestinationsPage* destinationsPage() const { return m_destinations; }
    GeneralSettingsPage* generalPage() const { return m_general; }
    DestinationListModel* model() const;
    QPushButton* pluginsButton() const { return m_plugins; }
    QPushButton* filtersButton() const { return m_filters; }
    NetworkSettingsBox* networkBox() const;

signals:
    // A setting that the tray or the panel reads has changed.
    void settingsChanged();
    // The user asked for the plugin or filter workflows.
    void pluginsRequested();
    void filtersRequested();

protected:
    bool event(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void settingsFileChanged();

    MainAppDelegateBase& m_delegate;
    QListWidget* m_sections = nullptr;
    QStackedWidget* m_pages = nullptr;
    DestinationsPage* m_destinations = nullptr;
    GeneralSettingsPage* m_general = nullptr;
    SettingsFileWatcher* m_watcher = nullptr;
    QPushButton* m_plugins = nullptr;
    QPushButton* m_filters = nullptr;
};

} // namespace quirepad
