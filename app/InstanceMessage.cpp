#include "InstanceMessage.h"

#include <QCborArray>
#include <QCborStreamReader>
#include <QCborValue>
#include <QtEndian>

#include <cstring>
#include <limits>

namespace quirepad {

namespace {

const QString kKindKey = QStringLiteral("kind");
const QString kArgsKey = QStringLiteral("args");
const QString kCwdKey = QStringLiteral("cwd");
const QString kStatusKey = QStringLiteral("status");
const QString kOutKey = QStringLiteral("out");
const QString kErrKey = QStringLiteral("err");

const QString kCommandKind = QStringLiteral("command");
const QString kOpenKind = QStringLiteral("open");

QByteArray encodePayload(const QCborMap& map)
{
    QByteArray payload = map.toCborValue().toCbor();
    if (payload.size() > qsizetype(InstanceMessage::maxPayloadSize))
        return {};
    return InstanceMessage::frame(payload);
}

bool setError(QString* error, const QString& message)
{
    if (error)
        *error = message;
    return false;
}

bool readString(const QCborMap& map, const QString& key, QString* value, QString* error)
{
    const QCborValue field = map.value(key);
    if (!field.isString())
        return setError(error, QStringLiteral("\"%1\" is missing or not a string").arg(key));
    *value = field.toString();
    return true;
}

} // namespace

namespace InstanceMessage {

QByteArray frame(const QByteArray& payload)
{
    QByteArray bytes;
    bytes.reserve(headerSize + payload.size());
    bytes.append(magic, sizeof magic);
    char number[4];
    qToBigEndian<quint16>(protocolVersion, number);
    bytes.append(number, 2);
    qToBigEndian<quint32>(quint32(payload.size()), number);
    bytes.append(number, 4);
    bytes.append(payload);
    return bytes;
}

QCborMap toCbor(const InstanceRequest& request)
{
    QCborMap map;
    map.insert(kKindKey, request.kind == InstanceRequest::Kind::Open ? kOpenKind : kCommandKind);
    map.insert(kArgsKey, QCborArray::fromStringList(request.arguments));
    map.insert(kCwdKey, request.workingDirectory);
    return map;
}

QCborMap toCbor(const InstanceReply& reply)
{
    QCborMap map;
    map.insert(kStatusKey, reply.status);
    map.insert(kOutKey, reply.out);
    map.insert(kErrKey, reply.err);
    return map;
}

QByteArray encode(const InstanceRequest& request)
{
    return encodePayload(toCbor(request));
}

QByteArray encode(const InstanceReply& reply)
{
    return encodePayload(toCbor(reply));
}

std::optional<InstanceRequest> requestFromCbor(const QCborMap& map, QString* error)
{
    InstanceRequest request;

    QString kind;
    if (!readString(map, kKindKey, &kind, error))
        return std::nullopt;
    if (kind == kCommandKind)
        request.kind = InstanceRequest::Kind::Command;
    else if (kind == kOpenKind)
        request.kind = InstanceRequest::Kind::Open;
    else {
        setError(error, QStringLiteral("unknown request kind \"%1\"").arg(kind));
        return std::nullopt;
    }

    const QCborValue args = map.value(kArgsKey);
    if (!args.isArray()) {
        setError(error, QStringLiteral("\"%1\" is missing or not an array").arg(kArgsKey));
        return std::nullopt;
    }
    for (const QCborValue& argument : args.toArray()) {
        if (!argument.isString()) {
            setError(error, QStringLiteral("\"%1\" holds an element that is not a string").arg(kArgsKey));
            return std::nullopt;
        }
        request.arguments.append(argument.toString());
    }

    if (!readString(map, kCwdKey, &request.workingDirectory, error))
        return std::nullopt;
    return request;
}

std::optional<InstanceReply> replyFromCbor(const QCborMap& map, QString* error)
{
    InstanceReply reply;

    const QCborValue status = map.value(kStatusKey);
    if (!status.isInteger()) {
        setError(error, QStringLiteral("\"%1\" is missing or not an integer").arg(kStatusKey));
        return std::nullopt;
    }
    const qint64 value = status.toInteger();
    if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max()) {
        setError(error, QStringLiteral("\"%1\" is out of range").arg(kStatusKey));
        return std::nullopt;
    }
    reply.status = int(value);

    if (!readString(map, kOutKey, &reply.out, error) || !readString(map, kErrKey, &reply.err, error))
        return std::nullopt;
    return reply;
}

} // namespace InstanceMessage

void InstanceMessageDecoder::feed(QByteArrayView bytes)
{
    if (hasError() || bytes.isEmpty())
        return;
    m_buffer.append(bytes.data(), bytes.size());
    checkHeader();
}

std::optional<InstanceRequest> InstanceMessageDecoder::takeRequest()
{
    const std::optional<QCborMap> payload = takePayload();
    if (!payload)
        return std::nullopt;
    QString error;
    std::optional<InstanceRequest> request = InstanceMessage::requestFromCbor(*payload, &error);
    if (!request)
        fail(QStringLiteral("malformed request: %1").arg(error));
    return request;
}

std::optional<InstanceReply> InstanceMessageDecoder::takeReply()
{
    const std::optional<QCborMap> payload = takePayload();
    if (!payload)
        return std::nullopt;
    QString error;
    std::optional<InstanceReply> reply = InstanceMessage::replyFromCbor(*payload, &error);
    if (!reply)
        fail(QStringLiteral("malformed reply: %1").arg(error));
    return reply;
}

// Validates as much of the header at the front of the buffer as has
// arrived, so garbage is refused with its first bytes rather than after a
// full frame's worth of them.
void InstanceMessageDecoder::checkHeader()
{
    const char* data = m_buffer.constData();
    const qsizetype size = m_buffer.size();

    const qsizetype magicBytes = qMin<qsizetype>(size, sizeof InstanceMessage::magic);
    if (std::memcmp(data, InstanceMessage::magic, size_t(magicBytes)) != 0) {
        fail(QStringLiteral("not a quirepad message (wrong magic)"));
        return;
    }
    if (size >= 6) {
        const quint16 version = qFromBigEndian<quint16>(data + 4);
        if (version != InstanceMessage::protocolVersion) {
            fail(QStringLiteral("unsupported protocol version %1").arg(version));
            return;
        }
    }
    if (size >= InstanceMessage::headerSize) {
        const quint32 length = qFromBigEndian<quint32>(data + 6);
        if (length > InstanceMessage::maxPayloadSize)
            fail(QStringLiteral("payload of %1 bytes exceeds the limit of %2 bytes")
                     .arg(length)
                     .arg(InstanceMessage::maxPayloadSize));
    }
}

std::optional<QCborMap> InstanceMessageDecoder::takePayload()
{
    if (hasError() || m_buffer.size() < InstanceMessage::headerSize)
        return std::nullopt;
    const qsizetype length = qFromBigEndian<quint32>(m_buffer.constData() + 6);
    if (m_buffer.size() < InstanceMessage::headerSize + length)
        return std::nullopt;

    const QByteArray payload = m_buffer.mid(InstanceMessage::headerSize, length);
    m_buffer.remove(0, InstanceMessage::headerSize + length);
    if (!m_buffer.isEmpty())
        checkHeader();

    QCborStreamReader reader(payload);
    const QCborValue value = QCborValue::fromCbor(reader);
    if (reader.lastError() != QCborError::NoError) {
        fail(QStringLiteral("malformed CBOR payload: %1").arg(reader.lastError().toString()));
        return std::nullopt;
    }
    if (reader.currentOffset() != payload.size()) {
        fail(QStringLiteral("trailing bytes after the CBOR payload"));
        return std::nullopt;
    }
    if (!value.isMap()) {
        fail(QStringLiteral("payload is not a CBOR map"));
        return std::nullopt;
    }
    return value.toMap();
}

void InstanceMessageDecoder::fail(const QString& error)
{
    if (hasError())
        return;
    m_error = error;
    m_buffer.clear();
    m_buffer.squeeze();
}

} // namespace quirepad
