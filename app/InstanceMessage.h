#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QCborMap>
#include <QString>
#include <QStringList>
#include <QtGlobal>

#include <optional>

namespace quirepad {

// What a second start of quirepad asks the running instance to do.
struct InstanceRequest {
    enum class Kind {
        Command, // run a subcommand: arguments are the command line after the program name
        Open, // open files: arguments are paths
    };

    Kind kind = Kind::Command;
    QStringList arguments;
    QString workingDirectory; // of the forwarding process, for relative paths

    friend bool operator==(const InstanceRequest&, const InstanceRequest&) = default;
};

// The running instance's answer: what the forwarding process prints and
// the exit code it ends with.
struct InstanceReply {
    // The exit status when the running instance did not take or did not
    // answer a request (EX_TEMPFAIL): nothing was done by the caller, and
    // trying again later may work.
    static constexpr int unavailableStatus = 75;

    int status = 0;
    QString out;
    QString err;

    friend bool operator==(const InstanceReply&, const InstanceReply&) = default;
};

// Frames exchanged between instances over a local stream socket:
//
//   "QPAD"            4 bytes magic
//   version           quint16, big endian
//   payload length    quint32, big endian
//   payload           one CBOR map
//
// request payload: {"kind": "command"|"open", "args": [string...], "cwd": string}
// reply payload:   {"status": int, "out": string, "err": string}
namespace InstanceMessage {

inline constexpr char magic[4] = { 'Q', 'P', 'A', 'D' };
inline constexpr quint16 protocolVersion = 1;
inline constexpr qsizetype headerSize = 4 + 2 + 4;
inline constexpr quint32 maxPayloadSize = 16 * 1024 * 1024;

// A complete frame, or an empty array when the payload would exceed
// maxPayloadSize.
QByteArray encode(const InstanceRequest& request);
QByteArray encode(const InstanceReply& reply);

// Wraps any payload in a version-1 header (no size check); the building
// block of encode().
QByteArray frame(const QByteArray& payload);

QCborMap toCbor(const InstanceRequest& request);
QCborMap toCbor(const InstanceReply& reply);

// Reads a decoded payload; on a map of the wrong shape answers nullopt and
// sets *error.
std::optional<InstanceRequest> requestFromCbor(const QCborMap& map, QString* error = nullptr);
std::optional<InstanceReply> replyFromCbor(const QCborMap& map, QString* error = nullptr);

} // namespace InstanceMessage

// Cuts a byte stream into frames as the bytes arrive. Buffers at most the
// bytes fed so far (a header's length field never makes it reserve memory).
// The first malformed frame puts the decoder into a failed state for good:
// a stream that lost its framing cannot be resynchronised.
class InstanceMessageDecoder
{
public:
    void feed(QByteArrayView bytes);

    // The next complete message, or nullopt when none is complete yet or
    // the stream is broken (then hasError() tells which).
    std::optional<InstanceRequest> takeRequest();
    std::optional<InstanceReply> takeReply();

    bool hasError() const { return !m_error.isEmpty(); }
    QString errorString() const { return m_error; }

    // Bytes received but not yet returned as a message.
    qsizetype bufferedBytes() const { return m_buffer.size(); }

private:
    void checkHeader();
    std::optional<QCborMap> takePayload();
    void fail(const QString& error);

    QByteArray m_buffer;
    QString m_error;
};

} // namespace quirepad
