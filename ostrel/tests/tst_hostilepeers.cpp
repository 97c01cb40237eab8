// SPDX-License-Identifier: MIT
// What a hostile process of the same user may try against a hub, and what the hub has to survive:
// deeply nested values, frames it never finishes, a peer that never reads, introductions in bulk,
// type names of the peer's choosing, and connections that only sit there.

#include <OstrelAdapter/ApplicationManager.h>

#include "HubTestSupport.h"

#include <QDeadlineTimer>
#include <QLocalSocket>
#include <QProcess>
#include <QtTest>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Velmora::OstrelAdapter;
using namespace HubTest;

namespace {

// What a hub may hold in its link buffers, as its interface promises.
constexpr qint64 kBufferLimit = 64LL * 1024 * 1024;
constexpr quint32 kLargestFrame = 16u * 1024u * 1024u;

QByteArray NestedPayloadValue(int levels)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    for (int i = 0; i < levels; ++i)
        stream << quint32(QMetaType::QVariantList) << qint8(0) << quint32(1);
    stream << quint32(QMetaType::Int) << qint8(0) << qint32(7);
    return bytes;
}

// A frame whose one value is `levels` lists, each holding the next, around a number; written by
// hand, since writing it through a stream would recurse as deeply as reading it.
QByteArray NestedFrame(int levels)
{
    QByteArray payload;
    QDataStream stream(&payload, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << QStringLiteral("DeepMsg") << quint32(1) << QStringLiteral("K");
    return FrameOfPayload(payload + NestedPayloadValue(levels));
}

QVariant Nested(int levels)
{
    QVariant value = 7;
    for (int i = 0; i < levels; ++i)
        value = QVariantList{value};
    return value;
}

// A frame with one value of a type the peer names itself.
QByteArray NamedTypeFrame(const QByteArray& typeName)
{
    QByteArray payload;
    QDataStream stream(&payload, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << QStringLiteral("NamedMsg") << quint32(1) << QStringLiteral("K");
    stream << quint32(QMetaType::User) << qint8(0) << typeName.constData() << qint32(1);
    return FrameOfPayload(payload);
}

QByteArray TypeIdFrame(quint32 typeId)
{
    QByteArray payload;
    QDataStream stream(&payload, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << QStringLiteral("TypeMsg") << quint32(1) << QStringLiteral("K") << typeId << qint8(0)
           << qint32(1);
    return FrameOfPayload(payload);
}

// A frame with one date-time value whose time-kind byte is kind (0 local, 1 UTC, 2 offset; any
// other byte is none of them), written by hand as the stream would.
QByteArray DateTimeFrame(quint8 kind)
{
    QByteArray payload;
    QDataStream stream(&payload, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << QStringLiteral("DateMsg") << quint32(1) << QStringLiteral("K") << quint32(QMetaType::QDateTime)
           << qint8(0) << qint64(2457000) << quint32(3600000) << kind;
    if (kind == 2)
        stream << qint32(7200);
    return FrameOfPayload(payload);
}

QByteArray LengthOnly(quint32 length)
{
    QByteArray prefix(4, '\0');
    qToBigEndian<quint32>(length, prefix.data());
    return prefix;
}

// A connection made with the system's own calls, so that nothing reads for it unless told to:
// what a hostile process holds.
class RawPeer
{
public:
    explicit RawPeer(const QString& endpoint)
    {
        m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_un address;
        std::memset(&address, 0, sizeof(address));
        address.sun_family = AF_UNIX;
        const QByteArray path = QFile::encodeName(endpoint);
        if (m_fd < 0 || path.size() >= qsizetype(sizeof(address.sun_path)))
        {
            Drop();
            return;
        }
        std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
        if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
            Drop();
    }
    ~RawPeer() { Drop(); }
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    bool IsOpen() const { return m_fd >= 0; }
    // Writes all of bytes, letting this thread's event loop (and so a hub in this process) read
    // meanwhile; false once the other end has closed.
    bool WriteAll(const QByteArray& bytes, ApplicationManager* watched = nullptr,
                  qint64* mostBuffered = nullptr)
    {
        qsizetype done = 0;
        const QDeadlineTimer patience(60000);
        while (m_fd >= 0 && done < bytes.size() && !patience.hasExpired())
        {
            const ssize_t written =
                ::send(m_fd, bytes.constData() + done, size_t(bytes.size() - done), MSG_NOSIGNAL);
            if (written < 0 && errno != EAGAIN && errno != EWOULDBLOCK)
                return false;
            if (written > 0)
                done += written;
            QCoreApplication::processEvents();
            if (watched && mostBuffered)
                *mostBuffered = qMax(*mostBuffered, watched->GetBufferedBytes());
        }
        return done == bytes.size();
    }
    // Whether the hub has let this connection go (what it sent before may still be unread).
    bool ClosedByOtherEnd() const
    {
        if (m_fd < 0)
            return true;
        char byte;
        for (;;)
        {
            const ssize_t got = ::recv(m_fd, &byte, 1, MSG_DONTWAIT);
            if (got > 0)
                continue;
            return got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
        }
    }

private:
    void Drop()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }
    int m_fd = -1;
};

bool WaitFor(const std::function<bool()>& condition, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition())
    {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(1);
    }
    return true;
}

// A hub peer in a child process whose standard error is kept.
class ChildHub
{
public:
    explicit ChildHub(const QMap<QString, QString>& extra = {})
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QStringLiteral("QT_LOGGING_RULES"));
        for (auto it = extra.cbegin(); it != extra.cend(); ++it)
            environment.insert(it.key(), it.value());
        m_process.setProcessEnvironment(environment);
        m_process.setProgram(QStringLiteral(VMWF_HUBPEER));
        m_process.start();
    }
    ~ChildHub()
    {
        if (m_process.state() != QProcess::NotRunning)
        {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }
    bool Listening()
    {
        if (!m_process.waitForStarted(10000))
            return false;
        const QString endpoint = Endpoint();
        return WaitFor([&endpoint]() { return QFileInfo::exists(endpoint); }, 10000);
    }
    qint64 ProcessId() const { return m_process.processId(); }
    QString Endpoint() const { return ApplicationManager::EndpointFor(ProcessId()); }
    // Links with the child and has it echo once, linking again while the link is lost before the
    // echo comes back (a connection the system queued for a child that could not take it yet is
    // lost with it), then tells it to quit.
    bool EchoThenQuit(Recorder& recorder, int patienceMs)
    {
        Application* child = ApplicationManager::GetInstance()->GetApplication(ProcessId());
        const QDeadlineTimer patience(patienceMs);
        bool echoed = false;
        while (child && !echoed && !patience.hasExpired())
        {
            if (child->Connect(int(qMax(qint64(1), patience.remainingTime()))) != Application::Linked)
                return false;
            ApplicationMessage echo(QStringLiteral("EchoMsg"), {{QStringLiteral("Token"), ProcessId()}});
            if (!child->Send(&echo))
                continue;
            WaitFor(
                [&recorder, &echoed, child, this]() {
                    echoed = recorder.First(QStringLiteral("EchoReplyMsg"))
                                 .value(QStringLiteral("Token"))
                                 .toLongLong() == ProcessId();
                    return echoed || !child->IsConnected();
                },
                10000);
        }
        if (!echoed)
            return false;
        ApplicationMessage quit(QStringLiteral("QuitMsg"), {});
        child->Send(&quit);
        return WaitFor([this]() { return m_process.state() == QProcess::NotRunning; }, 10000) &&
               m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
    }
    QByteArray StandardError() { return m_process.readAllStandardError(); }

private:
    QProcess m_process;
};

} // namespace

class tst_HostilePeers : public QObject
{
    Q_OBJECT
private:
    Environment m_env;
    Recorder m_recorder;
    ApplicationManager* Hub() { return ApplicationManager::GetInstance(); }

    // An introduced link of this process, proving the hub still serves others.
    bool OthersAreStillServed(const QString& name)
    {
        QLocalSocket good;
        good.connectToServer(Hub()->GetEndpoint());
        if (!good.waitForConnected(2000))
            return false;
        good.write(Hello(Self()) + Frame(name, {{QStringLiteral("N"), 1}}));
        good.flush();
        return WaitFor([this, &name]() { return m_recorder.Count(name) == 1; }, 10000);
    }

private slots:
    void initTestCase() { QVERIFY(m_env.Setup()); }
    void init()
    {
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("Launcher")));
        m_recorder = Recorder();
        Hub()->AddMessageHandler(&m_recorder);
    }
    void cleanup() { ApplicationManager::Uninitialize(); }

    void deepNestingClosesOnlyThatLink_data()
    {
        QTest::addColumn<int>("levels");
        QTest::addColumn<bool>("introduced");
        QTest::newRow("30000 levels as the first frame") << 30000 << false;
        QTest::newRow("30000 levels") << 30000 << true;
        QTest::newRow("100000 levels") << 100000 << true;
        QTest::newRow("one level too deep") << 32 << true;
    }
    void deepNestingClosesOnlyThatLink()
    {
        QFETCH(int, levels);
        QFETCH(bool, introduced);
        RawPeer bad(Hub()->GetEndpoint());
        QVERIFY(bad.IsOpen());
        bad.WriteAll((introduced ? Hello(Self()) : QByteArray()) + NestedFrame(levels));
        QVERIFY(WaitFor([&bad]() { return bad.ClosedByOtherEnd(); }, 10000));
        QCOMPARE(m_recorder.Count(QStringLiteral("DeepMsg")), 0);
        QVERIFY(OthersAreStillServed(QStringLiteral("StillHereMsg")));
    }

    void dateTimesOfUnknownKindCloseTheLink_data()
    {
        QTest::addColumn<int>("kind");
        QTest::newRow("named zone") << 3;
        // Bytes whose low bits say "named zone" were once taken for a zone without a name.
        QTest::newRow("0x23") << 0x23;
        QTest::newRow("0x07") << 0x07;
        QTest::newRow("0xff") << 0xff;
    }
    void dateTimesOfUnknownKindCloseTheLink()
    {
        QFETCH(int, kind);
        RawPeer bad(Hub()->GetEndpoint());
        QVERIFY(bad.IsOpen());
        bad.WriteAll(Hello(Self()) + DateTimeFrame(quint8(kind)));
        QVERIFY(WaitFor([&bad]() { return bad.ClosedByOtherEnd(); }, 10000));
        QCOMPARE(m_recorder.Count(QStringLiteral("DateMsg")), 0);
        QVERIFY(OthersAreStillServed(QStringLiteral("StillHereMsg")));
    }

    void dateTimesOfTheThreePlainKindsArrive()
    {
        RawPeer peer(Hub()->GetEndpoint());
        QVERIFY(peer.WriteAll(Hello(Self()) + DateTimeFrame(0) + DateTimeFrame(1) + DateTimeFrame(2)));
        QVERIFY(WaitFor([this]() { return m_recorder.Count(QStringLiteral("DateMsg")) == 3; }, 10000));
        QVERIFY(
            m_recorder.First(QStringLiteral("DateMsg")).value(QStringLiteral("K")).toDateTime().isValid());
        QVERIFY(!peer.ClosedByOtherEnd());
    }

    void nestingWithinTheLimitArrives()
    {
        // The data map and 31 lists inside it: 32 levels in all.
        RawPeer peer(Hub()->GetEndpoint());
        QVERIFY(peer.WriteAll(Hello(Self()) + NestedFrame(31)));
        QVERIFY(WaitFor([this]() { return m_recorder.Count(QStringLiteral("DeepMsg")) == 1; }, 10000));
        QCOMPARE(m_recorder.First(QStringLiteral("DeepMsg")),
                 (QVariantMap{{QStringLiteral("K"), Nested(31)}}));
        QVERIFY(!peer.ClosedByOtherEnd());
    }

    void unfinishedFramesStayWithinTheBufferLimit()
    {
        // Twenty peers each start a frame of the largest size and deliver six megabytes of it.
        std::vector<std::unique_ptr<RawPeer>> peers;
        for (int i = 0; i < 20; ++i)
        {
            peers.push_back(std::make_unique<RawPeer>(Hub()->GetEndpoint()));
            QVERIFY(peers.back()->WriteAll(Hello(Self()) + LengthOnly(kLargestFrame)));
        }
        const QByteArray megabyte(1024 * 1024, 'm');
        qint64 mostBuffered = 0;
        for (int round = 0; round < 6; ++round)
        {
            for (auto& peer : peers)
            {
                if (!peer->ClosedByOtherEnd())
                    peer->WriteAll(megabyte, Hub(), &mostBuffered);
            }
        }
        int dropped = 0;
        for (auto& peer : peers)
            dropped += peer->ClosedByOtherEnd() ? 1 : 0;
        QVERIFY2(mostBuffered <= kBufferLimit, qPrintable(QString::number(mostBuffered)));
        // The limit was reached, not merely approached, and the links that went beyond it went.
        QVERIFY2(mostBuffered > kBufferLimit - 2 * megabyte.size(),
                 qPrintable(QString::number(mostBuffered)));
        QVERIFY(dropped > 0);
        QVERIFY(OthersAreStillServed(QStringLiteral("AfterFloodMsg")));
        peers.clear();
        QVERIFY(WaitFor([this]() { return Hub()->GetBufferedBytes() == 0; }, 10000));
    }

    void peerThatNeverReadsIsDropped()
    {
        RawPeer sink(Hub()->GetEndpoint());
        QVERIFY(sink.WriteAll(Hello(Self())));
        QVERIFY(WaitFor([this]() { return m_recorder.links.size() == 1; }, 10000));
        Application* peer = m_recorder.links.first();
        QVERIFY(peer->IsConnected());
        const QByteArray megabyte(1024 * 1024, 'o');
        qint64 mostBuffered = 0;
        int sent = 0;
        for (; sent < 200; ++sent)
        {
            ApplicationMessage block(QStringLiteral("BlockMsg"), {{QStringLiteral("Block"), megabyte}});
            if (!peer->Send(&block))
                break;
            QCoreApplication::processEvents();
            mostBuffered = qMax(mostBuffered, Hub()->GetBufferedBytes());
        }
        QVERIFY2(sent < 200, "every message was queued for a peer that reads nothing");
        QVERIFY2(mostBuffered <= kBufferLimit, qPrintable(QString::number(mostBuffered)));
        QVERIFY(!peer->IsConnected());
        QVERIFY(WaitFor([this]() { return Hub()->GetBufferedBytes() == 0; }, 10000));
        QVERIFY(WaitFor([&sink]() { return sink.ClosedByOtherEnd(); }, 10000));
    }

    void introductionsNameTheirOwnProcess()
    {
        // A thousand introductions in the name of other processes start no link and leave nothing.
        for (int batch = 0; batch < 20; ++batch)
        {
            std::vector<std::unique_ptr<QLocalSocket>> sockets;
            for (int i = 0; i < 50; ++i)
            {
                auto socket = std::make_unique<QLocalSocket>();
                socket->connectToServer(Hub()->GetEndpoint());
                QVERIFY(socket->waitForConnected(2000));
                socket->write(Hello(Self() + 1 + batch * 50 + i));
                socket->flush();
                sockets.push_back(std::move(socket));
            }
            QVERIFY(WaitFor(
                [&sockets]() {
                    for (const auto& socket : sockets)
                    {
                        if (socket->state() != QLocalSocket::UnconnectedState)
                            return false;
                    }
                    return true;
                },
                10000));
        }
        QVERIFY(m_recorder.links.isEmpty());
        // A hundred in its own name all stand for the one application of this process.
        std::vector<std::unique_ptr<QLocalSocket>> own;
        for (int batch = 1; batch <= 2; ++batch)
        {
            for (int i = 0; i < 50; ++i)
            {
                auto socket = std::make_unique<QLocalSocket>();
                socket->connectToServer(Hub()->GetEndpoint());
                QVERIFY(socket->waitForConnected(2000));
                socket->write(Hello(Self()));
                socket->flush();
                own.push_back(std::move(socket));
            }
            QVERIFY(WaitFor([this, batch]() { return m_recorder.links.size() == batch * 50; }, 10000));
        }
        for (Application* application : std::as_const(m_recorder.links))
            QCOMPARE(application, Hub()->GetApplication(Self()));
        own.clear();
        QVERIFY(WaitFor([this]() { return Hub()->GetBufferedBytes() == 0; }, 10000));
        QVERIFY(OthersAreStillServed(QStringLiteral("AfterIntroductionsMsg")));
    }

    void hostileFramesPrintNothing()
    {
        ChildHub child;
        QVERIFY(child.Listening());
        const QList<QByteArray> hostile = {
            Hello(Self()) + NamedTypeFrame("EvilType"),
            NamedTypeFrame("AnotherEvilType"),
            Hello(Self()) + TypeIdFrame(0x7fffu),
            Hello(Self()) + TypeIdFrame(QMetaType::QObjectStar),
            Hello(Self()) + QByteArray("\x00\x00\x00\x06\x00\x00\x00\x06"
                                       "ab",
                                       10),
            Hello(Self()) + LengthOnly(0xffffffffu),
            QByteArray("garbage that is no frame at all"),
        };
        for (const QByteArray& bytes : hostile)
        {
            RawPeer peer(child.Endpoint());
            QVERIFY(peer.IsOpen());
            peer.WriteAll(bytes);
            QVERIFY(WaitFor([&peer]() { return peer.ClosedByOtherEnd(); }, 10000));
        }
        QVERIFY(child.EchoThenQuit(m_recorder, 10000));
        QCOMPARE(child.StandardError(), QByteArray());
    }

    void idleConnectionIsLetGo()
    {
        RawPeer idle(Hub()->GetEndpoint());
        QVERIFY(idle.IsOpen());
        QVERIFY(WaitFor([&idle]() { return idle.ClosedByOtherEnd(); }, 20000));
        QVERIFY(m_recorder.links.isEmpty());
    }

    void idleConnectionsCannotTakeTheEndpoint()
    {
        // The child may open few files, so that idle connections use up its descriptors soon.
        ChildHub child({{QStringLiteral("VMWF_PEER_NOFILE"), QStringLiteral("48")}});
        QVERIFY(child.Listening());
        // More connections than the child may hold descriptors: those it accepted and those the
        // kernel queues for it. A connection refused because the queue is full is tried again
        // once the child has had a moment to accept, so a slow child cannot make this too few.
        std::vector<std::unique_ptr<RawPeer>> idle;
        int opened = 0;
        const QDeadlineTimer patience(30000);
        for (int attempt = 0; attempt < 1000 && opened < 60 && !patience.hasExpired(); ++attempt)
        {
            auto peer = std::make_unique<RawPeer>(child.Endpoint());
            if (peer->IsOpen())
            {
                ++opened;
                idle.push_back(std::move(peer));
            }
            else
            {
                QThread::msleep(20);
            }
            QCoreApplication::processEvents();
        }
        QVERIFY2(opened > 48, qPrintable(QString::number(opened)));
        // The idle connections stay open on this side; the child still lets a real peer link.
        QVERIFY(child.EchoThenQuit(m_recorder, 60000));
    }
};

QTEST_GUILESS_MAIN(tst_HostilePeers)
#include "tst_hostilepeers.moc"
