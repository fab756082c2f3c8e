#include "store/DestinationSchema.h"

#include <QBuffer>
#include <QImage>

namespace quirepad {

const std::vector<AttributeDefinition>& DestinationSchema::attributes()
{
    static const std::vector<AttributeDefinition> definitions{
        {QStringLiteral("recid"), AttributeKind::String},
        {QStringLiteral("name"), AttributeKind::String},
        {QStringLiteral("type"), AttributeKind::String},
        {QStringLiteral("order"), AttributeKind::Integer},
        {QStringLiteral("in_menu"), AttributeKind::Boolean},
        {QStringLiteral("is_system"), AttributeKind::Boolean},
        {QStringLiteral("name_pattern"), AttributeKind::String},
        {QStringLiteral("do_compress"), AttributeKind::Boolean},
        {QStringLiteral("do_overwrite"), AttributeKind::Boolean},
        {QStringLiteral("tranform"), AttributeKind::String},
        {QStringLiteral("config"), AttributeKind::Dictionary},
        {QStringLiteral("image"), AttributeKind::Image},
        {QStringLiteral("rule"), AttributeKind::Opaque},
        {QStringLiteral("keywords"), AttributeKind::Opaque},
        {QStringLiteral("category"), AttributeKind::Opaque},
        {QStringLiteral("handler_list"), AttributeKind::Opaque},
    };
    return definitions;
}

std::optional<AttributeKind> DestinationSchema::kindOf(const QString& attribute)
{
    for (const AttributeDefinition& definition : attributes())
        if (definition.name == attribute)
            return definition.kind;
    return std::nullopt;
}

const QStringList& DestinationSchema::transferredAttributes()
{
    static const QStringList names{QStringLiteral("recid"),    QStringLiteral("type"),
                                   QStringLiteral("order"),    QStringLiteral("name"),
                                   QStringLiteral("rule"),     QStringLiteral("keywords"),
                                   QStringLiteral("category"), QStringLiteral("handler_list")};
    return names;
}

QVariant DestinationSchema::normalized(AttributeKind kind, const QVariant& value)
{
    if (!value.isValid() || value.isNull())
        return {};
    switch (kind) {
    case AttributeKind::String:
        return value.canConvert<QString>() ? QVariant(value.toString()) : QVariant();
    case AttributeKind::Integer: {
        bool ok = false;
        const qint64 number = value.toLongLong(&ok);
        if (!ok && value.typeId() == QMetaType::Bool)
            return qint64(value.toBool());
        return ok ? QVariant(number) : QVariant();
    }
    case AttributeKind::Boolean:
        if (value.typeId() == QMetaType::QString) {
            const QString text = value.toString().toLower();
            if (text == QLatin1String("yes") || text == QLatin1String("true") || text == QLatin1String("1"))
                return true;
            if (text == QLatin1String("no") || text == QLatin1String("false") || text == QLatin1String("0"))
                return false;
            return {};
        }
        return value.toBool();
    case AttributeKind::Dictionary:
        return value.typeId() == QMetaType::QVariantMap ? value : QVariant();
    case AttributeKind::Image: {
        if (value.typeId() == QMetaType::QByteArray)
            return value;
        if (value.canConvert<QImage>()) {
            QByteArray png;
            QBuffer buffer(&png);
            buffer.open(QIODevice::WriteOnly);
            if (value.value<QImage>().save(&buffer, "PNG"))
                return png;
        }
        return {};
    }
    case AttributeKind::Opaque:
        if (value.typeId() == QMetaType::QByteArray)
            return value;
        return value.canConvert<QString>() ? QVariant(value.toString().toUtf8()) : QVariant();
    }
    return {};
}

} // namespace quirepad
