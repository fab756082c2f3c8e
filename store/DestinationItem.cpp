#include "store/DestinationItem.h"

#include "foundation/apps.h"
#include "foundation/identifiers.h"
#include "store/DestinationSchema.h"
#include "store/ManagedObjectContext.h"
#include "store/Predicate.h"

#include <QDataStream>
#include <QIODevice>
#include <QLoggingCategory>
#include <QPixmap>
#include <QUrl>

// The store's resources live in a static library: register them before the
// first use (Q_INIT_RESOURCE must be called outside any namespace).
static void registerStoreResources()
{
    static const bool registered = [] {
        Q_INIT_RESOURCE(store);
        return true;
    }();
    Q_UNUSED(registered)
}

namespace quirepad {

DestinationItem::DestinationItem(ManagedObjectContext* context, qint64 rowId, const QVariantMap& values)
    : m_context(context)
    , m_rowId(rowId)
    , m_values(values)
{
    if (rowId == 0)
        m_temporaryId = generateUUID();
}

QVariant DestinationItem::value(const QString& keyPath) const
{
    return valueForKeyPath(m_values, keyPath);
}

bool DestinationItem::setValue(const QString& keyPath, const QVariant& value)
{
    if (keyPath.startsWith(QLatin1String("config."))) {
        QVariantMap config = m_values.value(QStringLiteral("config")).toMap();
        const QString key = keyPath.mid(7);
        if (key.isEmpty())
            return false;
        if (value.isValid() && !value.isNull())
            config.insert(key, value);
        else
            config.remove(key);
        m_values.insert(QStringLiteral("config"), config);
        markChanged(QStringLiteral("config"));
        return true;
    }
    const std::optional<AttributeKind> kind = DestinationSchema::kindOf(keyPath);
    if (!kind) {
        qWarning().noquote() << "Destination has no attribute" << keyPath;
        return false;
    }
    const QVariant stored = DestinationSchema::normalized(*kind, value);
    if (stored.isValid())
        m_values.insert(keyPath, stored);
    else
        m_values.remove(keyPath);
    markChanged(keyPath);
    return true;
}

void DestinationItem::markChanged(const QString& key)
{
    m_dirty = true;
    if (m_context)
        m_context->noteChange();
    emit valueChanged(key);
    if (key == QLatin1String("image") || key == QLatin1String("type") || key == QLatin1String("config"))
        emit iconChanged();
}

qint64 DestinationItem::integerForKey(const QString& key) const
{
    return value(key).toLongLong();
}

void DestinationItem::setInteger(qint64 number, const QString& key)
{
    setValue(key, number);
}

qint64 DestinationItem::integer64ForKey(const QString& key) const
{
    return value(key).toLongLong();
}

void DestinationItem::setInteger64(qint64 number, const QString& key)
{
    setValue(key, number);
}

bool DestinationItem::boolForKey(const QString& key) const
{
    return value(key).toBool();
}

void DestinationItem::setBool(bool flag, const QString& key)
{
    setValue(key, flag);
}

void DestinationItem::archiveObject(const QVariant& object, const QString& key)
{
    if (!object.isValid()) {
        setValue(key, QVariant());
        return;
    }
    QByteArray data;
    QDataStream stream(&data, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_4);
    stream << object;
    setValue(key, data);
}

QVariant DestinationItem::unarchiveObjectForKey(const QString& key) const
{
    const QByteArray data = value(key).toByteArray();
    if (data.isEmpty())
        return {};
    QDataStream stream(data);
    stream.setVersion(QDataStream::Qt_6_4);
    QVariant object;
    stream >> object;
    return stream.status() == QDataStream::Ok ? object : QVariant();
}

QString DestinationItem::objectIDString() const
{
    if (m_rowId > 0)
        return QStringLiteral("quirepad-store://Destination/p%1").arg(m_rowId);
    return QStringLiteral("quirepad-store://Destination/t") + m_temporaryId;
}

QIcon DestinationItem::icon() const
{
    const QByteArray image = value(QStringLiteral("image")).toByteArray();
    if (!image.isEmpty()) {
        QPixmap pixmap;
        if (pixmap.loadFromData(image, "PNG"))
            return QIcon(pixmap);
    }
    const QString kind = type();
    const QVariantMap cfg = config();
    auto themed = [](std::initializer_list<const char*> names) {
        for (const char* name : names) {
            const QIcon icon = QIcon::fromTheme(QString::fromLatin1(name));
            if (!icon.isNull())
                return icon;
        }
        return QIcon();
    };
    if (kind == QLatin1String("X"))
        return themed({"system-run", "application-x-executable", "applications-system"});
    if (kind == QLatin1String("F")) {
        const QString dir = QUrl(cfg.value(QStringLiteral("output_dir")).toString()).toLocalFile();
        return file_icon(dir);
    }
    if (kind == QLatin1String("D"))
        return themed({"dropbox", "folder-remote", "folder-cloud", "folder"});
    if (kind == QLatin1String("I"))
        return themed({"multimedia-player", "audio-x-generic"});
    if (kind == QLatin1String("K")) {
        registerStoreResources();
        return QIcon(QStringLiteral(":/quirepad/icons/ereader.svg"));
    }
    if (kind == QLatin1String("B"))
        return themed({"calibre-gui", "accessories-dictionary", "x-office-document"});
    if (kind == QLatin1String("O"))
        return app_icon(cfg.value(QStringLiteral("appid")).toString());
    return {};
}

} // namespace quirepad
