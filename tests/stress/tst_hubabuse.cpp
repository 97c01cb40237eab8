// Hub abuse at volume: a thousand connections opened and dropped (some with garbage, oversize
// length prefixes, half frames or deeply nested values), and a process that runs out of file
// descriptors while peers keep connecting. Throughout, the hub keeps serving the real link it
// has, lets go of every dropped connection, and accepts new links again once descriptors are free.

#include <OstrelAdapter/ApplicationManager.h>

#include "HubTestSupport.h"

#include <QDeadlineTimer>
#include <QLocalSocket>
#include <QtTest>

#include <cstring>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Velmora::OstrelAdapter;
using namespace HubTest;

namespace {

ApplicationManager* Hub()
{
    return ApplicationManager::GetInstance();
}

bool WaitFor(const std::function<bool()>& condition, int milliseconds)
{
    return QTest::qWaitFor(condition, milliseconds);
}

int OpenDescriptors()
{
    return int(
        QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).size());
}

qint64 ResidentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
    {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

// A raw connection: nothing reads for it, it writes what it is told and goes.
int Connect(const QString& endpoint)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    sockaddr_un address;
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    const QByteArray path = QFile::encodeName(endpoint);
    std::memcpy(address.sun_path, path.constData(),
                size_t(qMin<qsizetype>(path.size(), sizeof(address.sun_path) - 1)));
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 && errno != EAGAIN)
    {
        ::close(fd);
        return -1;
    }
    return fd;
}

QByteArray Abuse(int i)
{
    switch (i % 6)
    {
    case 0:
        return QByteArray();
    case 1:
        return QByteArray("garbage that is no frame at all");
    case 2:
        return QByteArray("\xff\xff\xff\xf0", 4); // a frame far over the size limit
    case 3:
        return Hello(Self()).left(9); // half an introduction
    case 4:
    {
        QByteArray payload;
        QDataStream stream(&payload, QIODevice::WriteOnly);
        stream.setVersion(QDataStream::Qt_6_0);
        stream << QStringLiteral("DeepMsg") << quint32(1) << QStringLiteral("K");
        for (int level = 0; level < 5000; ++level)
            stream << quint32(QMetaType::QVariantList) << qint8(0) << quint32(1);
        return Hello(Self()) + FrameOfPayload(payload);
    }
    default:
        return Hello(Self()) + Frame(QStringLiteral("DroppedMsg"), {{QStringLiteral("N"), i}});
    }
}

} // namespace

class tst_HubAbuse : public QObject
{
    Q_OBJECT
private:
    Environment m_env;
    Recorder m_recorder;
    std::unique_ptr<QLocalSocket> m_good;
    int m_sent = 0;

    // The real link still delivers, in order.
    bool RealLinkServed()
    {
        const QString name = QStringLiteral("RealMsg");
        const int before = m_recorder.Count(name);
        m_good->write(Frame(name, {{QStringLiteral("N"), ++m_sent}}));
        m_good->flush();
        return WaitFor([&] { return m_recorder.Count(name) == before + 1; }, 15000);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("Receiver")));
        Hub()->AddMessageHandler(&m_recorder);
        m_good = std::make_unique<QLocalSocket>();
        m_good->connectToServer(Hub()->GetEndpoint());
        QVERIFY(m_good->waitForConnected(5000));
        m_good->write(Hello(Self()));
        QVERIFY(RealLinkServed());
    }
    void cleanupTestCase()
    {
        m_good.reset();
        ApplicationManager::Uninitialize();
    }

    void thousandConnectionsOpenedAndDropped()
    {
        const int descriptorsBefore = OpenDescriptors();
        const qint64 residentBefore = ResidentKiB();
        int opened = 0;
        for (int i = 0; i < 1000; ++i)
        {
            const int fd = Connect(Hub()->GetEndpoint());
            if (fd < 0)
            {
                QCoreApplication::processEvents();
                continue;
            }
            ++opened;
            const QByteArray bytes = Abuse(i);
            if (!bytes.isEmpty())
                (void)::send(fd, bytes.constData(), size_t(bytes.size()), MSG_NOSIGNAL);
            if (i % 10 == 0)
                QCoreApplication::processEvents();
            ::close(fd);
            if (i % 100 == 99)
                QVERIFY(RealLinkServed());
        }
        QVERIFY(opened >= 900);
        QVERIFY(RealLinkServed());
        // Every dropped connection is let go: descriptors and buffers come back.
        QVERIFY2(WaitFor([&] { return OpenDescriptors() <= descriptorsBefore + 2; }, 20000),
                 qPrintable(QStringLiteral("%1 descriptors open, %2 before")
                                .arg(OpenDescriptors())
                                .arg(descriptorsBefore)));
        QVERIFY(WaitFor([] { return Hub()->GetBufferedBytes() == 0; }, 20000));
        QCOMPARE(m_recorder.Count(QStringLiteral("DeepMsg")), 0);
        qInfo("%d connections opened and dropped; resident memory %lld KiB before, %lld KiB after", opened,
              residentBefore, ResidentKiB());
    }

    void descriptorsExhausted()
    {
        rlimit limit;
        QCOMPARE(::getrlimit(RLIMIT_NOFILE, &limit), 0);
        const rlimit saved = limit;
        // Room for a few more descriptors only: the hub runs out while peers keep coming.
        limit.rlim_cur = rlim_t(OpenDescriptors() + 12);
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &limit), 0);
        std::vector<int> peers;
        for (int i = 0; i < 40; ++i)
        {
            const int fd = Connect(Hub()->GetEndpoint());
            if (fd >= 0)
                peers.push_back(fd);
            QCoreApplication::processEvents();
        }
        QTest::qWait(500);
        const bool servedWhileExhausted = RealLinkServed();
        for (int fd : peers)
            ::close(fd);
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &saved), 0);
        QVERIFY2(servedWhileExhausted, "the real link stopped while descriptors ran out");
        QVERIFY(RealLinkServed());

        // Once descriptors are free again, new peers link as before.
        QLocalSocket late;
        late.connectToServer(Hub()->GetEndpoint());
        QVERIFY(late.waitForConnected(5000));
        late.write(Hello(Self()) + Frame(QStringLiteral("LateMsg"), {{QStringLiteral("N"), 1}}));
        late.flush();
        QVERIFY(WaitFor([this] { return m_recorder.Count(QStringLiteral("LateMsg")) == 1; }, 15000));
        qInfo("%d peers connected while the limit was %llu descriptors", int(peers.size()),
              static_cast<unsigned long long>(limit.rlim_cur));
    }
};

QTEST_GUILESS_MAIN(tst_HubAbuse)
#include "tst_hubabuse.moc"
