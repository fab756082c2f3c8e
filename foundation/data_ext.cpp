#include "foundation/data_ext.h"

#include <QCryptographicHash>
#include <QStringDecoder>

#include <algorithm>
#include <limits>

#define ZLIB_CONST
#include <zlib.h>

namespace quirepad {

namespace {

constexpr int kZlibWindowBits = 15;
constexpr int kGzipWindowBits = kZlibWindowBits + 16;
constexpr int kAutoDetectWindowBits = kZlibWindowBits + 32;
constexpr int kDefaultMemLevel = 8;

constexpr qsizetype kDeflateChunk = 16384;
// The inflate buffer grows by half the input size; tiny inputs would make
// that zero (or a byte at a time), so it never grows by less than this.
constexpr qsizetype kMinInflateGrowth = 1024;

constexpr qsizetype kMaxZlibCount = std::numeric_limits<uInt>::max();

// Owns one z_stream from a successful init until it is ended, on every path.
class ZStream
{
public:
    enum class Mode { Inflate, Deflate };

    explicit ZStream(Mode mode)
        : m_mode(mode)
    {
    }
    ~ZStream() { end(); }
    ZStream(const ZStream&) = delete;
    ZStream& operator=(const ZStream&) = delete;

    bool init(int windowBits)
    {
        const int status = m_mode == Mode::Inflate
            ? inflateInit2(&m_stream, windowBits)
            : deflateInit2(&m_stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, windowBits, kDefaultMemLevel,
                           Z_DEFAULT_STRATEGY);
        m_open = status == Z_OK;
        return m_open;
    }

    // The result of inflateEnd/deflateEnd; Z_OK when there was nothing to end.
    int end()
    {
        if (!m_open)
            return Z_OK;
        m_open = false;
        return m_mode == Mode::Inflate ? inflateEnd(&m_stream) : deflateEnd(&m_stream);
    }

    z_stream& get() { return m_stream; }

private:
    z_stream m_stream{};
    Mode m_mode;
    bool m_open = false;
};

// zlib counts in uInt, so buffers beyond 4 GiB are handed over in slices.
uInt zlibCount(qsizetype count)
{
    return uInt(std::min(count, kMaxZlibCount));
}

qsizetype consumedInput(const z_stream& stream, const QByteArray& input)
{
    return qsizetype(reinterpret_cast<const char*>(stream.next_in) - input.constData());
}

void refillInput(z_stream& stream, const QByteArray& input)
{
    if (stream.avail_in == 0)
        stream.avail_in = zlibCount(input.size() - consumedInput(stream, input));
}

void pointOutput(z_stream& stream, QByteArray& output, qsizetype produced)
{
    stream.next_out = reinterpret_cast<Bytef*>(output.data() + produced);
    stream.avail_out = zlibCount(output.size() - produced);
}

std::optional<QByteArray> inflateData(const QByteArray& data, int windowBits)
{
    if (data.isEmpty())
        return data;

    ZStream stream(ZStream::Mode::Inflate);
    if (!stream.init(windowBits))
        return std::nullopt;
    z_stream& zs = stream.get();
    zs.next_in = reinterpret_cast<const Bytef*>(data.constData());

    const qsizetype growth = std::max(data.size() / 2, kMinInflateGrowth);
    QByteArray output(data.size() + data.size() / 2, Qt::Uninitialized);
    qsizetype produced = 0;
    bool finished = false;

    for (;;) {
        if (produced >= output.size())
            output.resize(output.size() + growth);
        refillInput(zs, data);
        pointOutput(zs, output, produced);
        const uInt inBefore = zs.avail_in;
        const uInt outBefore = zs.avail_out;

        const int status = inflate(&zs, Z_SYNC_FLUSH);
        produced += outBefore - zs.avail_out;
        if (status == Z_STREAM_END) {
            finished = true;
            break;
        }
        // Z_BUF_ERROR here means the input ran out before the stream ended.
        if (status != Z_OK)
            break;
        if (zs.avail_in == inBefore && zs.avail_out == outBefore)
            break;
    }

    if (stream.end() != Z_OK || !finished)
        return std::nullopt;
    output.truncate(produced);
    return output;
}

std::optional<QByteArray> deflateData(const QByteArray& data, int windowBits)
{
    if (data.isEmpty())
        return data;

    ZStream stream(ZStream::Mode::Deflate);
    if (!stream.init(windowBits))
        return std::nullopt;
    z_stream& zs = stream.get();
    zs.next_in = reinterpret_cast<const Bytef*>(data.constData());

    QByteArray output(kDeflateChunk, Qt::Uninitialized);
    qsizetype produced = 0;

    for (;;) {
        if (produced >= output.size())
            output.resize(output.size() + kDeflateChunk);
        refillInput(zs, data);
        pointOutput(zs, output, produced);
        const bool lastSlice = consumedInput(zs, data) + qsizetype(zs.avail_in) == data.size();
        const uInt outBefore = zs.avail_out;

        const int status = deflate(&zs, lastSlice ? Z_FINISH : Z_NO_FLUSH);
        produced += outBefore - zs.avail_out;
        if (status == Z_STREAM_END)
            break;
        // With fresh output space deflate always makes progress; anything
        // else is a broken stream.
        if (status != Z_OK)
            return std::nullopt;
    }

    if (stream.end() != Z_OK)
        return std::nullopt;
    output.truncate(produced);
    return output;
}

} // namespace

std::optional<QByteArray> zlibInflate(const QByteArray& data)
{
    return inflateData(data, kZlibWindowBits);
}

std::optional<QByteArray> gzipInflate(const QByteArray& data)
{
    return inflateData(data, kAutoDetectWindowBits);
}

std::optional<QByteArray> zlibDeflate(const QByteArray& data)
{
    return deflateData(data, kZlibWindowBits);
}

std::optional<QByteArray> gzipDeflate(const QByteArray& data)
{
    return deflateData(data, kGzipWindowBits);
}

QString md5HexDigest(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

QString utf8String(const QByteArray& data)
{
    if (data.isEmpty())
        return QStringLiteral("");
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(data);
    if (decoder.hasError())
        return {};
    return text;
}

} // namespace quirepad
