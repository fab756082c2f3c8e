#include "ui/NetworkSettingsBox.h"

#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>

namespace quirepad {
namespace {

const QString& kAirPrint = SettingKey::EnableAirPrinter;
const QString& kFeed = SettingKey::HttpEnabled;
const QString& kFeedEverywhere = SettingKey::HttpBindAll;
const QString& kFeedPort = SettingKey::HttpPort;

} // namespace

NetworkSettingsBox::NetworkSettingsBox(QWidget* parent)
    : QGroupBox(tr("Network"), parent)
{
    auto* form = new QFormLayout(this);
    m_airPrint = new QCheckBox(tr("Let phones and tablets print to Quirepad (AirPrint)"), this);
    form->addRow(m_airPrint);
    auto* airPrintRow = new QHBoxLayout;
    m_airPrintState = new QLabel(this);
    m_airPrintState->setWordWrap(true);
    m_airPrintState->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_shareQueue = new QPushButton(tr("Share the Print Queue\u2026"), this);
    m_shareQueue->setToolTip(tr("Phones print to the CUPS queue, which must be shared. While it is shared, "
                                "local users can print in each other's name."));
    airPrintRow->addWidget(m_airPrintState, 1);
    airPrintRow->addWidget(m_shareQueue);
    form->addRow(airPrintRow);

    m_feed = new QCheckBox(tr("Serve printed pages as a web page and an RSS feed"), this);
    form->addRow(m_feed);
    m_feedEverywhere = new QCheckBox(tr("Reachable from other devices on the network"), this);
    form->addRow(QString(), m_feedEverywhere);
    m_feedPort = new QSpinBox(this);
    m_feedPort->setRange(1024, 65535);
    m_feedPort->setMaximumWidth(90);
    form->addRow(tr("Port:"), m_feedPort);
    m_feedAddress = new QLabel(this);
    m_feedAddress->setOpenExternalLinks(true);
    m_feedAddress->setTextInteractionFlags(Qt::TextBrowserInteraction);
    form->addRow(tr("Feed address:"), m_feedAddress);

    const auto save = [this](const QString& key, const QVariant& value) {
        UserDefaults::standard().setValue(key, value);
        updateEnabled();
        emit settingsChanged();
    };
    connect(m_airPrint, &QCheckBox::toggled, this, [save](bool on) { save(kAirPrint, on); });
    connect(m_feed, &QCheckBox::toggled, this, [save](bool on) { save(kFeed, on); });
    connect(m_feedEverywhere, &QCheckBox::toggled, this, [save](bool on) { save(kFeedEverywhere, on); });
    // The port is taken when editing ends, not at every digit typed.
    connect(m_feedPort, &QSpinBox::editingFinished, this, [this, save] {
        if (UserDefaults::standard().integerValue(kFeedPort) != m_feedPort->value())
            save(kFeedPort, m_feedPort->value());
    });
    connect(m_shareQueue, &QPushButton::clicked, this, &NetworkSettingsBox::shareQueueRequested);
    readSettings();
}

void NetworkSettingsBox::readSettings()
{
    const UserDefaults& defaults = UserDefaults::standard();
    const QSignalBlocker a(m_airPrint), f(m_feed), e(m_feedEverywhere), p(m_feedPort);
    m_airPrint->setChecked(defaults.boolValue(kAirPrint));
    m_feed->setChecked(defaults.boolValue(kFeed));
    m_feedEverywhere->setChecked(defaults.boolValue(kFeedEverywhere));
    const qint64 port = defaults.integerValue(kFeedPort);
    m_feedPort->setValue(port >= 1024 && port <= 65535 ? int(port) : 8631);
    updateEnabled();
}

void NetworkSettingsBox::showStatus(const QString& feedUrl, const QString& airPrintState)
{
    m_feedAddress->setText(
        feedUrl.isEmpty() ? tr("not serving") : QStringLiteral("<a href=\"%1\">%1</a>").arg(feedUrl.toHtmlEscaped()));
    m_airPrintState->setText(airPrintState);
}

void NetworkSettingsBox::updateEnabled()
{
    m_feedEverywhere->setEnabled(m_feed->isChecked());
    m_feedPort->setEnabled(m_feed->isChecked());
}

} // namespace quirepad
