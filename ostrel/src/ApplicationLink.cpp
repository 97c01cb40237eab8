// SPDX-License-Identifier: MIT
#include "ApplicationLink.h"
#include "Endpoint.h"
#include "FrameScanner.h"
#include "LinkTransport.h"

#include <QDataStream>
#include <QIODevice>
#include <QLoggingCategory>
#include <QtEndian>

namespace Velmora::OstrelAdapter {

Q_LOGGING_CATEGORY(lcLinks, "velmora.ostrel.links", QtWarningMsg)

const QString ApplicationLink::kHelloName = QStringLiteral("OstrelAdapter.LinkHello");

namespace {

constexpr qsizetype kPrefixBytes = 4;

} // namespace

ApplicationLink::ApplicationLink(LinkTransport* transport, std::shared_ptr<LinkBudget> budget,
                                 QObject* parent)
    : QObject(parent), m_transport(transport), m_budget(std::move(budget))
{
    m_transport->setParent(this);
    connect(m_transport, &LinkTransport::ReadyRead, this, &ApplicationLink::ReadFrames);
    connect(m_transport, &LinkTransport::BytesWritten, this, &ApplicationLink::Recount);
    connect(m_transport, &LinkTransport::Ended, this, &ApplicationLink::Close);
    Recount();
}

ApplicationLink::~ApplicationLink()
{
    m_transport->disconnect(this);
    m_transport->Abort();
    m_budget->bufferedBytes -= m_counted;
}

void ApplicationLink::Recount()
{
    const qint64 now = qint64(m_buffer.size()) + m_transport->BytesToWrite();
    m_budget->bufferedBytes += now - m_counted;
    m_counted = now;
}

qint64 ApplicationLink::PeerProcessId() const
{
    return PeerProcessIdOf(m_transport->Descriptor());
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
    if (m_transport->BytesToWrite() + frame.size() > kMaxOutgoingBytes)
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
    const bool accepted = m_transport->Write(frame);
    Recount();
    return accepted;
}

bool ApplicationLink::IsOpen() const
{
    return !m_closed && m_transport->IsConnected();
}

void ApplicationLink::Close()
{
    if (m_closed)
        return;
    m_closed = true;
    m_transport->Abort();
    m_buffer.clear();
    Recount();
    emit Closed(this);
}

void ApplicationLink::Dispose(const QDeadlineTimer& deadline)
{
    disconnect();
    m_transport->disconnect(this);
    if (!m_closed)
    {
        // A host announces the end of a run and shuts down straight away; that last message must
        // not die in our write buffer.
        m_transport->Drain(deadline);
        m_closed = true;
        m_transport->Abort();
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
    // A handler that spins the event loop may bring us here again; the outer call reads on, and
    // until it does, what arrives is not announced again and again.
    if (m_closed)
        return;
    if (m_reading)
    {
        m_transport->SetReadWatch(false);
        return;
    }
    m_reading = true;
    bool open = true;
    while (open)
    {
        // Read straight behind what is buffered. A frame on its way makes room for itself, up to a
        // chunk at a time; otherwise the room kept from earlier messages is enough.
        const qsizetype kept = m_buffer.size();
        const qint64 room = qBound(kReadRoomBytes, qint64(kept), kReadChunkBytes);
        m_buffer.resize(kept + qsizetype(room));
        const qint64 got = m_transport->Read(m_buffer.data() + kept, room);
        m_buffer.resize(kept + qsizetype(qMax(got, qint64(0))));
        if (got < 0)
        {
            Close();
            open = false;
            break;
        }
        if (got == 0)
            break;
        if (m_budget->bufferedBytes + got > kMaxBufferedBytes)
        {
            qCDebug(lcLinks, "%s", "hub buffers full; link closed");
            Close();
            open = false;
            break;
        }
        Recount();
        open = TellCompleteFrames();
        // Less than the room means the system holds nothing more for now.
        if (got < room)
            break;
    }
    m_reading = false;
    if (open && !m_closed)
        m_transport->SetReadWatch(true);
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
