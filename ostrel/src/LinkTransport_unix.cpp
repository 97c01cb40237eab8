// SPDX-License-Identifier: MIT
#include "LinkTransport.h"

#include <QLocalSocket>
#include <QSocketNotifier>

#include <cerrno>
#include <deque>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#ifndef MSG_NOSIGNAL
#define MSG_NOSIGNAL 0
#endif

namespace Velmora::OstrelAdapter {

namespace {

// The link's own descriptor, watched by the event loop. Compared with the socket object it spares
// asking the system how much has arrived before every read, and copying through a buffer of its
// own; what arrives stays in the system's buffer until the link takes it.
class DescriptorTransport final : public LinkTransport
{
public:
    DescriptorTransport(int descriptor, QObject* parent)
        : LinkTransport(parent), m_descriptor(descriptor), m_readable(QSocketNotifier::Read),
          m_writable(QSocketNotifier::Write)
    {
        // The write watch is switched on only while bytes wait for the system to take them.
        m_readable.setSocket(descriptor);
        m_readable.setEnabled(true);
        m_writable.setSocket(descriptor);
        connect(&m_readable, &QSocketNotifier::activated, this, &LinkTransport::ReadyRead);
        connect(&m_writable, &QSocketNotifier::activated, this, [this]() { WriteQueued(); });
    }
    ~DescriptorTransport() override { Abort(); }

    bool IsConnected() const override { return m_descriptor >= 0; }

    qint64 Read(char* data, qint64 size) override
    {
        if (m_descriptor < 0)
            return -1;
        for (;;)
        {
            const ssize_t got = ::read(m_descriptor, data, size_t(size));
            if (got > 0)
                return qint64(got);
            if (got < 0 && errno == EINTR)
                continue;
            if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
                return 0;
            // The peer has closed its end, or the link has failed.
            Abort();
            return -1;
        }
    }

    void SetReadWatch(bool on) override
    {
        if (m_descriptor >= 0 && m_readable.isEnabled() != on)
            m_readable.setEnabled(on);
    }

    bool Write(const QByteArray& data) override
    {
        if (m_descriptor < 0)
            return false;
        qint64 sent = 0;
        if (m_queue.empty())
        {
            sent = Send(data.constData(), data.size());
            if (sent < 0)
            {
                // The link is closed and says so; the bytes count as handed over, as they did with
                // the socket object, which found the failure only while flushing them.
                Fail();
                return true;
            }
            if (sent == data.size())
                return true;
        }
        // Whatever waits goes out in order, as the system takes it.
        m_queue.push_back(data);
        if (m_queue.size() == 1)
            m_headSent = sent;
        m_queued += data.size() - sent;
        if (!m_writable.isEnabled())
            m_writable.setEnabled(true);
        return true;
    }

    qint64 BytesToWrite() const override { return m_queued; }

    void Drain(const QDeadlineTimer& deadline) override
    {
        while (m_descriptor >= 0 && m_queued > 0 && !deadline.hasExpired())
        {
            pollfd watch = {m_descriptor, POLLOUT, 0};
            const int ready =
                ::poll(&watch, 1, int(qBound(qint64(1), deadline.remainingTime(), qint64(1000))));
            if (ready < 0 && errno == EINTR)
                continue;
            if (ready <= 0)
                break;
            WriteQueued();
        }
    }

    void Abort() override
    {
        if (m_descriptor < 0)
            return;
        // The watches go before the descriptor does: the event loop must never poll a closed one.
        m_readable.setEnabled(false);
        m_writable.setEnabled(false);
        ::close(m_descriptor);
        m_descriptor = -1;
        m_queue.clear();
        m_headSent = 0;
        m_queued = 0;
    }

    qintptr Descriptor() const override { return m_descriptor; }

private:
    // What the system takes now: the count, or -1 when the link has failed.
    qint64 Send(const char* data, qint64 size)
    {
        for (;;)
        {
            // A peer that went away must not end this process with a signal.
            const ssize_t sent = ::send(m_descriptor, data, size_t(size), MSG_DONTWAIT | MSG_NOSIGNAL);
            if (sent >= 0)
                return qint64(sent);
            if (errno == EINTR)
                continue;
            return errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
        }
    }

    void WriteQueued()
    {
        bool wrote = false;
        while (m_descriptor >= 0 && !m_queue.empty())
        {
            const QByteArray& head = m_queue.front();
            const qint64 sent = Send(head.constData() + m_headSent, head.size() - m_headSent);
            if (sent < 0)
            {
                Fail();
                return;
            }
            if (sent == 0)
                break;
            wrote = true;
            m_headSent += sent;
            m_queued -= sent;
            if (m_headSent == head.size())
            {
                m_queue.pop_front();
                m_headSent = 0;
            }
        }
        if (m_queue.empty() && m_writable.isEnabled())
            m_writable.setEnabled(false);
        if (wrote)
            emit BytesWritten();
    }

    void Fail()
    {
        Abort();
        emit Ended();
    }

    int m_descriptor;
    QSocketNotifier m_readable;
    QSocketNotifier m_writable;
    std::deque<QByteArray> m_queue;
    qsizetype m_headSent = 0; // of the first queued block
    qint64 m_queued = 0;
};

} // namespace

LinkTransport* LinkTransport::Adopt(QLocalSocket* socket, QObject* parent)
{
    // A socket that already holds bytes in either direction keeps serving them itself.
    const qintptr descriptor = socket->socketDescriptor();
    if (descriptor < 0 || socket->state() != QLocalSocket::ConnectedState || socket->bytesAvailable() > 0 ||
        socket->bytesToWrite() > 0)
        return Wrap(socket, parent);
    // Without a descriptor to spare the connection is let go, as one the system could not accept
    // at all: the peer knocks again once links that were idle too long are gone.
    int own = ::fcntl(int(descriptor), F_DUPFD_CLOEXEC, 0);
    const int flags = own < 0 ? -1 : ::fcntl(own, F_GETFL);
    if (own >= 0 && (flags < 0 || ::fcntl(own, F_SETFL, flags | O_NONBLOCK) < 0))
    {
        ::close(own);
        own = -1;
    }
#ifdef SO_NOSIGPIPE
    const int on = 1;
    if (own >= 0)
        ::setsockopt(own, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof(on));
#endif
    // The connection lives on in our copy of the descriptor; the socket object closes only its own.
    socket->abort();
    delete socket;
    return own < 0 ? nullptr : new DescriptorTransport(own, parent);
}

} // namespace Velmora::OstrelAdapter
