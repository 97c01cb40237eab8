#include "ApplicationLink.h"

#include <QDataStream>
#include <QLoggingCategory>
#include <QtEndian>

namespace Velmora::OstrelAdapter {

Q_LOGGING_CATEGORY(lcLinks, "velmora.ostrel.links", QtWarningMsg)

const QString ApplicationLink::kHelloName = QStringLiteral("OstrelAdapter.LinkHello");

namespace {

constexpr qsizetype kPrefixBytes = 4;

} // namespace

ApplicationLink::ApplicationLink(QLocalSocket* socket, QObject* parent)
    : QObject(parent)
    , m_socket(socket)
{
    m_socket->setParent(this);
    connect(m_socket, &QLocalSocket::readyRead, this, &ApplicationLink::ReadFrames);
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
}

QByteArray ApplicationLink::EncodeFrame(const QString& name, const QVariantMap& data)
{
    QByteArray payload;
    QDataStream stream(&payload, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << name << data;
    QByteArray frame(kPrefixBytes, '\0');
    qToBigEndian<quint32>(quint32(payload.size()), frame.data());
    return frame + payload;
}

bool ApplicationLink::SendFrame(const QString& name, const QVariantMap& data)
{
    if (!IsOpen())
        return false;
    const QByteArray frame = EncodeFrame(name, data);
    if (quint64(frame.size() - kPrefixBytes) > kMaxFrameBytes)
        return false;
    if (m_socket->write(frame) != frame.size())
        return false;
    m_socket->flush();
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
    emit Closed(this);
}

void ApplicationLink::Dispose(const QDeadlineTimer& deadline)
{
    disconnect();
    m_socket->disconnect(this);
    if (!m_closed) {
        // A host announces the end of a run and shuts down straight away; that last message must
        // not die in our write buffer.
        while (m_socket->state() == QLocalSocket::ConnectedState && m_socket->bytesToWrite() > 0 &&
               !deadline.hasExpired()) {
            if (!m_socket->waitForBytesWritten(int(qBound(qint64(1), deadline.remainingTime(), qint64(1000)))))
                break;
        }
        m_closed = true;
        m_socket->abort();
    }
    if (m_reading) {
        setParent(nullptr);
        deleteLater();
    } else {
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
    while (open && m_socket->bytesAvailable() > 0) {
        m_buffer += m_socket->readAll();
        open = TellCompleteFrames();
    }
    m_reading = false;
}

bool ApplicationLink::TellCompleteFrames()
{
    qsizetype offset = 0;
    bool open = true;
    while (m_buffer.size() - offset >= kPrefixBytes) {
        const quint32 length = qFromBigEndian<quint32>(m_buffer.constData() + offset);
        if (length > kMaxFrameBytes) {
            qCDebug(lcLinks, "frame of %u bytes refused; link closed", unsigned(length));
            Close();
            open = false;
            break;
        }
        if (m_buffer.size() - offset - kPrefixBytes < qsizetype(length))
            break; // the rest of the frame is still on its way
        QDataStream stream(QByteArray::fromRawData(m_buffer.constData() + offset + kPrefixBytes, qsizetype(length)));
        stream.setVersion(QDataStream::Qt_6_0);
        offset += kPrefixBytes + qsizetype(length);
        QString name;
        QVariantMap data;
        stream >> name >> data;
        if (stream.status() != QDataStream::Ok || !stream.atEnd() || name.isEmpty()) {
            qCDebug(lcLinks, "%s", "frame that does not parse; link closed");
            Close();
            open = false;
            break;
        }
        emit FrameReceived(this, name, data);
        if (m_closed) {
            open = false;
            break;
        }
    }
    if (open)
        m_buffer.remove(0, offset);
    else
        m_buffer.clear();
    return open;
}

} // namespace Velmora::OstrelAdapter
