#include "network/AirPrintAdvertiser.h"

#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"
#include "foundation/identifiers.h"
#include "network/NetworkLog.h"

#include <QHostInfo>
#include <QNetworkInterface>
#include <QtConcurrent/QtConcurrentRun>

namespace quirepad {
namespace {

QStringList interfaceAddresses()
{
    QStringList addresses;
    for (const QHostAddress& address : QNetworkInterface::allAddresses())
        addresses << address.toString();
    return addresses;
}

// "/printers/NAME" from an admin URL "http://host:631/printers/NAME": what
// follows the port. Without ":631/" the text from index 3 on.
QString rpFromAdminUrl(const QString& adminUrl)
{
    return adminUrl.mid(adminUrl.indexOf(QLatin1String(":631/")) + 4);
}

} // namespace

AirPrintAdvertiser::AirPrintAdvertiser(DnsSd& dnsSd, QObject* parent)
    : QObject(parent)
    , m_dnsSd(dnsSd)
    , m_hostAddresses(interfaceAddresses)
    , m_hostName(QHostInfo::localHostName())
{
    connect(&m_dnsSd, &DnsSd::serviceFound, this, &AirPrintAdvertiser::netServiceFound);
    connect(&m_dnsSd, &DnsSd::serviceResolved, this, &AirPrintAdvertiser::netServiceDidResolveAddress);
    connect(&m_dnsSd, &DnsSd::availabilityChanged, this, &AirPrintAdvertiser::daemonAvailabilityChanged);
    connect(&m_dnsSd, &DnsSd::published, this, [this](int handle, const QString& name) {
        if (handle != m_broadcast)
            return;
        m_publishError.clear();
        qCInfo(lcDnsSd) << "published" << name << "qpid" << m_qpid;
        emit stateChanged();
    });
    connect(&m_dnsSd, &DnsSd::publishFailed, this, [this](int handle, const QString& error) {
        if (handle != m_broadcast)
            return;
        m_publishError = error;
        qCWarning(lcDnsSd).noquote() << "ns error:" << error;
        emit stateChanged();
    });
}

AirPrintAdvertiser::~AirPrintAdvertiser()
{
    // Comparisons still running finish unseen: their watchers go first.
    qDeleteAll(m_comparisons);
    if (m_broadcast)
        m_dnsSd.withdraw(m_broadcast);
}

void AirPrintAdvertiser::advertiseItself()
{
    UserDefaults::standard().remove(SettingKey::AirPrinter);
    m_searching = true;
    m_dnsSd.browse(QStringLiteral("_ipp._tcp"));
    if (!m_dnsSd.isAvailable())
        daemonAvailabilityChanged(false);
    emit stateChanged();
}

void AirPrintAdvertiser::netServiceFound(const DnsSdService& service)
{
    if (service.type != QLatin1String("_ipp._tcp"))
        return;
    m_foundService = service;
    m_dnsSd.resolve(service, ResolveTimeoutMs);
}

void AirPrintAdvertiser::netServiceDidResolveAddress(const DnsSdService& service, const DnsSdResolved& resolved)
{
    if (service.type != QLatin1String("_ipp._tcp"))
        return;
    if (!txtValue(resolved.txt, "qpid").isNull())
        return; // our own record
    const QString adminUrl = QString::fromUtf8(txtValue(resolved.txt, "adminurl"));
    const QString rp = QString::fromUtf8(txtValue(resolved.txt, "rp"));
    const bool complete = !txtValue(resolved.txt, "adminurl").isNull() && !txtValue(resolved.txt, "rp").isNull();

    // The host's addresses are read off the event loop; only IPv4 ones are
    // compared.
    const QList<QHostAddress> addresses = resolved.addresses;
    auto* watcher = new QFutureWatcher<bool>(this);
    m_comparisons.append(watcher);
    connect(watcher, &QFutureWatcher<bool>::finished, this, [this, watcher, adminUrl, rp, complete] {
        m_comparisons.removeOne(watcher);
        watcher->deleteLater();
        const bool isThisHost = watcher->result();
        if (complete)
            queueConfirmed(adminUrl, rp, isThisHost);
    });
    watcher->setFuture(QtConcurrent::run([addresses, hostAddresses = m_hostAddresses] {
        const QStringList own = hostAddresses();
        for (const QHostAddress& address : addresses)
            if (address.protocol() == QAbstractSocket::IPv4Protocol && own.contains(address.toString()))
                return true;
        return false;
    }));
}

void AirPrintAdvertiser::queueConfirmed(const QString& adminUrl, const QString& rp, bool isThisHost)
{
    if (rp != QLatin1String(QueuePath) || !isThisHost)
        return;
    UserDefaults::standard().setValue(SettingKey::AirPrinter, adminUrl);
    emit stateChanged();
    publishAirPrinter();
}

TxtRecord AirPrintAdvertiser::txtRecord() const
{
    const QString adminUrl = UserDefaults::standard().stringValue(SettingKey::AirPrinter);
    return {
        { "txtvers", "1" },
        { "qtotal", "1" },
        { "rp", rpFromAdminUrl(adminUrl).toUtf8() },
        { "adminurl", adminUrl.toUtf8() },
        { "pdl", "application/pdf,application/postscript,image/jpeg,image/png,image/pwg-raster,image/urf" },
        { "product", "(CUPS v1.1)" },
        { "ty", "Quirepad Printer" },
        { "note", QStringLiteral("Quirepad Printer @ %1").arg(m_hostName).toUtf8() },
        { "URF", "none" },
        { "qpid", m_qpid.toUtf8() },
    };
}

void AirPrintAdvertiser::publishAirPrinter()
{
    const UserDefaults& defaults = UserDefaults::standard();
    const bool known = !defaults.stringValue(SettingKey::AirPrinter).isEmpty();
    if (!known || !defaults.boolValue(SettingKey::EnableAirPrinter)) {
        if (m_broadcast)
            m_dnsSd.withdraw(m_broadcast);
        m_broadcast = 0;
        m_airprinterRunning = false;
        m_publishError.clear();
        emit stateChanged();
        return;
    }
    if (m_airprinterRunning)
        return;
    m_qpid = generateUUID();
    DnsSdRegistration registration;
    registration.name = QString::fromLatin1(ServiceName);
    registration.type = QStringLiteral("_ipp._tcp");
    registration.subtypes = QStringList { QStringLiteral("_universal") };
    registration.port = 631;
    registration.txt = txtRecord();
    m_broadcast = m_dnsSd.publish(registration);
    m_airprinterRunning = true;
    emit stateChanged();
}

QString AirPrintAdvertiser::publishedName() const
{
    return m_broadcast ? m_dnsSd.publishedName(m_broadcast) : QString();
}

QString AirPrintAdvertiser::whyNotPublished() const
{
    const UserDefaults& defaults = UserDefaults::standard();
    if (!defaults.boolValue(SettingKey::EnableAirPrinter))
        return QStringLiteral("AirPrint is switched off (%1)").arg(SettingKey::EnableAirPrinter);
    if (!m_dnsSd.isAvailable())
        return m_dnsSd.problem();
    if (!m_searching)
        return QStringLiteral("the search starts two seconds after launch");
    if (defaults.stringValue(SettingKey::AirPrinter).isEmpty())
        return QStringLiteral("no shared queue %1 from this host is announced on the network; share it with "
                              "\"quirepad install-driver --share\" and make sure CUPS shares printers "
                              "(cupsctl --share-printers)")
            .arg(QLatin1String(QueuePath).mid(9));
    if (!m_publishError.isEmpty())
        return QStringLiteral("publishing failed: %1").arg(m_publishError);
    if (publishedName().isEmpty())
        return QStringLiteral("being published");
    return QString();
}

void AirPrintAdvertiser::daemonAvailabilityChanged(bool available)
{
    if (available) {
        if (m_saidUnavailable)
            qCInfo(lcDnsSd) << "DNS-SD is available again";
        m_saidUnavailable = false;
    } else if (!m_saidUnavailable) {
        // Said once per outage: the record comes back by itself.
        qCWarning(lcDnsSd).noquote()
            << QStringLiteral("DNS-SD is unavailable (%1); printers are advertised again when it returns")
                   .arg(m_dnsSd.problem());
        m_saidUnavailable = true;
    }
    emit stateChanged();
}

} // namespace quirepad
