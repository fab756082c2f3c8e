#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>

namespace quirepad {

// A TXT record as its key/value pairs, in the order they are sent.
using TxtRecord = QList<QPair<QByteArray, QByteArray>>;

// The value of key in record, or a null array when the key is absent.
QByteArray txtValue(const TxtRecord& record, const QByteArray& key);

// A service instance as a browser reports it.
struct DnsSdService
{
    QString name;
    QString type;   // "_ipp._tcp"
    QString domain; // "local"
    int interfaceIndex = -1;
    int protocol = -1; // the network protocol it was seen on; -1 any
};

// What resolving a service instance gives.
struct DnsSdResolved
{
    QString hostName;
    quint16 port = 0;
    QList<QHostAddress> addresses;
    TxtRecord txt;
};

// A service to publish.
struct DnsSdRegistration
{
    QString name;
    QString type;           // "_ipp._tcp"
    QStringList subtypes;   // "_universal": published as "_universal._sub._ipp._tcp"
    QString domain;         // empty: the default
    quint16 port = 0;
    TxtRecord txt;
};

// DNS-SD (multicast DNS service discovery) as this program uses it:
// browse for a service type, resolve what was found, publish services of its
// own. Everything is reported on the event loop of the thread that made it.
//
// The daemon behind it may be absent at first, go away and come back: while
// it is away, isAvailable() is false, published services are not on the
// network, and they are published again when it returns (published() is then
// emitted again). Browsing goes on by itself as well.
class DnsSd : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    virtual bool isAvailable() const = 0;
    // Why it is not available; empty when it is.
    virtual QString problem() const = 0;

    // Reports every instance of the type, on every interface and protocol,
    // through serviceFound, for as long as this object lives. Idempotent.
    virtual void browse(const QString& type) = 0;
    // Reports serviceResolved, or nothing when it does not resolve within
    // timeoutMs.
    virtual void resolve(const DnsSdService& service, int timeoutMs) = 0;

    // Publishes the service under a handle (> 0) until withdrawn. A name
    // taken by another host's service becomes "NAME #2" and so on.
    virtual int publish(const DnsSdRegistration& registration) = 0;
    virtual void withdraw(int handle) = 0;
    // The name the service is published under, empty while not published.
    virtual QString publishedName(int handle) const = 0;

signals:
    void availabilityChanged(bool available);
    void serviceFound(const quirepad::DnsSdService& service);
    void serviceResolved(const quirepad::DnsSdService& service, const quirepad::DnsSdResolved& resolved);
    void published(int handle, const QString& name);
    void publishFailed(int handle, const QString& error);
};

} // namespace quirepad

Q_DECLARE_METATYPE(quirepad::DnsSdService)
Q_DECLARE_METATYPE(quirepad::DnsSdResolved)
