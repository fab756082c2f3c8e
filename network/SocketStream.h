#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QObject>

class QSocketNotifier;

namespace quirepad {

// A connected stream socket on the event loop, on its bare descriptor: a
// handful of system calls a connection where QTcpSocket makes a dozen,
// which is most of what a small HTTP answer costs. Reads everything there
// is when told it is readable; writes go out at once as far as the socket
// takes them, the rest when it drains. Owns and closes the descriptor.
class SocketStream : public QObject
{
    Q_OBJECT
public:
    // Takes the descriptor of an accepted socket and makes it non-blocking.
    explicit SocketStream(int fd, QObject* parent = nullptr);
    ~SocketStream() override;
    SocketStream(const SocketStream&) = delete;
    SocketStream& operator=(const SocketStream&) = delete;

    bool isOpen() const { return m_fd >= 0; }
    // Everything readable now; atEnd tells that the peer has closed its side
    // (what it sent before stays readable, and answers can still be sent).
    QByteArray readAvailable(bool* atEnd);
    // Sends data after what is still waiting. False when the connection is
    // broken (the peer went away); it is then closed.
    bool write(const QByteArray& data);
    qint64 bytesToWrite() const { return m_out.size() - m_outPos; }
    // Closes once everything written has been sent.
    void closeWhenSent();
    // Closes now; whatever waits to be sent is dropped.
    void abort();
    // The address and port the peer connected to.
    QHostAddress localAddress(quint16* port) const;

signals:
    void readyRead();
    // Everything written so far has been sent.
    void drained();
    // The descriptor was closed: after closeWhenSent, or on a broken
    // connection.
    void closed();

private:
    void sendWaiting();
    void setWantsWrite(bool wants);

    int m_fd = -1;
    QSocketNotifier* m_reader = nullptr; // child
    QSocketNotifier* m_writer = nullptr; // child, made on first need
    QByteArray m_out;
    qsizetype m_outPos = 0;
    bool m_closeWhenSent = false;
    bool m_peerClosed = false;
};

} // namespace quirepad
