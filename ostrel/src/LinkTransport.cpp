// SPDX-License-Identifier: MIT
#include "LinkTransport.h"
#include "ApplicationLink.h"
#include "Endpoint.h"

#include <QLocalSocket>

namespace Velmora::OstrelAdapter {

namespace {

// The socket object moves the bytes and buffers what arrives.
class SocketTransport final : public LinkTransport
{
public:
    SocketTransport(QLocalSocket* socket, QObject* parent) : LinkTransport(parent), m_socket(socket)
    {
        m_socket->setParent(this);
        // So that the system's buffer, not ours, holds what a slow frame has not delivered yet.
        m_socket->setReadBufferSize(ApplicationLink::kReadChunkBytes);
        connect(m_socket, &QLocalSocket::readyRead, this, &LinkTransport::ReadyRead);
        connect(m_socket, &QLocalSocket::bytesWritten, this, &LinkTransport::BytesWritten);
        connect(m_socket, &QLocalSocket::disconnected, this, &LinkTransport::Ended);
        connect(m_socket, &QLocalSocket::errorOccurred, this, [this](QLocalSocket::LocalSocketError) {
            if (m_socket->state() != QLocalSocket::ConnectedState)
                emit Ended();
        });
    }
    ~SocketTransport() override
    {
        m_socket->disconnect(this);
        m_socket->abort();
    }

    bool IsConnected() const override { return m_socket->state() == QLocalSocket::ConnectedState; }

    qint64 Read(char* data, qint64 size) override
    {
        // The end of the stream is told by the socket's own signal.
        const qint64 available = qMin(size, m_socket->bytesAvailable());
        return available > 0 ? qMax(m_socket->read(data, available), qint64(0)) : 0;
    }

    void SetReadWatch(bool) override {}

    bool Write(const QByteArray& data) override
    {
        // With nothing queued before them, the bytes go to the system at once: handing them to the
        // socket object would switch its write watch on and off again, waking the event loop twice.
        qint64 sent = 0;
        if (m_socket->bytesToWrite() == 0)
            sent = WriteWithoutWaiting(m_socket->socketDescriptor(), data.constData(), data.size());
        if (sent == data.size())
            return true;
        const QByteArray rest = sent > 0 ? data.mid(sent) : data;
        if (m_socket->write(rest) != rest.size())
            return false;
        m_socket->flush();
        return true;
    }

    qint64 BytesToWrite() const override { return m_socket->bytesToWrite(); }

    void Drain(const QDeadlineTimer& deadline) override
    {
        while (m_socket->state() == QLocalSocket::ConnectedState && m_socket->bytesToWrite() > 0 &&
               !deadline.hasExpired())
        {
            if (!m_socket->waitForBytesWritten(
                    int(qBound(qint64(1), deadline.remainingTime(), qint64(1000)))))
                break;
        }
    }

    void Abort() override { m_socket->abort(); }

    qintptr Descriptor() const override { return m_socket->socketDescriptor(); }

private:
    QLocalSocket* m_socket;
};

} // namespace

LinkTransport* LinkTransport::Wrap(QLocalSocket* socket, QObject* parent)
{
    return new SocketTransport(socket, parent);
}

} // namespace Velmora::OstrelAdapter
