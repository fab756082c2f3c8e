#include "network/AvahiDnsSd.h"

#include "network/NetworkLog.h"

#include <avahi-common/address.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>

namespace quirepad {
namespace {

constexpr int ReconnectMs = 5000;

QString errorText(int error)
{
    return QString::fromUtf8(avahi_strerror(error));
}

// Avahi keeps a TXT list last string first: adding prepends, and the list
// is reversed when it goes on the wire and when it is read from it.
AvahiStringList* toStringList(const TxtRecord& txt)
{
    AvahiStringList* list = nullptr;
    for (const auto& [key, value] : txt)
        list = avahi_string_list_add_pair_arbitrary(list, key.constData(),
                                                    reinterpret_cast<const uint8_t*>(value.constData()),
                                                    size_t(value.size()));
    return list;
}

TxtRecord fromStringList(AvahiStringList* list)
{
    TxtRecord txt;
    for (AvahiStringList* item = list; item; item = avahi_string_list_get_next(item)) {
        char* key = nullptr;
        char* value = nullptr;
        size_t size = 0;
        if (avahi_string_list_get_pair(item, &key, &value, &size) < 0)
            continue;
        txt.prepend({ QByteArray(key), value ? QByteArray(value, qsizetype(size)) : QByteArray("") });
        avahi_free(key);
        avahi_free(value);
    }
    return txt;
}

QString alternativeName(const QString& name)
{
    char* next = avahi_alternative_service_name(name.toUtf8().constData());
    const QString result = QString::fromUtf8(next);
    avahi_free(next);
    return result;
}

} // namespace

QByteArray txtValue(const TxtRecord& record, const QByteArray& key)
{
    for (const auto& [k, v] : record)
        if (k.compare(key, Qt::CaseInsensitive) == 0)
            return v.isNull() ? QByteArray("") : v;
    return {};
}

AvahiDnsSd::AvahiDnsSd(QObject* parent)
    : DnsSd(parent)
{
    qRegisterMetaType<DnsSdService>();
    qRegisterMetaType<DnsSdResolved>();
    m_reconnect.setSingleShot(true);
    connect(&m_reconnect, &QTimer::timeout, this, &AvahiDnsSd::connectClient);
    m_problem = QStringLiteral("connecting to the Avahi daemon");
    connectClient();
}

AvahiDnsSd::~AvahiDnsSd()
{
    dropClient();
}

void AvahiDnsSd::connectClient()
{
    int error = 0;
    // Without the daemon the client waits for it (CONNECTING) instead of
    // failing; the state callback may run before this returns.
    AvahiClient* client = avahi_client_new(m_poll.poll(), AVAHI_CLIENT_NO_FAIL, &AvahiDnsSd::clientChanged, this, &error);
    if (!client) {
        setAvailable(false, QStringLiteral("cannot reach the Avahi daemon: %1").arg(errorText(error)));
        m_reconnect.start(ReconnectMs);
        return;
    }
    m_client = client;
}

void AvahiDnsSd::dropClient()
{
    // Freeing the client frees its browsers, resolvers and entry groups.
    m_browsers.clear();
    for (auto& [handle, entry] : m_entries) {
        entry.group = nullptr;
        entry.established = false;
    }
    for (auto& [id, resolving] : m_resolving)
        resolving.deadline->deleteLater();
    m_resolving.clear();
    if (m_client)
        avahi_client_free(m_client);
    m_client = nullptr;
    m_running = false;
}

void AvahiDnsSd::setAvailable(bool available, const QString& problem)
{
    m_problem = problem;
    if (available == m_available)
        return;
    m_available = available;
    emit availabilityChanged(available);
}

void AvahiDnsSd::clientChanged(AvahiClient* client, AvahiClientState state, void* data)
{
    auto* self = static_cast<AvahiDnsSd*>(data);
    self->m_client = client;
    switch (state) {
    case AVAHI_CLIENT_S_RUNNING:
        self->m_running = true;
        self->setAvailable(true, QString());
        for (const QString& type : std::as_const(self->m_browseTypes))
            self->startBrowser(type);
        for (auto& [handle, entry] : self->m_entries)
            self->register_(handle, entry);
        break;
    case AVAHI_CLIENT_S_COLLISION:
    case AVAHI_CLIENT_S_REGISTERING:
        // The host name is being (re)announced: services wait for RUNNING.
        self->m_running = false;
        for (auto& [handle, entry] : self->m_entries) {
            if (entry.group)
                avahi_entry_group_reset(entry.group);
            entry.established = false;
        }
        break;
    case AVAHI_CLIENT_CONNECTING:
        self->m_running = false;
        self->setAvailable(false, QStringLiteral("the Avahi daemon is not running"));
        break;
    case AVAHI_CLIENT_FAILURE: {
        const int error = avahi_client_errno(client);
        self->dropClient();
        if (error == AVAHI_ERR_DISCONNECTED) {
            // The daemon went away: wait for it to come back.
            self->setAvailable(false, QStringLiteral("the Avahi daemon stopped"));
            self->connectClient();
        } else {
            self->setAvailable(false, QStringLiteral("Avahi client failed: %1").arg(errorText(error)));
            self->m_reconnect.start(ReconnectMs);
        }
        break;
    }
    }
}

void AvahiDnsSd::browse(const QString& type)
{
    if (!m_browseTypes.contains(type))
        m_browseTypes.append(type);
    startBrowser(type);
}

void AvahiDnsSd::startBrowser(const QString& type)
{
    if (!m_running || m_browsers.count(type))
        return;
    AvahiServiceBrowser* browser = avahi_service_browser_new(m_client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                                             type.toUtf8().constData(), nullptr,
                                                             AvahiLookupFlags(0), &AvahiDnsSd::browserEvent, this);
    if (!browser) {
        qCWarning(lcDnsSd) << "cannot browse for" << type << errorText(avahi_client_errno(m_client));
        return;
    }
    m_browsers[type] = browser;
}

void AvahiDnsSd::browserEvent(AvahiServiceBrowser*, AvahiIfIndex interfaceIndex, AvahiProtocol protocol,
                              AvahiBrowserEvent event, const char* name, const char* type, const char* domain,
                              AvahiLookupResultFlags, void* data)
{
    auto* self = static_cast<AvahiDnsSd*>(data);
    if (event == AVAHI_BROWSER_FAILURE) {
        qCWarning(lcDnsSd) << "browsing failed:" << errorText(avahi_client_errno(self->m_client));
        return;
    }
    if (event != AVAHI_BROWSER_NEW)
        return;
    DnsSdService service;
    service.name = QString::fromUtf8(name);
    service.type = QString::fromUtf8(type);
    service.domain = QString::fromUtf8(domain);
    service.interfaceIndex = interfaceIndex;
    service.protocol = protocol;
    emit self->serviceFound(service);
}

void AvahiDnsSd::resolve(const DnsSdService& service, int timeoutMs)
{
    if (!m_running)
        return;
    AvahiServiceResolver* resolver = avahi_service_resolver_new(
        m_client, service.interfaceIndex >= 0 ? service.interfaceIndex : AVAHI_IF_UNSPEC,
        service.protocol >= 0 ? service.protocol : AVAHI_PROTO_UNSPEC, service.name.toUtf8().constData(),
        service.type.toUtf8().constData(), service.domain.isEmpty() ? nullptr : service.domain.toUtf8().constData(),
        AVAHI_PROTO_UNSPEC, AvahiLookupFlags(0), &AvahiDnsSd::resolverEvent, this);
    if (!resolver)
        return;
    const quint64 id = m_nextResolve++;
    Resolving& resolving = m_resolving[id];
    resolving.service = service;
    resolving.resolver = resolver;
    resolving.deadline = new QTimer(this);
    resolving.deadline->setSingleShot(true);
    connect(resolving.deadline, &QTimer::timeout, this, [this, id] { finishResolving(id); });
    resolving.deadline->start(timeoutMs);
}

void AvahiDnsSd::resolverEvent(AvahiServiceResolver* resolver, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent event,
                               const char*, const char*, const char*, const char* hostName,
                               const AvahiAddress* address, uint16_t port, AvahiStringList* txt,
                               AvahiLookupResultFlags, void* data)
{
    auto* self = static_cast<AvahiDnsSd*>(data);
    auto it = std::find_if(self->m_resolving.begin(), self->m_resolving.end(),
                           [resolver](const auto& item) { return item.second.resolver == resolver; });
    if (it == self->m_resolving.end())
        return;
    const DnsSdService service = it->second.service;
    self->finishResolving(it->first);
    if (event != AVAHI_RESOLVER_FOUND)
        return; // unresolvable services are dropped, as after the deadline
    DnsSdResolved resolved;
    resolved.hostName = QString::fromUtf8(hostName);
    resolved.port = port;
    char text[AVAHI_ADDRESS_STR_MAX] = {};
    if (address && avahi_address_snprint(text, sizeof text, address))
        resolved.addresses.append(QHostAddress(QString::fromLatin1(text)));
    resolved.txt = fromStringList(txt);
    emit self->serviceResolved(service, resolved);
}

void AvahiDnsSd::finishResolving(quint64 id)
{
    auto it = m_resolving.find(id);
    if (it == m_resolving.end())
        return;
    avahi_service_resolver_free(it->second.resolver);
    it->second.deadline->stop();
    it->second.deadline->deleteLater();
    m_resolving.erase(it);
}

int AvahiDnsSd::publish(const DnsSdRegistration& registration)
{
    const int handle = m_nextHandle++;
    Entry& entry = m_entries[handle];
    entry.registration = registration;
    entry.name = registration.name;
    if (m_running)
        register_(handle, entry);
    return handle;
}

void AvahiDnsSd::register_(int handle, Entry& entry)
{
    entry.established = false;
    if (entry.group) {
        avahi_entry_group_reset(entry.group);
    } else {
        entry.group = avahi_entry_group_new(m_client, &AvahiDnsSd::groupChanged, this);
        if (!entry.group) {
            emit publishFailed(handle, errorText(avahi_client_errno(m_client)));
            return;
        }
    }
    const DnsSdRegistration& r = entry.registration;
    const QByteArray type = r.type.toUtf8();
    const QByteArray domain = r.domain.toUtf8();
    const char* domainOrDefault = domain.isEmpty() ? nullptr : domain.constData();
    AvahiStringList* txt = toStringList(r.txt);
    int result = 0;
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QByteArray name = entry.name.toUtf8();
        result = avahi_entry_group_add_service_strlst(entry.group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                                      AvahiPublishFlags(0), name.constData(), type.constData(),
                                                      domainOrDefault, nullptr, r.port, txt);
        if (result == AVAHI_ERR_COLLISION) {
            entry.name = alternativeName(entry.name);
            avahi_entry_group_reset(entry.group);
            continue;
        }
        for (const QString& subtype : r.subtypes) {
            if (result < 0)
                break;
            const QByteArray full = (subtype + QStringLiteral("._sub.") + r.type).toUtf8();
            result = avahi_entry_group_add_service_subtype(entry.group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                                           AvahiPublishFlags(0), name.constData(), type.constData(),
                                                           domainOrDefault, full.constData());
        }
        if (result >= 0)
            result = avahi_entry_group_commit(entry.group);
        break;
    }
    avahi_string_list_free(txt);
    if (result < 0)
        emit publishFailed(handle, errorText(result));
}

AvahiDnsSd::Entry* AvahiDnsSd::entryOf(AvahiEntryGroup* group)
{
    for (auto& [handle, entry] : m_entries)
        if (entry.group == group)
            return &entry;
    return nullptr;
}

void AvahiDnsSd::groupChanged(AvahiEntryGroup* group, AvahiEntryGroupState state, void* data)
{
    auto* self = static_cast<AvahiDnsSd*>(data);
    Entry* entry = self->entryOf(group); // none while the group is being made
    if (!entry)
        return;
    const int handle = int(std::find_if(self->m_entries.begin(), self->m_entries.end(),
                                        [entry](const auto& item) { return &item.second == entry; })
                               ->first);
    switch (state) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
        entry->established = true;
        emit self->published(handle, entry->name);
        break;
    case AVAHI_ENTRY_GROUP_COLLISION:
        entry->name = alternativeName(entry->name);
        qCInfo(lcDnsSd) << "name taken on the network; publishing as" << entry->name;
        self->register_(handle, *entry);
        break;
    case AVAHI_ENTRY_GROUP_FAILURE:
        entry->established = false;
        emit self->publishFailed(handle, errorText(avahi_client_errno(avahi_entry_group_get_client(group))));
        break;
    default:
        break;
    }
}

void AvahiDnsSd::freeGroup(Entry& entry)
{
    if (entry.group)
        avahi_entry_group_free(entry.group);
    entry.group = nullptr;
    entry.established = false;
}

void AvahiDnsSd::withdraw(int handle)
{
    auto it = m_entries.find(handle);
    if (it == m_entries.end())
        return;
    freeGroup(it->second);
    m_entries.erase(it);
}

QString AvahiDnsSd::publishedName(int handle) const
{
    auto it = m_entries.find(handle);
    return it != m_entries.end() && it->second.established ? it->second.name : QString();
}

} // namespace quirepad
