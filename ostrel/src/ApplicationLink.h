#pragma once

#include <QByteArray>
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
    // Frames above this size are refused: a peer cannot make the receiver allocate without bound.
    static constexpr quint32 kMaxFrameBytes = 16u * 1024u * 1024u;
    // The first frame a connecting process sends: its process id.
    static const QString kHelloName;

    ApplicationLink(QLocalSocket* socket, QObject* parent);
    ~ApplicationLink() override;

    bool SendFrame(const QString& name, const QVariantMap& data);
    bool IsOpen() const;
    void Close();

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

    QLocalSocket* m_socket;
    QByteArray m_buffer;
    Application* m_application = nullptr;
    bool m_helloSeen = false;
    bool m_closed = false;
};

} // namespace Velmora::OstrelAdapter
