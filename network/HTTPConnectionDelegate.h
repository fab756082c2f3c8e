#pragma once

#include "network/HTTPRequestParser.h"

#include <QByteArray>
#include <QString>

namespace quirepad {

class HTTPConnection;

// Answers the requests an HTTPServer receives. The connection first offers
// the request as bytes, then as text; a method returns true when it took the
// request, and must then have answered through exactly one of the
// connection's response writers before returning.
class HTTPConnectionDelegate
{
public:
    virtual ~HTTPConnectionDelegate() = default;

    virtual bool receivedData(HTTPConnection& connection, const QByteArray& body, const HTTPHead& head)
    {
        return false;
    }
    // body is a null string when the bytes are not valid UTF-8.
    virtual bool receivedString(HTTPConnection& connection, const QString& body, const HTTPHead& head)
    {
        return false;
    }
};

} // namespace quirepad
