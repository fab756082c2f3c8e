#include "ui/GeneralSettingsPage.h"

#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"
#include "foundation/dialogs.h"
#include "store/DestinationItem.h"
#include "ui/AutostartEntry.h"
#include "ui/DestinationListModel.h"
#include "ui/NetworkSettingsBox.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace quirepad {

namespace {

QGroupBox* group(const QString& title, QWidget* parent, QFormLayout** form)
{
    auto* box = new QGroupBox(title, parent);
    *form = new QFormLayout(box);
    (*form)->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    (*form)->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    return box;
}

// The setting's own description from the settings table, as the tooltip.
void describe(QWidget* widget, const QString& key)
{
    if (const SettingDefinition* setting = SettingsSchema::find(key))
        widget->setToolTip(QStringLiteral("%1 (%2)").arg(setting->description, setting->key));
}

} // namespace

GeneralSettingsPage::GeneralSettingsPage(DestinationListModel& destinations, QWidget* parent)
    : QWidget(parent)
    , m_destinations(destinations)
{
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(18, 12, 18, 12);
    layout->setSpacing(12);

    QFormLayout* jobs = nullptr;
    layout->addWidget(group(tr("Printed Jobs"), this, &jobs));
    m_destination = new QComboBox(this);
    jobs->addRow(tr("Printed jobs go to:"), m_destination);
    describe(m_destination, SettingKey::DestinationName);
    m_remote = new QComboBox(this);
    describe(m_remote, SettingKey::RemoteDestinationName);
    jobs->addRow(tr("Jobs from other devices go to:"), m_remote);

    QFormLayout* desktop = nullptr;
    layout->addWidget(group(tr("Desktop"), this, &desktop));
    m_maxcount = new QSpinBox(this);
    if (const SettingDefinition* setting = SettingsSchema::find(SettingKey::Maxcount))
        m_maxcount->setRange(int(setting->minimum), int(setting->maximum));
    m_maxcount->setMaximumWidth(90);
    describe(m_maxcount, SettingKey::Maxcount);
    desktop->addRow(tr("Destinations per row in the panel:"), m_maxcount);
    m_followMouse = new QCheckBox(tr("Open the panel at the mouse pointer"), this);
    describe(m_followMouse, SettingKey::FollowMouse);
    desktop->addRow(QString(), m_followMouse);
    m_showTray = new QCheckBox(tr("Show the Quirepad icon in the tray"), this);
    describe(m_showTray, SettingKey::ShowMenubarIcon);
    desktop->addRow(QString(), m_showTray);
    m_notifications = new QCheckBox(tr("Show notifications"), this);
    desktop->addRow(QString(), m_notifications);
    m_autostart = new QCheckBox(tr("Start Quirepad when I log in"), this);
    m_autostart->setToolTip(AutostartEntry::path());
    desktop->addRow(QString(), m_autostart);

    QFormLayout* driver = nullptr;
    layout->addWidget(group(tr("Print Driver"), this, &driver));
    auto* driverRow = new QHBoxLayout;
    m_driverState = new QLabel(this);
    m_driverState->setWordWrap(true);
    m_installDriver = new QPushButton(tr("Install\u2026"), this);
    m_installDriver->setToolTip(tr("Installs the print queue and its driver; asks for the administrator's password."));
    driverRow->addWidget(m_driverState, 1);
    driverRow->addWidget(m_installDriver);
    driver->addRow(driverRow);

    m_network = new NetworkSettingsBox(this);
    connect(m_network, &NetworkSettingsBox::settingsChanged, this, &GeneralSettingsPage::settingsChanged);
    layout->addWidget(m_network);
    layout->addStretch(1);

    const auto save = [this](const QString& key, const QVariant& value) {
        UserDefaults& defaults = UserDefaults::standard();
        if (defaults.isStored(key) && defaults.value(key) == value)
            return;
        defaults.setValue(key, value);
        emit settingsChanged();
    };
    connect(m_destination, &QComboBox::activated, this,
        [this, save] { save(SettingKey::DestinationName, m_destination->currentData().toString()); });
    connect(m_remote, &QComboBox::activated, this,
        [this, save] { save(SettingKey::RemoteDestinationName, m_remote->currentData().toString()); });
    connect(m_maxcount, &QSpinBox::valueChanged, this, [save](int value) { save(SettingKey::Maxcount, value); });
    connect(m_followMouse, &QCheckBox::toggled, this, [save](bool on) { save(SettingKey::FollowMouse, on); });
    connect(m_showTray, &QCheckBox::toggled, this, [save](bool on) { save(SettingKey::ShowMenubarIcon, on); });
    connect(
        m_notifications, &QCheckBox::toggled, this, [save](bool on) { save(SettingKey::DisableNotifications, !on); });
    connect(m_autostart, &QCheckBox::toggled, this, [this](bool on) {
        QString error;
        if (!AutostartEntry::setEnabled(on, &error))
            MYDisplayAlert(tr("Starting at login could not be changed: %1").arg(error));
        const QSignalBlocker quiet(m_autostart);
        m_autostart->setChecked(AutostartEntry::isEnabled());
    });
    connect(m_installDriver, &QPushButton::clicked, this, &GeneralSettingsPage::installDriver);
    connect(&m_destinations, &QAbstractItemModel::modelReset, this, &GeneralSettingsPage::readSettings);
    connect(&m_destinations, &QAbstractItemModel::dataChanged, this, &GeneralSettingsPage::readSettings);
    readSettings();
}

void GeneralSettingsPage::fillDestinations(QComboBox* box, const QString& key)
{
    const QString current = UserDefaults::standard().stringValue(key);
    const QSignalBlocker quiet(box);
    box->clear();
    box->addItem(tr("Ask every time"), QString());
    box->insertSeparator(1);
    for (int row = 0; row < m_destinations.rowCount(); ++row) {
        const DestinationItem* item = m_destinations.itemAt(row);
        box->addItem(item->icon(), item->name(), item->name());
    }
    int index = box->findData(current);
    if (index < 0 && !current.isEmpty()) {
        // A recid, or a name no destination has (any more).
        for (int row = 0; row < m_destinations.rowCount(); ++row)
            if (m_destinations.itemAt(row)->recid() == current)
                index = box->findData(m_destinations.itemAt(row)->name());
        if (index < 0) {
            box->addItem(tr("%1 (missing)").arg(current), current);
            index = box->count() - 1;
        }
    }
    box->setCurrentIndex(std::max(index, 0));
}

void GeneralSettingsPage::readSettings()
{
    UserDefaults& defaults = UserDefaults::standard();
    fillDestinations(m_destination, SettingKey::DestinationName);
    fillDestinations(m_remote, SettingKey::RemoteDestinationName);
    const QSignalBlocker a(m_maxcount), b(m_followMouse), c(m_showTray), d(m_notifications), e(m_autostart);
    m_maxcount->setValue(int(defaults.integerValue(SettingKey::Maxcount)));
    m_followMouse->setChecked(defaults.boolValue(SettingKey::FollowMouse));
    m_showTray->setChecked(defaults.boolValue(SettingKey::ShowMenubarIcon));
    m_notifications->setChecked(!defaults.boolValue(SettingKey::DisableNotifications));
    m_autostart->setChecked(AutostartEntry::isEnabled());
    m_network->readSettings();
    refreshDriverState();
}

void GeneralSettingsPage::setDriverPaths(const DriverInstaller::Paths& paths)
{
    m_driverPaths = paths;
    refreshDriverState();
}

void GeneralSettingsPage::refreshDriverState()
{
    const DriverInstaller installer(m_driverPaths);
    if (installer.isCurrent()) {
        m_driverState->setText(tr("The print driver is installed and up to date."));
        m_installDriver->setText(tr("Reinstall\u2026"));
    } else if (QFileInfo::exists(m_driverPaths.installedBackend)) {
        m_driverState->setText(tr("The installed print driver is out of date."));
        m_installDriver->setText(tr("Update\u2026"));
    } else {
        m_driverState->setText(tr("The print driver is not installed: nothing can be printed to Quirepad."));
        m_installDriver->setText(tr("Install\u2026"));
    }
}

void GeneralSettingsPage::installDriver()
{
    // pkexec asks for the administrator's password; the window waits.
    m_installDriver->setEnabled(false);
    const ProcessRunner::Result result = DriverInstaller(m_driverPaths).run();
    m_installDriver->setEnabled(true);
    const QString output = QString::fromLocal8Bit(result.standardOutput + result.standardError).trimmed();
    if (!result.succeeded())
        MYDisplayAlert(
            tr("The print driver could not be installed.\n\n%1").arg(output.isEmpty() ? result.errorString : output));
    refreshDriverState();
}

} // namespace quirepad
