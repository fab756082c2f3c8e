#include "ScriptingService.h"

#include "foundation/PlistReader.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcCapture)

namespace quirepad {

PageUrlRequest parsePageUrl(const QString& pageUrl)
{
    PageUrlRequest request;
    const qsizetype tab = pageUrl.indexOf(u'\t');
    QString address = pageUrl;
    if (tab >= 1) {
        address = pageUrl.left(tab);
        const QByteArray archived = QByteArray::fromBase64(pageUrl.mid(tab + 1).toLatin1());
        const std::optional<QVariant> value = PlistReader::fromData(archived);
        if (value && value->typeId() == QMetaType::QVariantMap)
            request.parameters = value->toMap();
    }
    const QUrl url(address, QUrl::StrictMode);
    if (url.isValid() && !url.scheme().isEmpty())
        request.url = url;
    return request;
}

ScriptingService::ScriptingService(Capture capture, QObject* parent)
    : QObject(parent)
    , m_capture(std::move(capture))
{
}

bool ScriptingService::registerOnSessionBus()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        qCInfo(lcCapture) << "no session bus: the scripting interface is not offered";
        return false;
    }
    if (!bus.registerObject(QString::fromLatin1(ObjectPath), this, QDBusConnection::ExportScriptableSlots | QDBusConnection::ExportAllSlots)) {
        qCWarning(lcCapture) << "cannot offer the scripting interface:" << bus.lastError().message();
        return false;
    }
    if (!bus.registerService(QString::fromLatin1(ServiceName))) {
        qCWarning(lcCapture) << "cannot take the bus name" << ServiceName << bus.lastError().message();
        bus.unregisterObject(QString::fromLatin1(ObjectPath));
        return false;
    }
    return true;
}

QString ScriptingService::PrintWebView(const QString& page_url)
{
    const PageUrlRequest request = parsePageUrl(page_url);
    if (!request.url.isValid())
        return QString();
    const QString path = m_capture(request.url, request.parameters);
    return path.isEmpty() ? QString() : QUrl::fromLocalFile(path).toString();
}

} // namespace quirepad
