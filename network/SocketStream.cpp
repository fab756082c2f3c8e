#include "network/SocketStream.h"

#include <QSocketNotifier>

#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace quirepad {

namespace {
constexpr qsizetype ReadChunk = 65536;
}

SocketStream::SocketStream(int fd, QObject* parent)
    : QObject(parent)
    , m_fd(fd)
{
    // Accepted sockets are blocking and plain read-write.
    ::fcntl(m_fd, F_SETFL, O_RDWR | O_NONBLOCK);
    m_reader = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_reader, &QSocketNotifier::activated, this, &SocketStream::readyRead);
}

SocketStream::~SocketStream()
{
    abort();
}

QByteArray SocketStream::readAvailable(bool* atEnd)
{
    QByteArray data;
    *atEnd = m_peerClosed;
    while (m_fd >= 0 && !m_peerClosed) {
        const qsizetype used = data.size();
        data.resize(used + ReadChunk);
        const ssize_t n = ::read(m_fd, data.data() + used, size_t(ReadChunk));
        if (n > 0) {
            data.resize(used + n);
            if (n < ReadChunk)
                break; // the socket is most likely empty now; the notifier says if not
            continue;
        }
        data.resize(used);
        if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
            // The peer closed its side (or the connection broke): nothing
            // more will come, and a level-triggered notifier would not stop.
            m_peerClosed = true;
            m_reader->setEnabled(false);
            *atEnd = true;
        }
        if (n < 0 && errno == EINTR)
            continue;
        break;
    }
    return data;
}

bool SocketStream::write(const QByteArray& data)
{
    if (m_fd < 0)
        return false;
    if (bytesToWrite() == 0) {
        m_out = data;
        m_outPos = 0;
    } else {
        m_out.remove(0, m_outPos);
        m_outPos = 0;
        m_out += data;
    }
    sendWaiting();
    return m_fd >= 0;
}

void SocketStream::sendWaiting()
{
    while (m_outPos < m_out.size()) {
        const ssize_t n = ::send(m_fd, m_out.constData() + m_outPos, size_t(m_out.size() - m_outPos),
                                 MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0) {
            m_outPos += n;
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            setWantsWrite(true);
            return;
        }
        abort(); // broken: the peer is gone
        emit closed();
        return;
    }
    m_out.clear();
    m_outPos = 0;
    setWantsWrite(false);
    if (m_closeWhenSent) {
        abort();
        emit closed();
    }
}

void SocketStream::setWantsWrite(bool wants)
{
    if (!wants && !m_writer)
        return;
    if (!m_writer) {
        m_writer = new QSocketNotifier(m_fd, QSocketNotifier::Write, this);
        connect(m_writer, &QSocketNotifier::activated, this, [this] {
            sendWaiting();
            if (m_fd >= 0 && bytesToWrite() == 0)
                emit drained();
        });
    }
    m_writer->setEnabled(wants);
}

void SocketStream::closeWhenSent()
{
    m_closeWhenSent = true;
    if (m_fd >= 0 && bytesToWrite() == 0) {
        abort();
        emit closed();
    }
}

void SocketStream::abort()
{
    if (m_fd < 0)
        return;
    // The notifiers go before the descriptor they watch.
    delete m_reader;
    m_reader = nullptr;
    delete m_writer;
    m_writer = nullptr;
    ::close(m_fd);
    m_fd = -1;
    m_out.clear();
    m_outPos = 0;
}

QHostAddress SocketStream::localAddress(quint16* port) const
{
    sockaddr_storage address {};
    socklen_t length = sizeof address;
    if (m_fd < 0 || ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        *port = 0;
        return {};
    }
    QHostAddress host(reinterpret_cast<const sockaddr*>(&address));
    *port = address.ss_family == AF_INET6 ? ntohs(reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port)
                                          : ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
    return host;
}

} // namespace quirepad
