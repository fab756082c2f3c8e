#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>

namespace quirepad {

class AirPrintAdvertiser;
class DnsSd;
class HTTPServer;
class PageFeed;

// The program's services on the network, as the settings ask for them:
// the page feed over HTTP (HTTPServer_enabled, HTTPServer_serverPort,
// HTTPServer_bind_all) and the AirPrint record of the print queue
// (enable_airprinter). DNS-SD is only connected to once something needs it.
class NetworkServices : public QObject
{
    Q_OBJECT
public:
    static constexpr int AdvertiseDelayMs = 2000;
    static constexpr quint16 DefaultFeedPort = 8631;

    explicit NetworkServices(QObject* parent = nullptr);
    ~NetworkServices() override;

    // DNS-SD implementation to use instead of the Avahi daemon (tests).
    void setDnsSdFactory(std::function<std::unique_ptr<DnsSd>()> factory) { m_makeDnsSd = std::move(factory); }

    // At launch: serves the feed when it is on; the AirPrint search starts
    // AdvertiseDelayMs later.
    void start();
    // After the settings changed: starts, restarts or stops the server and
    // publishes or withdraws the AirPrint record.
    void applySettings();

    bool isFeedServing() const;
    // The feed's address for other devices (or this host when the server is
    // bound to loopback); empty while the server is off.
    QString feedUrl() const;
    // A few lines on the server's state, for the command line.
    QString feedStatus() const;

    AirPrintAdvertiser* advertiser() const { return m_advertiser.get(); }
    // Lines on the AirPrint record's state, for the command line.
    QString airPrintStatus() const;
    // One sentence on it, for the preferences.
    QString airPrintSummary() const;

signals:
    void stateChanged();

private:
    DnsSd& dnsSd();
    void advertise();
    void applyServerSettings();

    std::function<std::unique_ptr<DnsSd>()> m_makeDnsSd;
    std::unique_ptr<DnsSd> m_dnsSd;
    std::unique_ptr<PageFeed> m_feed;
    std::unique_ptr<HTTPServer> m_server;
    std::unique_ptr<AirPrintAdvertiser> m_advertiser;
    QTimer m_advertiseTimer;
    QString m_serverProblem;
    quint16 m_configuredPort = 0;
    bool m_configuredBindAll = false;
    bool m_started = false;
};

} // namespace quirepad
