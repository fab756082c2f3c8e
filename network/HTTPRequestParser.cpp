#include "network/HTTPRequestParser.h"

#include "foundation/string_ext.h"

#include <limits>

namespace quirepad {

namespace {

// The leading decimal digits of text as a number (0 when there are none);
// saturates instead of overflowing.
qint64 leadingInteger(const QString& text)
{
    const QString trimmed = text.trimmed();
    qint64 value = 0;
    qsizetype i = 0;
    const bool negative = trimmed.startsWith(u'-');
    if (negative || trimmed.startsWith(u'+'))
        ++i;
    for (; i < trimmed.size() && trimmed.at(i).isDigit() && trimmed.at(i).unicode() < 128; ++i) {
        if (value > (std::numeric_limits<qint64>::max() - 9) / 10)
            return negative ? 0 : std::numeric_limits<qint64>::max();
        value = value * 10 + (trimmed.at(i).unicode() - u'0');
    }
    return negative ? 0 : value;
}

} // namespace

HTTPRequestParser::HTTPRequestParser(const HTTPLimits& limits)
    : m_limits(limits)
{
}

qsizetype HTTPRequestParser::headEnd(const QByteArray& chunk, int& headNl)
{
    for (qsizetype i = 0; i < chunk.size(); ++i) {
        const char byte = chunk.at(i);
        if (byte == '\n') {
            if (headNl > 0)
                return i + 1;
            ++headNl;
        } else if (byte != '\r') {
            headNl = 0;
        }
    }
    return -1;
}

QStringList HTTPRequestParser::matchRequestLine(const QString& line)
{
    const QStringList words = line.split(u' ');
    const QString& method = words.first();
    if (method == u"GET" || method == u"POST" || method == u"OPTIONS")
        return words;
    return {};
}

QStringList HTTPRequestParser::matchHeaderLine(const QString& line)
{
    if (!line.contains(QLatin1String(": ")))
        return {};
    return line.split(QLatin1String(": "));
}

HTTPRequestParser::State HTTPRequestParser::feed(const QByteArray& chunk)
{
    if (m_state == State::ReadingHead) {
        const qsizetype end = headEnd(chunk, m_headNl);
        const qsizetype headPart = end < 0 ? chunk.size() : end;
        if (m_header.size() + headPart > m_limits.maxHeadBytes) {
            m_state = State::HeadTooLarge;
            return m_state;
        }
        if (end < 0) {
            m_header.append(chunk);
            return m_state;
        }
        m_header.append(chunk.left(end));
        m_body.append(chunk.mid(end));
        parseHead();
        if (m_state != State::ReadingHead)
            return m_state;
        m_state = State::ReadingBody;
    } else if (m_state == State::ReadingBody) {
        m_body.append(chunk);
    } else {
        return m_state;
    }
    checkComplete();
    return m_state;
}

// The keys the request line fills: a header of the same name must not
// change the method, path or protocol the request line gave.
bool HTTPRequestParser::isRequestLineKey(const QString& key)
{
    return key == QLatin1String("TYPE") || key == QLatin1String("URL_PATH") || key == QLatin1String("PROTOCOL")
           || key == QLatin1String("URL");
}

void HTTPRequestParser::parseHead()
{
    m_head.clear();
    const QString text = QString::fromLatin1(m_header);
    bool shortRequestLine = false;
    for (const QString& line : splitUsing(text, QStringLiteral("\n\r"))) {
        const QStringList words = matchRequestLine(line);
        if (!words.isEmpty()) {
            if (words.size() < 3) {
                shortRequestLine = true;
                continue;
            }
            m_head.insert(QStringLiteral("TYPE"), words.at(0));
            m_head.insert(QStringLiteral("URL_PATH"), words.at(1));
            m_head.insert(QStringLiteral("PROTOCOL"), words.at(2));
            continue;
        }
        const QStringList parts = matchHeaderLine(line);
        if (parts.size() >= 2 && !isRequestLineKey(parts.at(0).toUpper()))
            m_head.insert(parts.at(0).toUpper(), parts.at(1));
    }
    if (shortRequestLine) {
        m_state = State::BadRequestLine;
        return;
    }
    m_expectedLength = leadingInteger(m_head.value(QStringLiteral("CONTENT-LENGTH")));
    if (m_expectedLength > m_limits.maxBodyBytes)
        m_state = State::BodyTooLarge;
}

void HTTPRequestParser::checkComplete()
{
    if (m_body.size() > m_limits.maxBodyBytes) {
        m_state = State::BodyTooLarge;
        return;
    }
    if (m_body.size() < m_expectedLength)
        return;
    m_head.insert(QStringLiteral("URL"), QStringLiteral("http://%1%2")
                                             .arg(m_head.value(QStringLiteral("HOST")),
                                                  m_head.value(QStringLiteral("URL_PATH"))));
    m_state = State::Complete;
}

} // namespace quirepad
