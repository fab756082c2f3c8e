#pragma once

#include "pipeline/DriverInstaller.h"

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QSpinBox;

namespace quirepad {

class DestinationListModel;
class NetworkSettingsBox;

// The settings that are not a destination's: where printed jobs go, the
// panel, the tray icon, notifications, starting at login, the network
// services and the print driver. Every change is saved at once.
class GeneralSettingsPage : public QWidget
{
    Q_OBJECT

public:
    GeneralSettingsPage(DestinationListModel& destinations, QWidget* parent = nullptr);

    // Reads every setting again (and the destination names).
    void readSettings();
    // The driver's files (tests point them elsewhere).
    void setDriverPaths(const DriverInstaller::Paths& paths);
    void refreshDriverState();

    NetworkSettingsBox* networkBox() const { return m_network; }
    QComboBox* destinationChoice() const { return m_destination; }
    QComboBox* remoteDestinationChoice() const { return m_remote; }
    QSpinBox* maxcountBox() const { return m_maxcount; }
    QCheckBox* followMouseSwitch() const { return m_followMouse; }
    QCheckBox* trayIconSwitch() const { return m_showTray; }
    QCheckBox* notificationsSwitch() const { return m_notifications; }
    QCheckBox* autostartSwitch() const { return m_autostart; }
    QLabel* driverState() const { return m_driverState; }
    QPushButton* driverButton() const { return m_installDriver; }

signals:
    void settingsChanged();

private:
    void fillDestinations(QComboBox* box, const QString& key);
    void installDriver();

    DestinationListModel& m_destinations;
    DriverInstaller::Paths m_driverPaths;
    QComboBox* m_destination = nullptr;
    QComboBox* m_remote = nullptr;
    QSpinBox* m_maxcount = nullptr;
    QCheckBox* m_followMouse = nullptr;
    QCheckBox* m_showTray = nullptr;
    QCheckBox* m_notifications = nullptr;
    QCheckBox* m_autostart = nullptr;
    QLabel* m_driverState = nullptr;
    QPushButton* m_installDriver = nullptr;
    NetworkSettingsBox* m_network = nullptr;
};

} // namespace quirepad
