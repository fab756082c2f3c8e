#include "pipeline/VolumeEjector.h"

#include "foundation/Shutdown.h"
#include "foundation/runloop.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QDir>
#include <QLoggingCategory>

namespace quirepad {

Q_LOGGING_CATEGORY(lcEject, "quirepad.delivery.eject", QtInfoMsg)

namespace {

const QString kService = QStringLiteral("org.freedesktop.UDisks2");
const QString kBlock = QStringLiteral("org.freedesktop.UDisks2.Block");
const QString kFilesystem = QStringLiteral("org.freedesktop.UDisks2.Filesystem");
const QString kLoop = QStringLiteral("org.freedesktop.UDisks2.Loop");
const QString kDrive = QStringLiteral("org.freedesktop.UDisks2.Drive");

// A method call that keeps the event loop turning while UDisks2 works (an
// unmount waits for the disk) and gives up when the program is ending.
QDBusMessage callUDisks(const QString& path, const QString& interface, const QString& method,
                        const QVariantList& arguments, std::chrono::milliseconds timeout)
{
    QDBusMessage message = QDBusMessage::createMethodCall(kService, path, interface, method);
    message.setArguments(arguments);
    QDBusPendingCall pending = QDBusConnection::systemBus().asyncCall(message, int(timeout.count()));
    while (!pending.isFinished() && !Shutdown::isRequested())
        run_idle_loop();
    if (!pending.isFinished())
        return message.createErrorReply(QStringLiteral("org.freedesktop.DBus.Error.NoReply"),
                                        QStringLiteral("Quirepad is quitting"));
    return pending.reply();
}

QVariantList noOptions()
{
    return {QVariant::fromValue(QVariantMap())};
}

bool isError(const QDBusMessage& reply)
{
    return reply.type() != QDBusMessage::ReplyMessage;
}

// A property's value; invalid when the object has no such interface.
QVariant property(const QString& path, const QString& interface, const QString& name,
                  std::chrono::milliseconds timeout)
{
    const QDBusMessage reply = callUDisks(path, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
                                          {interface, name}, timeout);
    if (isError(reply) || reply.arguments().isEmpty())
        return {};
    return qdbus_cast<QDBusVariant>(reply.arguments().constFirst()).variant();
}

QList<QByteArray> byteArrays(const QVariant& value)
{
    if (value.metaType() == QMetaType::fromType<QByteArrayList>())
        return value.value<QByteArrayList>();
    QList<QByteArray> list;
    if (value.canConvert<QDBusArgument>())
        value.value<QDBusArgument>() >> list;
    return list;
}

} // namespace

VolumeEjector::VolumeEjector(QString root)
    : m_root(QDir::cleanPath(root))
{
}

VolumeEjector& VolumeEjector::setTimeout(std::chrono::milliseconds timeout)
{
    m_timeout = timeout;
    return *this;
}

QString VolumeEjector::findBlockObject()
{
    const QDBusMessage reply = callUDisks(QStringLiteral("/org/freedesktop/UDisks2/Manager"),
                                          QStringLiteral("org.freedesktop.UDisks2.Manager"),
                                          QStringLiteral("GetBlockDevices"), noOptions(), m_timeout);
    if (isError(reply) || reply.arguments().isEmpty()) {
        m_error = QStringLiteral("UDisks2 cannot be asked: %1").arg(reply.errorMessage());
        return {};
    }
    const auto devices = qdbus_cast<QList<QDBusObjectPath>>(reply.arguments().constFirst());
    for (const QDBusObjectPath& device : devices) {
        for (QByteArray mountPoint : byteArrays(property(device.path(), kFilesystem, QStringLiteral("MountPoints"), m_timeout))) {
            while (mountPoint.endsWith('\0'))
                mountPoint.chop(1);
            if (QDir::cleanPath(QFile::decodeName(mountPoint)) == m_root)
                return device.path();
        }
    }
    m_error = QStringLiteral("UDisks2 knows no device mounted at %1").arg(m_root);
    return {};
}

bool VolumeEjector::eject()
{
    m_error.clear();
    if (!QDBusConnection::systemBus().isConnected()) {
        m_error = QStringLiteral("the system bus is not reachable");
        return false;
    }
    const QString block = findBlockObject();
    if (block.isEmpty())
        return false;
    const QDBusMessage unmounted = callUDisks(block, kFilesystem, QStringLiteral("Unmount"), noOptions(), m_timeout);
    if (isError(unmounted)) {
        m_error = QStringLiteral("%1 could not be unmounted: %2").arg(m_root, unmounted.errorMessage());
        return false;
    }
    qCInfo(lcEject).noquote() << "unmounted" << m_root << "from" << block;
    const QString drive = property(block, kBlock, QStringLiteral("Drive"), m_timeout).value<QDBusObjectPath>().path();
    QDBusMessage ejected;
    if (!drive.isEmpty() && drive != QLatin1String("/"))
        ejected = callUDisks(drive, kDrive, QStringLiteral("PowerOff"), noOptions(), m_timeout);
    else if (property(block, kLoop, QStringLiteral("BackingFile"), m_timeout).isValid())
        ejected = callUDisks(block, kLoop, QStringLiteral("Delete"), noOptions(), m_timeout);
    else
        return true; // nothing to power off: unmounted is all there is
    if (isError(ejected)) {
        m_error = QStringLiteral("%1 was unmounted but could not be ejected: %2").arg(m_root, ejected.errorMessage());
        return false;
    }
    return true;
}

} // namespace quirepad
