#include "store/SettingsFileStore.h"

#include "store/DestinationSchema.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

namespace quirepad {

namespace {

QString kindName(AttributeKind kind)
{
    switch (kind) {
    case AttributeKind::String:
        return QStringLiteral("string");
    case AttributeKind::Integer:
        return QStringLiteral("integer");
    case AttributeKind::Boolean:
        return QStringLiteral("boolean");
    case AttributeKind::Dictionary:
        return QStringLiteral("dictionary");
    case AttributeKind::Image:
    case AttributeKind::Opaque:
        return QStringLiteral("data");
    }
    return {};
}

QString encode(AttributeKind kind, const QVariant& value)
{
    switch (kind) {
    case AttributeKind::Boolean:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case AttributeKind::Dictionary:
        return QString::fromUtf8(QJsonDocument(QJsonObject::fromVariantMap(value.toMap())).toJson(QJsonDocument::Compact));
    case AttributeKind::Image:
    case AttributeKind::Opaque:
        return QString::fromLatin1(value.toByteArray().toBase64());
    default:
        return value.toString();
    }
}

std::optional<QVariant> decode(AttributeKind kind, const QString& text)
{
    switch (kind) {
    case AttributeKind::String:
        return QVariant(text);
    case AttributeKind::Integer: {
        bool ok = false;
        const qint64 n = text.toLongLong(&ok);
        return ok ? std::optional<QVariant>(n) : std::nullopt;
    }
    case AttributeKind::Boolean:
        if (text == QLatin1String("true"))
            return QVariant(true);
        if (text == QLatin1String("false"))
            return QVariant(false);
        return std::nullopt;
    case AttributeKind::Dictionary: {
        const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8());
        return doc.isObject() ? std::optional<QVariant>(doc.object().toVariantMap()) : std::nullopt;
    }
    case AttributeKind::Image:
    case AttributeKind::Opaque: {
        const auto result = QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
        return result ? std::optional<QVariant>(*result) : std::nullopt;
    }
    }
    return std::nullopt;
}

} // namespace

SettingsFileStore::SettingsFileStore(const QString& path, QList<StoredRecord> records)
    : m_path(path)
    , m_records(std::move(records))
{
}

std::unique_ptr<SettingsFileStore> SettingsFileStore::open(const QString& path, QString* error)
{
    QList<StoredRecord> records;
    if (QFileInfo::exists(path)) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
            return nullptr;
        }
        QString parseError;
        std::optional<QList<StoredRecord>> parsed = parse(file.readAll(), &parseError);
        if (!parsed) {
            *error = QStringLiteral("%1 is not a Quirepad settings file (%2)").arg(path, parseError);
            return nullptr;
        }
        records = std::move(*parsed);
    }
    return std::unique_ptr<SettingsFileStore>(new SettingsFileStore(path, std::move(records)));
}

std::optional<QList<StoredRecord>> SettingsFileStore::loadAll(QString*)
{
    return m_records;
}

bool SettingsFileStore::save(const SaveRequest& request, QList<qint64>* insertedRowIds, QString* error)
{
    QList<StoredRecord> all = request.all;
    qint64 next = 1;
    for (const StoredRecord& record : std::as_const(all))
        next = qMax(next, record.rowId + 1);
    QList<qint64> ids;
    for (StoredRecord& record : all) {
        if (record.rowId == 0) {
            record.rowId = next++;
            ids << record.rowId;
        }
    }
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) || file.write(serialize(all)) < 0 || !file.commit()) {
        *error = QStringLiteral("cannot write %1: %2").arg(m_path, file.errorString());
        return false;
    }
    m_records = all;
    if (insertedRowIds)
        *insertedRowIds = ids;
    return true;
}

QByteArray SettingsFileStore::serialize(const QList<StoredRecord>& records)
{
    QByteArray data;
    QXmlStreamWriter xml(&data);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("quirepad-settings"));
    xml.writeAttribute(QStringLiteral("version"), QString::number(formatVersion));
    for (const StoredRecord& record : records) {
        xml.writeStartElement(QStringLiteral("destination"));
        for (const AttributeDefinition& attribute : DestinationSchema::attributes()) {
            const QVariant value = record.values.value(attribute.name);
            if (!value.isValid())
                continue;
            xml.writeStartElement(QStringLiteral("attribute"));
            xml.writeAttribute(QStringLiteral("name"), attribute.name);
            xml.writeAttribute(QStringLiteral("kind"), kindName(attribute.kind));
            xml.writeCharacters(encode(attribute.kind, value));
            xml.writeEndElement();
        }
        xml.writeEndElement();
    }
    xml.writeEndElement();
    xml.writeEndDocument();
    return data;
}

std::optional<QList<StoredRecord>> SettingsFileStore::parse(const QByteArray& data, QString* error)
{
    QXmlStreamReader xml(data);
    QList<StoredRecord> records;
    auto fail = [&](const QString& message) -> std::optional<QList<StoredRecord>> {
        *error = message;
        return std::nullopt;
    };
    if (!xml.readNextStartElement() || xml.name() != QLatin1String("quirepad-settings"))
        return fail(xml.hasError() ? xml.errorString() : QStringLiteral("no quirepad-settings document"));
    bool versionOk = false;
    const int version = xml.attributes().value(QStringLiteral("version")).toInt(&versionOk);
    if (!versionOk || version < 1)
        return fail(QStringLiteral("no format version"));
    if (version > formatVersion)
        return fail(QStringLiteral("written by a newer version (format %1)").arg(version));

    while (xml.readNextStartElement()) {
        if (xml.name() != QLatin1String("destination"))
            return fail(QStringLiteral("unexpected element <%1>").arg(xml.name().toString()));
        StoredRecord record;
        record.rowId = records.size() + 1;
        while (xml.readNextStartElement()) {
            if (xml.name() != QLatin1String("attribute"))
                return fail(QStringLiteral("unexpected element <%1>").arg(xml.name().toString()));
            const QString name = xml.attributes().value(QStringLiteral("name")).toString();
            const QString kind = xml.attributes().value(QStringLiteral("kind")).toString();
            const QString text = xml.readElementText();
            const std::optional<AttributeKind> expected = DestinationSchema::kindOf(name);
            if (!expected)
                continue; // an attribute of a later version: skipped, not fatal
            if (kind != kindName(*expected))
                return fail(QStringLiteral("attribute %1 has kind %2").arg(name, kind));
            const std::optional<QVariant> value = decode(*expected, text);
            if (!value)
                return fail(QStringLiteral("attribute %1 has an unreadable value").arg(name));
            record.values.insert(name, *value);
        }
        records << record;
    }
    if (xml.hasError())
        return fail(xml.errorString());
    return records;
}

} // namespace quirepad
