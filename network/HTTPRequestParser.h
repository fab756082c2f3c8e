#pragma once

#include "network/HTTPLimits.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

namespace quirepad {

// The parsed request head: "TYPE", "URL_PATH", "PROTOCOL" from the request
// line, every header under its upper-cased name, and "URL" once complete.
using HTTPHead = QHash<QString, QString>;

// Collects one request from the chunks read off a socket. The head ends at
// the first blank line ("\r\n\r\n", "\n\n" or "\n\r\n", also when split
// across chunks); the request is complete once the body holds the head's
// Content-Length. Bytes past that length stay in the body.
class HTTPRequestParser
{
public:
    enum class State {
        ReadingHead,
        ReadingBody,
        Complete,
        HeadTooLarge,
        BodyTooLarge,
        BadRequestLine,
    };

    explicit HTTPRequestParser(const HTTPLimits& limits = {});

    // Takes the next chunk and returns the state after it. Once the state is
    // no longer ReadingHead or ReadingBody further chunks are ignored.
    State feed(const QByteArray& chunk);

    State state() const { return m_state; }
    const HTTPHead& head() const { return m_head; }
    const QByteArray& body() const { return m_body; }
    qint64 expectedLength() const { return m_expectedLength; }

    // Index just past the blank line ending the head within chunk, or -1.
    // headNl carries the count of line feeds seen so far between chunks.
    static qsizetype headEnd(const QByteArray& chunk, int& headNl);
    // The words of a request line whose method is GET, POST or OPTIONS;
    // an empty list for any other line.
    static QStringList matchRequestLine(const QString& line);
    // A header line split at every ": "; an empty list when it has none.
    static QStringList matchHeaderLine(const QString& line);

private:
    static bool isRequestLineKey(const QString& key);
    void parseHead();
    void checkComplete();

    HTTPLimits m_limits;
    State m_state = State::ReadingHead;
    QByteArray m_header;
    QByteArray m_body;
    HTTPHead m_head;
    qint64 m_expectedLength = 0;
    int m_headNl = 0;
};

} // namespace quirepad
