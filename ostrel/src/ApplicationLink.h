// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <QObject>
#include <QVariantMap>

#include <memory>

namespace Velmora::OstrelAdapter {

class Application;
class LinkTransport;

// What all links of one hub hold in their buffers together, incoming and outgoing.
struct LinkBudget
{
    qint64 bufferedBytes = 0;
};

// One two-way link between this process and another: length-prefixed frames each holding a
// message name and its data. A frame that is too large or does not parse closes the link, and so
// does a peer that makes the link buffer more than its share.
class ApplicationLink : public QObject
{
    Q_OBJECT
public:
    // Frames above this size are refused in both directions: a peer cannot make the receiver
    // allocate without bound.
    static constexpr quint32 kMaxFrameBytes = 16u * 1024u * 1024u;
    // A peer that has not introduced itself yet may send this much in its first frame: an
    // introduction is a few dozen bytes.
    static constexpr quint32 kMaxIntroductionFrameBytes = 4096u;
    // What one link may have queued for a peer that does not read: two full frames.
    static constexpr qint64 kMaxOutgoingBytes = 2 * qint64(kMaxFrameBytes);
    // What all links of a hub may hold together, both directions; the link that would go beyond
    // it is closed (or, for a message being sent, the message is refused).
    static constexpr qint64 kMaxBufferedBytes = 4 * qint64(kMaxFrameBytes);
    // How much is taken from the socket at a time, so that the system's buffer, not ours, holds
    // what a slow frame has not delivered yet.
    static constexpr qint64 kReadChunkBytes = 64 * 1024;
    // Room made for a read when nothing larger is on its way: a message is usually a few hundred
    // bytes, and the room stays with the buffer from one message to the next.
    static constexpr qint64 kReadRoomBytes = 4 * 1024;
    // The first frame a connecting process sends: its process id.
    static const QString kHelloName;

    ApplicationLink(LinkTransport* transport, std::shared_ptr<LinkBudget> budget, QObject* parent);
    ~ApplicationLink() override;

    bool SendFrame(const QString& name, const QVariantMap& data);
    bool IsOpen() const;
    void Close();
    // Ends the link for good when the hub shuts down: what was already sent still reaches the
    // peer if it reads before the deadline, nothing more is read, and the link goes away. A link
    // in the middle of telling the hub about a frame is only detached here and deletes itself
    // once control is back in the event loop, so its socket is never destroyed under its own
    // signal.
    void Dispose(const QDeadlineTimer& deadline);

    Application* GetApplication() const { return m_application; }
    void SetApplication(Application* application) { m_application = application; }
    bool HelloSeen() const { return m_helloSeen; }
    void SetHelloSeen() { m_helloSeen = true; }
    // The process at the other end as the system tells it; -1 when it cannot tell.
    qint64 PeerProcessId() const;

    static QByteArray EncodeFrame(const QString& name, const QVariantMap& data);

signals:
    void FrameReceived(Velmora::OstrelAdapter::ApplicationLink* link, const QString& name,
                       const QVariantMap& data);
    void Closed(Velmora::OstrelAdapter::ApplicationLink* link);

private:
    void ReadFrames();
    // Parses the complete frames at the start of the buffer, telling each one; false when the
    // link was closed on the way.
    bool TellCompleteFrames();
    // Brings the shared budget up to date with what this link holds now.
    void Recount();

    LinkTransport* m_transport;
    std::shared_ptr<LinkBudget> m_budget;
    qint64 m_counted = 0; // what this link has put on the budget
    QByteArray m_buffer;
    Application* m_application = nullptr;
    bool m_helloSeen = false;
    bool m_closed = false;
    bool m_reading = false;
};

} // namespace Velmora::OstrelAdapter
