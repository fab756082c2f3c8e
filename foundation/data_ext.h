#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace quirepad {

// Decompression. Empty input comes back empty. Anything short of a complete,
// well-formed stream (truncated, corrupt, wrong container) gives nullopt,
// never a partial result.
// zlibInflate: zlib container only (RFC 1950).
std::optional<QByteArray> zlibInflate(const QByteArray& data);
// gzipInflate: gzip (RFC 1952) or zlib, told apart by the header.
std::optional<QByteArray> gzipInflate(const QByteArray& data);

// Compression at the default level. Empty input comes back empty.
// zlibDeflate: zlib container. gzipDeflate: gzip container with a minimal
// header (no file name, no time stamp).
std::optional<QByteArray> zlibDeflate(const QByteArray& data);
std::optional<QByteArray> gzipDeflate(const QByteArray& data);

// MD5 of the bytes as 32 lower-case hex digits.
QString md5HexDigest(const QByteArray& data);

// The bytes read as UTF-8; a null string when they are not valid UTF-8.
QString utf8String(const QByteArray& data);

} // namespace quirepad
