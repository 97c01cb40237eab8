#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <QLocalSocket>
#include <QObject>
#include <QVariantMap>

namespace Velmora::OstrelAdapter {

class Application;

// One two-way link between this process and another: length-prefixed frames each holding a
// message name and its data. A frame that is too large or does not parse closes the link.
class ApplicationLink : public QObject
{
    Q_OBJECT
public:
    // Frames above this size are refused in both directions: a peer cannot make the receiver
    // allocate without bound.
    static constexpr quint32 kMaxFrameBytes = 16u * 1024u * 1024u;
    // The first frame a connecting process sends: its process id.
    static const QString kHelloName;

    ApplicationLink(QLocalSocket* socket, QObject* parent);
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

    static QByteArray EncodeFrame(const QString& name, const QVariantMap& data);

signals:
    void FrameReceived(Velmora::OstrelAdapter::ApplicationLink* link, const QString& name, const QVariantMap& data);
    void Closed(Velmora::OstrelAdapter::ApplicationLink* link);

private:
    void ReadFrames();
    // Parses the complete frames at the start of the buffer, telling each one; false when the
    // link was closed on the way.
    bool TellCompleteFrames();

    QLocalSocket* m_socket;
    QByteArray m_buffer;
    Application* m_application = nullptr;
    bool m_helloSeen = false;
    bool m_closed = false;
    bool m_reading = false;
};

} // namespace Velmora::OstrelAdapter
