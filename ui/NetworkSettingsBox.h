#pragma once

#include <QGroupBox>

class QCheckBox;
class QLabel;
class QPushButton;
class QSpinBox;

namespace quirepad {

// The network part of the preferences: AirPrint advertising of the print
// queue and the page feed, with what each is doing now. Every change is
// saved at once.
class NetworkSettingsBox : public QGroupBox
{
    Q_OBJECT
public:
    explicit NetworkSettingsBox(QWidget* parent = nullptr);

    void readSettings();
    // What the services do now: the feed's address (empty when it is off)
    // and a line on the AirPrint record.
    void showStatus(const QString& feedUrl, const QString& airPrintState);

    QCheckBox* airPrintSwitch() const { return m_airPrint; }
    QCheckBox* feedSwitch() const { return m_feed; }
    QLabel* feedAddress() const { return m_feedAddress; }

signals:
    void settingsChanged();
    // The user asked for the print queue to be shared with the network.
    void shareQueueRequested();

private:
    void updateEnabled();

    QCheckBox* m_airPrint = nullptr;
    QLabel* m_airPrintState = nullptr;
    QPushButton* m_shareQueue = nullptr;
    QCheckBox* m_feed = nullptr;
    QCheckBox* m_feedEverywhere = nullptr;
    QSpinBox* m_feedPort = nullptr;
    QLabel* m_feedAddress = nullptr;
};

} // namespace quirepad
