#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QPushButton;
class QSpinBox;
class QTableView;

namespace quirepad {

class DestinationTableModel;
class MainAppDelegateBase;
class NetworkSettingsBox;

// The preferences: the destinations with their editable fields, adding
// and removing them, and the settings of the panel and the tray. Every
// change is saved at once.
class PreferencesWindow : public QWidget
{
    Q_OBJECT

public:
    explicit PreferencesWindow(MainAppDelegateBase& delegate, QWidget* parent = nullptr);
    ~PreferencesWindow() override;

    // Raises the window, reading the records and settings again.
    void present();

    QTableView* table() const { return m_table; }
    DestinationTableModel* model() const { return m_model; }
    QPushButton* removeButton() const { return m_remove; }
    QPushButton* pluginsButton() const { return m_plugins; }
    QPushButton* filtersButton() const { return m_filters; }
    NetworkSettingsBox* networkBox() const { return m_network; }

    // Adds a destination of a type letter under a name; answers its row.
    int addDestination(const QString& typeLetter, const QString& name);
    // Removes the selected destination after asking; built-ins stay.
    bool removeSelected();

signals:
    // A setting that the tray or the panel reads has changed.
    void settingsChanged();
    // The user asked for the plugin or filter workflows.
    void pluginsRequested();
    void filtersRequested();

private:
    void buildSettings(QWidget& page);
    void readSettings();
    void updateButtons();
    void save();

    MainAppDelegateBase& m_delegate;
    DestinationTableModel* m_model = nullptr; // child
    QTableView* m_table = nullptr;            // child
    QPushButton* m_remove = nullptr;          // child
    QPushButton* m_plugins = nullptr;         // child
    QPushButton* m_filters = nullptr;         // child
    QCheckBox* m_followMouse = nullptr;
    QCheckBox* m_showTray = nullptr;
    QSpinBox* m_maxcount = nullptr;
    QComboBox* m_defaultDestination = nullptr;
    NetworkSettingsBox* m_network = nullptr; // child
};

} // namespace quirepad
