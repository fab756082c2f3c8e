#pragma once

#include "network/DnsSd.h"

#include <QFutureWatcher>
#include <QObject>

#include <functional>

namespace quirepad {

// Makes the local CUPS queue "Print_to_Quirepad" visible to phones: watches
// the "_ipp._tcp" announcements for the queue CUPS shares from this host,
// and publishes beside it "AirPrint Quirepad" with the "_universal" subtype
// and the TXT keys AirPrint clients look for. Prints still go to CUPS on
// port 631; this only advertises.
class AirPrintAdvertiser : public QObject
{
    Q_OBJECT
public:
    static constexpr const char* ServiceName = "AirPrint Quirepad";
    static constexpr const char* QueuePath = "printers/Print_to_Quirepad";
    static constexpr int ResolveTimeoutMs = 2000;

    explicit AirPrintAdvertiser(DnsSd& dnsSd, QObject* parent = nullptr);
    ~AirPrintAdvertiser() override;

    // This host's own addresses as text (default: every interface's).
    void setHostAddresses(std::function<QStringList()> addresses) { m_hostAddresses = std::move(addresses); }
    // The host name the record's note names (default: this host's).
    void setHostName(const QString& name) { m_hostName = name; }

    // Forgets the queue found before, browses for IPP printers and prepares
    // the record (not published yet).
    void advertiseItself();
    // Publishes or withdraws the record as the settings say; safe to call
    // at any time.
    void publishAirPrinter();

    bool airprinterRunning() const { return m_airprinterRunning; }
    bool isSearching() const { return m_searching; }
    // The record's TXT table as it would be published now.
    TxtRecord txtRecord() const;
    // The name the record is on the network under; empty while it is not.
    QString publishedName() const;
    QString qpid() const { return m_qpid; }
    // Why the record is not on the network; empty when it is.
    QString whyNotPublished() const;
    DnsSd& dnsSd() const { return m_dnsSd; }

signals:
    void stateChanged();

private:
    void netServiceFound(const DnsSdService& service);
    void netServiceDidResolveAddress(const DnsSdService& service, const DnsSdResolved& resolved);
    void queueConfirmed(const QString& adminUrl, const QString& rp, bool isThisHost);
    void daemonAvailabilityChanged(bool available);

    DnsSd& m_dnsSd;
    std::function<QStringList()> m_hostAddresses;
    QString m_hostName;
    DnsSdService m_foundService;
    QList<QFutureWatcher<bool>*> m_comparisons;
    QString m_qpid;
    QString m_publishError;
    int m_broadcast = 0; // the published record's handle
    bool m_searching = false;
    bool m_airprinterRunning = false;
    bool m_saidUnavailable = false;
};

} // namespace quirepad
