// libFuzzer target for HTTPRequestParser.
//
// Input layout: byte 0 picks the limits, byte 1 seeds the chunk boundaries,
// the rest is what a client sent. The same bytes go through three parsers
// (one chunk, random chunks, byte by byte for short inputs) and each result
// is checked against what the parser promises and against the others: where
// the head ends, what is refused and why, what lands in the body, that a
// finished parser ignores further chunks. The static helpers are checked on
// every line of the input too.
//
// Built and run by tests/fuzz/run_fuzz.sh.

#include "network/HTTPRequestParser.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

using quirepad::HTTPHead;
using quirepad::HTTPLimits;
using quirepad::HTTPRequestParser;
using State = HTTPRequestParser::State;

namespace {

[[noreturn]] void fail(const char* what, const QByteArray& input)
{
    std::fprintf(stderr, "invariant broken: %s\ninput (%lld bytes): %s\n", what, static_cast<long long>(input.size()),
                 input.left(512).toPercentEncoding(" :/\r\n").constData());
    std::abort();
}

#define CHECK(cond) \
    do { \
        if (!(cond)) \
            fail(#cond, input); \
    } while (0)

bool isTerminal(State state)
{
    return state != State::ReadingHead && state != State::ReadingBody;
}

// Index just past the first blank line of data (a line feed, any carriage
// returns, a line feed), or -1. Written apart from the parser's own scan.
qsizetype referenceHeadEnd(const QByteArray& data)
{
    qsizetype lastLineFeed = -1;
    for (qsizetype i = 0; i < data.size(); ++i) {
        if (data[i] != '\n')
            continue;
        if (lastLineFeed >= 0) {
            bool onlyReturns = true;
            for (qsizetype j = lastLineFeed + 1; j < i; ++j)
                onlyReturns = onlyReturns && data[j] == '\r';
            if (onlyReturns)
                return i + 1;
        }
        lastLineFeed = i;
    }
    return -1;
}

// What the head should hold for header bytes, or nullopt-like "bad" when a
// request line has fewer than three words: lines split at CR and LF, a line
// whose first word is GET, POST or OPTIONS is the request line (the last one
// wins), any other line with ": " is a header under its upper-cased name with
// the text between the first and second ": " as its value.
struct ExpectedHead {
    bool badRequestLine = false;
    HTTPHead head;
};

ExpectedHead referenceHead(const QByteArray& header)
{
    ExpectedHead expected;
    const QString text = QString::fromLatin1(header);
    QStringList lines;
    QString current;
    for (const QChar ch : text) {
        if (ch == u'\r' || ch == u'\n') {
            if (!current.isEmpty())
                lines << current;
            current.clear();
        } else {
            current += ch;
        }
    }
    if (!current.isEmpty())
        lines << current;
    for (const QString& line : lines) {
        const qsizetype space = line.indexOf(u' ');
        const QString first = space < 0 ? line : line.left(space);
        if (first == u"GET" || first == u"POST" || first == u"OPTIONS") {
            const QStringList words = line.split(u' ');
            if (words.size() < 3) {
                expected.badRequestLine = true;
                continue;
            }
            expected.head.insert(QStringLiteral("TYPE"), words[0]);
            expected.head.insert(QStringLiteral("URL_PATH"), words[1]);
            expected.head.insert(QStringLiteral("PROTOCOL"), words[2]);
            continue;
        }
        const qsizetype colon = line.indexOf(QLatin1String(": "));
        if (colon < 0)
            continue;
        const qsizetype next = line.indexOf(QLatin1String(": "), colon + 2);
        const QString value = next < 0 ? line.mid(colon + 2) : line.mid(colon + 2, next - colon - 2);
        const QString key = line.left(colon).toUpper();
        if (key != u"TYPE" && key != u"URL_PATH" && key != u"PROTOCOL" && key != u"URL")
            expected.head.insert(key, value);
    }
    return expected;
}

struct Run {
    State state = State::ReadingHead;
    qsizetype consumed = 0; // bytes fed up to and including the chunk that ended it
    HTTPHead head;
    QByteArray body;
    qint64 expectedLength = 0;
};

// Feeds data in the given chunk sizes and checks what must hold after every
// single feed.
Run feedInChunks(const QByteArray& input, const QByteArray& data, const HTTPLimits& limits,
                 const std::vector<qsizetype>& sizes)
{
    HTTPRequestParser parser(limits);
    Run run;
    qsizetype pos = 0;
    for (const qsizetype size : sizes) {
        const QByteArray chunk = data.mid(pos, size);
        pos += chunk.size();
        const State before = parser.state();
        const HTTPHead headBefore = parser.head();
        const QByteArray bodyBefore = parser.body();
        const State after = parser.feed(chunk);
        CHECK(after == parser.state());
        if (isTerminal(before)) {
            // Finished: nothing changes any more.
            CHECK(after == before);
            CHECK(parser.head() == headBefore);
            CHECK(parser.body() == bodyBefore);
            continue;
        }
        // Never more body than the limit while still reading.
        if (after == State::ReadingBody) {
            CHECK(parser.body().size() <= limits.maxBodyBytes);
            CHECK(parser.body().size() < parser.expectedLength());
            CHECK(parser.expectedLength() <= limits.maxBodyBytes);
        }
        if (after == State::ReadingHead) {
            CHECK(pos <= limits.maxHeadBytes);
            CHECK(parser.head().isEmpty());
            CHECK(parser.body().isEmpty());
        }
        if (!isTerminal(before) && isTerminal(after))
            run.consumed = pos;
    }
    if (!isTerminal(parser.state()))
        run.consumed = pos;
    CHECK(pos == data.size());
    run.state = parser.state();
    run.head = parser.head();
    run.body = parser.body();
    run.expectedLength = parser.expectedLength();
    return run;
}

void checkRun(const QByteArray& input, const QByteArray& data, const HTTPLimits& limits, const Run& run)
{
    CHECK(run.expectedLength >= 0);
    const qsizetype end = referenceHeadEnd(data);
    const qsizetype headBytes = end < 0 ? data.size() : end;

    // The head limit, whatever the chunks.
    CHECK((run.state == State::HeadTooLarge) == (headBytes > limits.maxHeadBytes));
    CHECK((run.state == State::ReadingHead) == (end < 0 && headBytes <= limits.maxHeadBytes));
    if (run.state == State::HeadTooLarge || run.state == State::ReadingHead) {
        CHECK(run.head.isEmpty());
        CHECK(run.body.isEmpty());
        CHECK(run.expectedLength == 0);
        return;
    }
    CHECK(end >= 0);

    // The head: every line as the parser documents it.
    const ExpectedHead expected = referenceHead(data.left(end));
    if (expected.badRequestLine) {
        CHECK(run.state == State::BadRequestLine);
    } else {
        CHECK(run.state != State::BadRequestLine);
    }
    HTTPHead head = run.head;
    if (run.state == State::Complete) {
        CHECK(head.value(QStringLiteral("URL"))
              == QStringLiteral("http://") + head.value(QStringLiteral("HOST")) + head.value(QStringLiteral("URL_PATH")));
        if (!expected.head.contains(QStringLiteral("URL")))
            head.remove(QStringLiteral("URL"));
        else
            head.insert(QStringLiteral("URL"), expected.head.value(QStringLiteral("URL")));
    }
    CHECK(head == expected.head);
    for (auto it = run.head.cbegin(); it != run.head.cend(); ++it) {
        CHECK(it.key() == it.key().toUpper());
        CHECK(!it.key().contains(u'\n') && !it.key().contains(u'\r'));
        CHECK(!it.value().contains(u'\n') && !it.value().contains(u'\r'));
    }

    // The body: exactly the bytes after the head, up to the chunk that ended
    // the request.
    CHECK(run.consumed >= end);
    CHECK(run.body == data.mid(end, run.consumed - end));

    switch (run.state) {
    case State::Complete:
        CHECK(run.body.size() >= run.expectedLength);
        CHECK(run.expectedLength <= limits.maxBodyBytes);
        CHECK(run.body.size() <= limits.maxBodyBytes);
        break;
    case State::ReadingBody:
        CHECK(run.body.size() < run.expectedLength);
        CHECK(run.consumed == data.size());
        break;
    case State::BodyTooLarge:
        CHECK(run.expectedLength > limits.maxBodyBytes || run.body.size() > limits.maxBodyBytes);
        break;
    case State::BadRequestLine:
        break;
    default:
        CHECK(false);
    }
}

void checkHelpers(const QByteArray& input, const QByteArray& data)
{
    // headEnd on the whole input agrees with the reference, and its line feed
    // count carries across a split anywhere.
    int nl = 0;
    const qsizetype whole = HTTPRequestParser::headEnd(data, nl);
    CHECK(whole == referenceHeadEnd(data));
    CHECK(nl >= 0 && nl <= 1);
    if (!data.isEmpty()) {
        const qsizetype cut = qsizetype(quint8(data[0])) % (data.size() + 1);
        int carried = 0;
        qsizetype split = HTTPRequestParser::headEnd(data.left(cut), carried);
        if (split < 0) {
            split = HTTPRequestParser::headEnd(data.mid(cut), carried);
            if (split >= 0)
                split += cut;
        }
        CHECK(split == whole);
    }

    const QString text = QString::fromLatin1(data);
    for (const QString& line : text.split(u'\n')) {
        const QStringList request = HTTPRequestParser::matchRequestLine(line);
        if (!request.isEmpty()) {
            CHECK(request.join(u' ') == line);
            CHECK(request.first() == u"GET" || request.first() == u"POST" || request.first() == u"OPTIONS");
        } else {
            const QString first = line.section(u' ', 0, 0);
            CHECK(first != u"GET" && first != u"POST" && first != u"OPTIONS");
        }
        const QStringList header = HTTPRequestParser::matchHeaderLine(line);
        if (line.contains(QLatin1String(": "))) {
            CHECK(header.size() >= 2);
            CHECK(header.join(QLatin1String(": ")) == line);
        } else {
            CHECK(header.isEmpty());
        }
    }
}

HTTPLimits limitsFor(quint8 selector)
{
    HTTPLimits limits;
    if (selector & 0x80)
        return limits; // the server's own: 64 KiB head, 16 MiB body
    // Small limits so that both refusals are reachable with short inputs.
    limits.maxHeadBytes = 1 + (selector & 0x0f) * 16;
    limits.maxBodyBytes = ((selector >> 4) & 0x07) * 8;
    return limits;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    if (size < 2)
        return 0;
    const QByteArray input(reinterpret_cast<const char*>(bytes), qsizetype(size));
    const HTTPLimits limits = limitsFor(bytes[0]);
    const QByteArray data = input.mid(2);

    checkHelpers(input, data);

    // One chunk, then an empty chunk (which must change nothing).
    const Run whole = feedInChunks(input, data, limits, {data.size(), 0});
    checkRun(input, data, limits, whole);

    // Chunks of pseudo-random sizes from 1 to 32 bytes.
    std::vector<qsizetype> sizes;
    quint32 seed = 0x9e3779b9u ^ bytes[1];
    for (qsizetype left = data.size(); left > 0;) {
        seed = seed * 1664525u + 1013904223u;
        const qsizetype n = std::min<qsizetype>(left, 1 + (seed >> 24) % 32);
        sizes.push_back(n);
        left -= n;
    }
    sizes.push_back(16); // past the end: empty chunks
    const Run chunked = feedInChunks(input, data, limits, sizes);
    checkRun(input, data, limits, chunked);

    // The head and the verdict do not depend on where the reads were cut,
    // except that a request may complete before its extra bytes push the body
    // over the limit when they arrive all at once.
    const bool earlyComplete = chunked.state == State::Complete && whole.state == State::BodyTooLarge
                               && whole.body.size() > limits.maxBodyBytes;
    if (!earlyComplete) {
        CHECK(chunked.state == whole.state);
        CHECK(chunked.head == whole.head);
    }
    CHECK(chunked.expectedLength == whole.expectedLength);

    if (data.size() <= 512) {
        const std::vector<qsizetype> ones(size_t(data.size()) + 1, 1);
        const Run single = feedInChunks(input, data, limits, ones);
        checkRun(input, data, limits, single);
        if (!(single.state == State::Complete && whole.state == State::BodyTooLarge)) {
            CHECK(single.state == whole.state);
            CHECK(single.head == whole.head);
        }
    }
    return 0;
}
