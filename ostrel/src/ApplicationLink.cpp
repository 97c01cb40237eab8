// SPDX-License-Identifier: MIT
#include "ApplicationLink.h"
#include "Endpoint.h"
#include "FrameScanner.h"

#include <QDataStream>
#include <QLoggingCategory>
#include <QtEndian>

namespace Velmora::OstrelAdapter {

Q_LOGGING_CATEGORY(lcLinks, "velmora.ostrel.links", QtWarningMsg)

const QString ApplicationLink::kHelloName = QStringLiteral("OstrelAdapter.LinkHello");

namespace {

constexpr qsizetype kPrefixBytes = 4;

} // namespace

ApplicationLink::ApplicationLink(QLocalSocket* socket, std::shared_ptr<LinkBudget> budget, QObject* parent)
    : QObject(parent), m_socket(socket), m_budget(std::move(budget))
{
    m_socket->setParent(this);
    m_socket->setReadBufferSize(kReadChunkBytes);
    connect(m_socket, &QLocalSocket::readyRead, this, &ApplicationLink::ReadFrames);
    connect(m_socket, &QLocalSocket::bytesWritten, this, &ApplicationLink::Recount);
    connect(m_socket, &QLocalSocket::disconnected, this, &ApplicationLink::Close);
    connect(m_socket, &QLocalSocket::errorOccurred, this, [this](QLocalSocket::LocalSocketError) {
        if (m_socket->state() != QLocalSocket::ConnectedState)
            Close();
    });
}

ApplicationLink::~ApplicationLink()
{
    m_socket->disconnect(this);
    m_socket->abort();
    m_budget->bufferedBytes -= m_counted;
}

void ApplicationLink::Recount()
{
    const qint64 now = qint64(m_buffer.size()) + m_socket->bytesToWrite();
    m_budget->bufferedBytes += now - m_counted;
    m_counted = now;
}

qint64 ApplicationLink::PeerProcessId() const
{
    return PeerProcessIdOf(m_socket->socketDescriptor());
}

QByteArray ApplicationLink::EncodeFrame(const QString& name, const QVariantMap& data)
{
    // The length goes in front once the payload is written behind its place: one buffer, no copy.
    QByteArray frame;
    {
        QDataStream stream(&frame, QIODevice::WriteOnly);
        stream.setVersion(QDataStream::Qt_6_0);
        stream << quint32(0) << name << data;
    }
    qToBigEndian<quint32>(quint32(frame.size() - kPrefixBytes), frame.data());
    return frame;
}

bool ApplicationLink::SendFrame(const QString& name, const QVariantMap& data)
{
    if (!IsOpen())
        return false;
    const QByteArray frame = EncodeFrame(name, data);
    if (quint64(frame.size() - kPrefixBytes) > kMaxFrameBytes)
        return false;
    Recount();
    if (m_socket->bytesToWrite() + frame.size() > kMaxOutgoingBytes)
    {
        // The peer has stopped reading; holding ever more for it helps nobody.
        qCDebug(lcLinks, "peer does not read; link closed");
        Close();
        return false;
    }
    if (m_budget->bufferedBytes + frame.size() > kMaxBufferedBytes)
    {
        qCDebug(lcLinks, "hub buffers full; message of %lld bytes refused", qint64(frame.size()));
        return false;
    }
    // With nothing queued before it, the frame goes to the system at once: handing it to the
    // socket object instead would switch its write watch on and off again, and wake the event
    // loop twice, for every message. Only what the system does not take now is queued, behind
    // which every later frame then waits its turn.
    qint64 sent = 0;
    if (m_socket->bytesToWrite() == 0)
        sent = WriteWithoutWaiting(m_socket->socketDescriptor(), frame.constData(), frame.size());
    if (sent == frame.size())
        return true;
    const QByteArray rest = sent > 0 ? frame.mid(sent) : frame;
    const bool written = m_socket->write(rest) == rest.size();
    Recount();
    if (!written)
        return false;
    m_socket->flush();
    Recount();
    return true;
}

bool ApplicationLink::IsOpen() const
{
    return !m_closed && m_socket->state() == QLocalSocket::ConnectedState;
}

void ApplicationLink::Close()
{
    if (m_closed)
        return;
    m_closed = true;
    m_socket->abort();
    m_buffer.clear();
    Recount();
    emit Closed(this);
}

void ApplicationLink::Dispose(const QDeadlineTimer& deadline)
{
    disconnect();
    m_socket->disconnect(this);
    if (!m_closed)
    {
        // A host announces the end of a run and shuts down straight away; that last message must
        // not die in our write buffer.
        while (m_socket->state() == QLocalSocket::ConnectedState && m_socket->bytesToWrite() > 0 &&
               !deadline.hasExpired())
        {
            if (!m_socket->waitForBytesWritten(
                    int(qBound(qint64(1), deadline.remainingTime(), qint64(1000)))))
                break;
        }
        m_closed = true;
        m_socket->abort();
    }
    m_buffer.clear();
    Recount();
    if (m_reading)
    {
        setParent(nullptr);
        deleteLater();
    }
    else
    {
        delete this;
    }
}

void ApplicationLink::ReadFrames()
{
    // A handler that spins the event loop may bring us here again; the outer call reads on.
    if (m_closed || m_reading)
        return;
    m_reading = true;
    bool open = true;
    while (open)
    {
        const qint64 available = qMin(m_socket->bytesAvailable(), kReadChunkBytes);
        if (available <= 0)
            break;
        if (m_budget->bufferedBytes + available > kMaxBufferedBytes)
        {
            qCDebug(lcLinks, "%s", "hub buffers full; link closed");
            Close();
            open = false;
            break;
        }
        // Straight behind what is already buffered, without a chunk of its own in between.
        const qsizetype kept = m_buffer.size();
        m_buffer.resize(kept + qsizetype(available));
        const qint64 got = m_socket->read(m_buffer.data() + kept, available);
        m_buffer.resize(kept + qsizetype(qMax(got, qint64(0))));
        if (got <= 0)
            break;
        Recount();
        open = TellCompleteFrames();
    }
    m_reading = false;
}

bool ApplicationLink::TellCompleteFrames()
{
    qsizetype offset = 0;
    bool open = true;
    while (m_buffer.size() - offset >= kPrefixBytes)
    {
        const quint32 length = qFromBigEndian<quint32>(m_buffer.constData() + offset);
        if (length > (m_helloSeen ? kMaxFrameBytes : kMaxIntroductionFrameBytes))
        {
            qCDebug(lcLinks, "frame of %u bytes refused; link closed", unsigned(length));
            Close();
            open = false;
            break;
        }
        if (m_buffer.size() - offset - kPrefixBytes < qsizetype(length))
            break; // the rest of the frame is still on its way
        const char* payload = m_buffer.constData() + offset + kPrefixBytes;
        offset += kPrefixBytes + qsizetype(length);
        // Judged before the stream reader sees it: that reader recurses into nested values and
        // trusts the counts it reads.
        if (!FrameScanner::IsAcceptable(payload, qsizetype(length)))
        {
            qCDebug(lcLinks, "%s", "frame that does not parse; link closed");
            Close();
            open = false;
            break;
        }
        QDataStream stream(QByteArray::fromRawData(payload, qsizetype(length)));
        stream.setVersion(QDataStream::Qt_6_0);
        QString name;
        QVariantMap data;
        stream >> name >> data;
        if (stream.status() != QDataStream::Ok || !stream.atEnd() || name.isEmpty())
        {
            qCDebug(lcLinks, "%s", "frame that does not parse; link closed");
            Close();
            open = false;
            break;
        }
        emit FrameReceived(this, name, data);
        if (m_closed)
        {
            open = false;
            break;
        }
    }
    if (open)
    {
        m_buffer.remove(0, offset);
        // A large frame must not keep its memory once it has been told.
        if (m_buffer.capacity() > 2 * m_buffer.size() + kReadChunkBytes)
            m_buffer.squeeze();
    }
    else
    {
        m_buffer.clear();
    }
    Recount();
    return open;
}

} // namespace Velmora::OstrelAdapter
