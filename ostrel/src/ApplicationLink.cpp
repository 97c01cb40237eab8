#include "ApplicationLink.h"

#include <QDataStream>
#include <QLoggingCategory>
#include <QtEndian>

namespace Velmora::OstrelAdapter {

Q_LOGGING_CATEGORY(lcLinks, "velmora.ostrel.links", QtWarningMsg)

const QString ApplicationLink::kHelloName = QStringLiteral("OstrelAdapter.LinkHello");

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
    QByteArray frame(4, '\0');
    qToBigEndian<quint32>(quint32(payload.size()), frame.data());
    return frame + payload;
}

bool ApplicationLink::SendFrame(const QString& name, const QVariantMap& data)
{
    if (!IsOpen())
        return false;
    const QByteArray frame = EncodeFrame(name, data);
    if (quint32(frame.size() - 4) > kMaxFrameBytes)
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

void ApplicationLink::ReadFrames()
{
    if (m_closed)
        return;
    m_buffer += m_socket->readAll();
    while (!m_closed && m_buffer.size() >= 4) {
        const quint32 length = qFromBigEndian<quint32>(m_buffer.constData());
        if (length > kMaxFrameBytes) {
            qCDebug(lcLinks) << "frame of" << length << "bytes refused";
            Close();
            return;
        }
        if (quint32(m_buffer.size() - 4) < length)
            return; // the rest of the frame is still on its way
        const QByteArray payload = m_buffer.mid(4, int(length));
        m_buffer.remove(0, int(length) + 4);

        QDataStream stream(payload);
        stream.setVersion(QDataStream::Qt_6_0);
        QString name;
        QVariantMap data;
        stream >> name >> data;
        if (stream.status() != QDataStream::Ok || !stream.atEnd() || name.isEmpty()) {
            qCDebug(lcLinks) << "frame that does not parse; link closed";
            Close();
            return;
        }
        emit FrameReceived(this, name, data);
    }
}

} // namespace Velmora::OstrelAdapter
