#pragma once

#include "network/AvahiQtPoll.h"
#include "network/DnsSd.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>

#include <QTimer>

#include <map>
#include <memory>

namespace quirepad {

// DnsSd through the Avahi daemon's client library, on the Qt event loop.
// The daemon may be missing at start, stop and come back: the client waits
// for it, and on its return browses again and republishes every service.
class AvahiDnsSd : public DnsSd
{
    Q_OBJECT
public:
    explicit AvahiDnsSd(QObject* parent = nullptr);
    ~AvahiDnsSd() override;

    bool isAvailable() const override { return m_available; }
    QString problem() const override { return m_problem; }

    void browse(const QString& type) override;
    void resolve(const DnsSdService& service, int timeoutMs) override;
    int publish(const DnsSdRegistration& registration) override;
    void withdraw(int handle) override;
    QString publishedName(int handle) const override;

private:
    struct Entry
    {
        DnsSdRegistration registration;
        QString name; // the registration's name, or the alternative taken
        AvahiEntryGroup* group = nullptr;
        bool established = false;
    };
    struct Resolving
    {
        DnsSdService service;
        AvahiServiceResolver* resolver = nullptr;
        QTimer* deadline = nullptr; // a child of this object, deleted later
    };

    static void clientChanged(AvahiClient* client, AvahiClientState state, void* self);
    static void browserEvent(AvahiServiceBrowser* browser, AvahiIfIndex interfaceIndex, AvahiProtocol protocol,
                             AvahiBrowserEvent event, const char* name, const char* type, const char* domain,
                             AvahiLookupResultFlags flags, void* self);
    static void resolverEvent(AvahiServiceResolver* resolver, AvahiIfIndex interfaceIndex, AvahiProtocol protocol,
                              AvahiResolverEvent event, const char* name, const char* type, const char* domain,
                              const char* hostName, const AvahiAddress* address, uint16_t port,
                              AvahiStringList* txt, AvahiLookupResultFlags flags, void* self);
    static void groupChanged(AvahiEntryGroup* group, AvahiEntryGroupState state, void* self);

    void connectClient();
    void dropClient();
    void setAvailable(bool available, const QString& problem);
    void startBrowser(const QString& type);
    void register_(int handle, Entry& entry);
    void freeGroup(Entry& entry);
    void finishResolving(quint64 id);
    Entry* entryOf(AvahiEntryGroup* group);

    AvahiQtPoll m_poll;
    AvahiClient* m_client = nullptr;
    bool m_running = false; // the daemon is up and the client registered
    bool m_available = false;
    QString m_problem;
    QTimer m_reconnect;
    QStringList m_browseTypes;
    std::map<QString, AvahiServiceBrowser*> m_browsers;
    std::map<int, Entry> m_entries;
    std::map<quint64, Resolving> m_resolving;
    int m_nextHandle = 1;
    quint64 m_nextResolve = 1;
};

} // namespace quirepad
