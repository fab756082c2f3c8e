#include "network/NetworkServices.h"

#include "foundation/SettingsSchema.h"
#include "foundation/UserDefaults.h"
#include "network/AirPrintAdvertiser.h"
#include "network/AvahiDnsSd.h"
#include "network/HTTPServer.h"
#include "network/NetworkLog.h"
#include "network/PageFeed.h"

#include <QDir>
#include <QNetworkInterface>

namespace quirepad {
namespace {

// The first IPv4 address of an interface that is up and not loopback.
QString networkAddress()
{
    for (const QNetworkInterface& interface : QNetworkInterface::allInterfaces()) {
        const auto flags = interface.flags();
        if (!(flags & QNetworkInterface::IsUp) || (flags & QNetworkInterface::IsLoopBack))
            continue;
        for (const QNetworkAddressEntry& entry : interface.addressEntries())
            if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol)
                return entry.ip().toString();
    }
    return QString();
}

} // namespace

NetworkServices::NetworkServices(QObject* parent)
    : QObject(parent)
    , m_makeDnsSd([] { return std::make_unique<AvahiDnsSd>(); })
{
    m_advertiseTimer.setSingleShot(true);
    connect(&m_advertiseTimer, &QTimer::timeout, this, &NetworkServices::advertise);
}

NetworkServices::~NetworkServices()
{
    // The server and the record withdraw their services from DNS-SD, which
    // therefore goes last.
    m_server.reset();
    m_advertiser.reset();
    m_dnsSd.reset();
}

DnsSd& NetworkServices::dnsSd()
{
    if (!m_dnsSd)
        m_dnsSd = m_makeDnsSd();
    return *m_dnsSd;
}

void NetworkServices::start()
{
    m_started = true;
    applyServerSettings();
    m_advertiseTimer.start(AdvertiseDelayMs);
}

void NetworkServices::advertise()
{
    if (!m_advertiser) {
        m_advertiser = std::make_unique<AirPrintAdvertiser>(dnsSd());
        connect(m_advertiser.get(), &AirPrintAdvertiser::stateChanged, this, &NetworkServices::stateChanged);
    }
    m_advertiser->advertiseItself();
}

void NetworkServices::applySettings()
{
    if (!m_started)
        return;
    applyServerSettings();
    if (m_advertiser)
        m_advertiser->publishAirPrinter();
}

void NetworkServices::applyServerSettings()
{
    const UserDefaults& defaults = UserDefaults::standard();
    const bool enabled = defaults.boolValue(SettingKey::HttpEnabled);
    const qint64 requested = defaults.integerValue(SettingKey::HttpPort);
    const quint16 port = requested >= 0 && requested <= 65535 ? quint16(requested) : DefaultFeedPort;
    const bool bindAll = defaults.boolValue(SettingKey::HttpBindAll);
    if (!enabled) {
        if (m_server) {
            qCInfo(lcHttp) << "page feed stopped";
            m_server.reset();
            emit stateChanged();
        }
        m_serverProblem.clear();
        return;
    }
    if (m_server && port == m_configuredPort && bindAll == m_configuredBindAll)
        return;
    if (!m_feed) {
        m_feed = std::make_unique<PageFeed>(PageFeed::defaultFolder());
        QDir().mkpath(m_feed->folder());
    }
    m_server = std::make_unique<HTTPServer>();
    m_server->setDelegate(m_feed.get());
    const bool publishes = !defaults.stringValue(SettingKey::HttpServiceName).isEmpty()
                           && !defaults.stringValue(SettingKey::HttpServiceType).isEmpty();
    if (publishes)
        m_server->setDnsSd(&dnsSd());
    m_configuredPort = port;
    m_configuredBindAll = bindAll;
    m_server->setServerPort(port);
    if (m_server->listen()) {
        m_serverProblem.clear();
        qCInfo(lcHttp).noquote() << "page feed on" << feedUrl() << "serving" << m_feed->folder();
    } else {
        m_serverProblem = QStringLiteral("port %1 cannot be used (in use by another program?)").arg(port);
        m_server.reset();
    }
    emit stateChanged();
}

bool NetworkServices::isFeedServing() const
{
    return m_server && m_server->activePort() != 65535;
}

QString NetworkServices::feedUrl() const
{
    if (!isFeedServing())
        return QString();
    QString host = QStringLiteral("127.0.0.1");
    if (m_server->bindAll()) {
        const QString address = networkAddress();
        if (!address.isEmpty())
            host = address;
    }
    return QStringLiteral("http://%1:%2/").arg(host).arg(m_server->activePort());
}

QString NetworkServices::feedStatus() const
{
    const UserDefaults& defaults = UserDefaults::standard();
    if (!defaults.boolValue(SettingKey::HttpEnabled))
        return QStringLiteral("the page feed is off (turn it on with: quirepad defaults write %1 true)\n").arg(SettingKey::HttpEnabled);
    if (!isFeedServing())
        return QStringLiteral("the page feed is not serving: %1\n")
            .arg(m_serverProblem.isEmpty() ? QStringLiteral("not started yet") : m_serverProblem);
    QString text = QStringLiteral("%1\nindex: %2index.html\nfolder: %3\n")
                       .arg(feedUrl(), feedUrl(), m_feed->folder());
    if (!m_server->bindAll())
        text += QStringLiteral("reachable from this computer only (set %1 to true to serve other devices)\n").arg(SettingKey::HttpBindAll);
    return text;
}

QString NetworkServices::airPrintStatus() const
{
    const UserDefaults& defaults = UserDefaults::standard();
    QString text;
    const QString queue = defaults.stringValue(SettingKey::AirPrinter);
    text += QStringLiteral("queue: %1\n").arg(queue.isEmpty() ? QStringLiteral("not found") : queue);
    if (!m_advertiser) {
        text += QStringLiteral("published: no\nwhy: %1\n")
                    .arg(defaults.boolValue(SettingKey::EnableAirPrinter)
                             ? QStringLiteral("the search starts two seconds after launch")
                             : QStringLiteral("AirPrint is switched off (%1)").arg(SettingKey::EnableAirPrinter));
        return text;
    }
    const QString name = m_advertiser->publishedName();
    if (!name.isEmpty()) {
        text += QStringLiteral("published: yes, as \"%1\" (qpid %2)\n").arg(name, m_advertiser->qpid());
        return text;
    }
    text += QStringLiteral("published: no\nwhy: %1\n").arg(m_advertiser->whyNotPublished());
    return text;
}

QString NetworkServices::airPrintSummary() const
{
    if (!m_advertiser)
        return UserDefaults::standard().boolValue(SettingKey::EnableAirPrinter)
                   ? QStringLiteral("Looking for the shared print queue\u2026")
                   : QStringLiteral("Off.");
    const QString name = m_advertiser->publishedName();
    if (!name.isEmpty())
        return QStringLiteral("Phones on this network see \u201c%1\u201d.").arg(name);
    QString why = m_advertiser->whyNotPublished();
    if (!why.isEmpty())
        why[0] = why[0].toUpper();
    return QStringLiteral("Not visible to phones: %1.").arg(why);
}

} // namespace quirepad
