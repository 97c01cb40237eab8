// SPDX-License-Identifier: MIT
// Starting applications and linking with them: a real helper process started from a manifest,
// messages both ways, order, and what bad peers cannot do to a receiver.

#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/OstrelAdapterUtility.h>

#include "HubTestSupport.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QLocalSocket>
#include <QtEndian>
#include <QtTest>

#include <signal.h>

using namespace Velmora::OstrelAdapter;
using namespace HubTest;

namespace {

bool ProcessRuns(qint64 processId)
{
    return ::kill(pid_t(processId), 0) == 0;
}

} // namespace

class tst_ApplicationLinks : public QObject
{
    Q_OBJECT
private:
    Environment m_env;
    Recorder m_recorder;
    ApplicationManager* Hub() { return ApplicationManager::GetInstance(); }
    ApplicationInfo Peer()
    {
        return Hub()->GetInstalledApplications(QStringLiteral("Id_HubPeer"), QString()).value(0);
    }

    Application* StartPeer(const QStringList& arguments = {}, const QMap<QString, QString>& environment = {})
    {
        Application::StartupError error = Application::CouldNotStart;
        Application* peer = Hub()->StartApplication(Peer(), arguments, environment, &error);
        if (peer && error == Application::NoError && peer->Connect(10000) == 0)
            return peer;
        return nullptr;
    }
    void StopPeer(Application* peer)
    {
        ApplicationMessage quit(QStringLiteral("QuitMsg"), {});
        peer->Send(&quit);
        QTRY_VERIFY_WITH_TIMEOUT(!ProcessRuns(peer->GetProcessId()), 10000);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(WriteManifest(m_env.ExtraFolder() + QStringLiteral("/hubpeer.xml"),
                              Manifest(QStringLiteral("Id_HubPeer"), QStringLiteral("2017.0"),
                                       QStringLiteral(VMWF_HUBPEER), 4242)));
        QVERIFY(WriteManifest(m_env.ExtraFolder() + QStringLiteral("/gone.xml"),
                              Manifest(QStringLiteral("Id_Gone"), QStringLiteral("1"),
                                       m_env.Path(QStringLiteral("no-such-program")))));
        QVERIFY(WriteManifest(m_env.Path(QStringLiteral("plain")), "not a program"));
        QVERIFY(WriteManifest(
            m_env.ExtraFolder() + QStringLiteral("/plain.xml"),
            Manifest(QStringLiteral("Id_Plain"), QStringLiteral("1"), m_env.Path(QStringLiteral("plain")))));
    }
    void init()
    {
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("Launcher")));
        m_recorder = Recorder();
        Hub()->AddMessageHandler(&m_recorder);
    }
    void cleanup() { ApplicationManager::Uninitialize(); }

    void endpointFolderIsPrivate()
    {
        const QFile::Permissions ownerOnly = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                             QFile::ReadUser | QFile::WriteUser | QFile::ExeUser;
        const QString endpoint = Hub()->GetEndpoint();
        QVERIFY(!endpoint.isEmpty());
        QVERIFY(endpoint.startsWith(m_env.Path(QStringLiteral("runtime/"))));
        QVERIFY(endpoint.endsWith(QLatin1Char('/') + QString::number(QCoreApplication::applicationPid())));
        const QString folder = QFileInfo(endpoint).absolutePath();
        QCOMPARE(QFileInfo(folder).permissions(), ownerOnly);
        // A folder someone opened up is closed again before the next endpoint goes into it.
        ApplicationManager::Uninitialize();
        QVERIFY(QFile::setPermissions(folder, ownerOnly | QFile::ReadGroup | QFile::ExeGroup |
                                                  QFile::ReadOther | QFile::ExeOther));
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("Launcher")));
        QCOMPARE(Hub()->GetEndpoint(), endpoint);
        QCOMPARE(QFileInfo(folder).permissions(), ownerOnly);
    }

    void startingFailsFast()
    {
        QElapsedTimer timer;
        timer.start();
        Application::StartupError error = Application::NoError;
        QVERIFY(!Hub()->StartApplication(ApplicationInfo(), {}, {}, &error));
        QCOMPARE(error, Application::ApplicationNotFound);
        const ApplicationInfo gone =
            Hub()->GetInstalledApplications(QStringLiteral("Id_Gone"), QString()).value(0);
        QVERIFY(gone.IsValid());
        QVERIFY(!Hub()->StartApplication(gone, {}, {}, &error));
        QCOMPARE(error, Application::ExecutableMissing);
        const ApplicationInfo plain =
            Hub()->GetInstalledApplications(QStringLiteral("Id_Plain"), QString()).value(0);
        QVERIFY(!Hub()->StartApplication(plain, {}, {}, &error));
        QCOMPARE(error, Application::CouldNotStart);
        QVERIFY(!Hub()->StartApplication(gone, {}, {}, nullptr));
        QVERIFY(timer.elapsed() < 5000);
    }

    void argumentsEnvironmentAndProcessIdArriveExactly()
    {
        const QStringList arguments = {QStringLiteral("/tmp/Temp_A b_{1}.workflow?Id_X"),
                                       QStringLiteral("/Locale=de-DE"),
                                       QStringLiteral("/WorkflowSearchPath=a b;c\"d"),
                                       QStringLiteral("with \"quotes\" and 'single'"),
                                       QString(),
                                       QStringLiteral("?"),
                                       QStringLiteral("ünï ¢ødé")};
        QMap<QString, QString> environment;
        environment.insert(QStringLiteral("VMWF_PEER_VALUE"),
                           QStringLiteral("a value = with spaces; and \"quotes\""));
        Application* peer = StartPeer(arguments, environment);
        QVERIFY(peer);
        QVERIFY(peer->IsConnected());
        QTRY_COMPARE_WITH_TIMEOUT(m_recorder.Count(QStringLiteral("PeerStartedMsg")), 1, 10000);
        const QVariantMap report = m_recorder.First(QStringLiteral("PeerStartedMsg"));
        QCOMPARE(report.value(QStringLiteral("Arguments")).toStringList(), arguments);
        QCOMPARE(report.value(QStringLiteral("Environment")).toString(),
                 environment.value(QStringLiteral("VMWF_PEER_VALUE")));
        QCOMPARE(report.value(QStringLiteral("ProcessId")).toLongLong(), peer->GetProcessId());
        // The peer was told of the link with an application standing for this process.
        QCOMPARE(report.value(QStringLiteral("LinkedProcessId")).toLongLong(),
                 QCoreApplication::applicationPid());
        StopPeer(peer);
    }

    void messagesGoBothWaysWithTheirDataIntact()
    {
        Application* peer = StartPeer();
        QVERIFY(peer);
        QVariantMap data;
        data.insert(QStringLiteral("Text"), QStringLiteral("Grüße, \"workflow\" ✓"));
        data.insert(QStringLiteral("Number"), 42);
        data.insert(QStringLiteral("Big"), qint64(1) << 40);
        data.insert(QStringLiteral("Real"), 2.5);
        data.insert(QStringLiteral("List"), QStringList{QStringLiteral("a"), QString(), QStringLiteral("c")});
        data.insert(QStringLiteral("Mixed"), QVariantList{1, QStringLiteral("two"), 3.0});
        ApplicationMessage echo(QStringLiteral("EchoMsg"), data);
        QVERIFY(peer->Send(&echo));
        QTRY_COMPARE_WITH_TIMEOUT(m_recorder.Count(QStringLiteral("EchoReplyMsg")), 1, 10000);
        QCOMPARE(m_recorder.First(QStringLiteral("EchoReplyMsg")), data);
        StopPeer(peer);
    }

    void thousandMessagesArriveInOrder()
    {
        Application* peer = StartPeer();
        QVERIFY(peer);
        for (int i = 0; i < 1000; ++i)
        {
            QVariantMap data;
            data.insert(QStringLiteral("Sequence"), i);
            data.insert(QStringLiteral("Padding"), QString(100, QLatin1Char('x')));
            ApplicationMessage message(QStringLiteral("EchoMsg"), data);
            QVERIFY(peer->Send(&message));
        }
        QTRY_COMPARE_WITH_TIMEOUT(m_recorder.Count(QStringLiteral("EchoReplyMsg")), 1000, 20000);
        int expected = 0;
        for (const auto& message : std::as_const(m_recorder.messages))
        {
            if (message.first == QLatin1String("EchoReplyMsg"))
                QCOMPARE(message.second.value(QStringLiteral("Sequence")).toInt(), expected++);
        }
        StopPeer(peer);
    }

    void largeMessagesUnderBackPressureArriveWholeAndInOrder()
    {
        // Far more than the system buffers for a socket, handed over in both directions without
        // waiting: what the system does not take at once waits its turn on either side.
        Application* peer = StartPeer();
        QVERIFY(peer);
        const int count = 64;
        const int bytes = 200 * 1024;
        for (int i = 0; i < count; ++i)
        {
            ApplicationMessage message(QStringLiteral("EchoMsg"),
                                       {{QStringLiteral("Sequence"), i},
                                        {QStringLiteral("Block"), QByteArray(bytes, char('a' + i % 26))}});
            QVERIFY(peer->Send(&message));
        }
        QTRY_COMPARE_WITH_TIMEOUT(m_recorder.Count(QStringLiteral("EchoReplyMsg")), count, 30000);
        int expected = 0;
        for (const auto& message : std::as_const(m_recorder.messages))
        {
            if (message.first != QLatin1String("EchoReplyMsg"))
                continue;
            QCOMPARE(message.second.value(QStringLiteral("Sequence")).toInt(), expected);
            QCOMPARE(message.second.value(QStringLiteral("Block")).toByteArray(),
                     QByteArray(bytes, char('a' + expected % 26)));
            ++expected;
        }
        QVERIFY(peer->IsConnected());
        StopPeer(peer);
    }

    void handlerThatSpinsTheEventLoopSeesLaterFramesAfterItReturns()
    {
        // On the first message the handler has the peer send two more and then spins the event
        // loop: those two are told after the handler has returned, in the order they were sent.
        class Spinner : public ApplicationMessageHandler
        {
        public:
            void ApplicationLinkStarted(Application*) override {}
            void MessageReceived(ApplicationMessage* message) override
            {
                if (message->GetName() != QLatin1String("FirstMsg"))
                    return;
                peer->write(Frame(QStringLiteral("SecondMsg"), {{QStringLiteral("N"), 2}}));
                peer->write(Frame(QStringLiteral("ThirdMsg"), {{QStringLiteral("N"), 3}}));
                peer->flush();
                QElapsedTimer spinning;
                spinning.start();
                while (!spinning.hasExpired(300))
                    QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
                toldWhileSpinning = recorder->Count(QStringLiteral("SecondMsg")) +
                                    recorder->Count(QStringLiteral("ThirdMsg"));
            }
            QLocalSocket* peer = nullptr;
            Recorder* recorder = nullptr;
            int toldWhileSpinning = -1;
        };
        QLocalSocket raw;
        raw.connectToServer(Hub()->GetEndpoint());
        QVERIFY(raw.waitForConnected(2000));
        Spinner spinner;
        spinner.peer = &raw;
        spinner.recorder = &m_recorder;
        Hub()->AddMessageHandler(&spinner);
        raw.write(Hello(Self()));
        raw.write(Frame(QStringLiteral("FirstMsg"), {}));
        raw.flush();
        QTRY_COMPARE_WITH_TIMEOUT(m_recorder.messages.size(), 3, 10000);
        Hub()->RemoveMessageHandler(&spinner);
        QCOMPARE(spinner.toldWhileSpinning, 0);
        QCOMPARE(m_recorder.messages.at(0).first, QStringLiteral("FirstMsg"));
        QCOMPARE(m_recorder.messages.at(1).first, QStringLiteral("SecondMsg"));
        QCOMPARE(m_recorder.messages.at(2).first, QStringLiteral("ThirdMsg"));
        QCOMPARE(m_recorder.messages.at(2).second.value(QStringLiteral("N")).toInt(), 3);
        QCOMPARE(raw.state(), QLocalSocket::ConnectedState);
    }

    void connectToAProcessThatDoesNotListenFailsWithinItsTimeout()
    {
        // Our own parent runs but never initialised the hub.
        Application* silent = Hub()->GetApplication(qint64(::getppid()));
        QVERIFY(silent);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(silent->Connect(300), int(Application::NotListening));
        QVERIFY(timer.elapsed() >= 250);
        QVERIFY(timer.elapsed() < 3000);
        QVERIFY(!silent->IsConnected());
        ApplicationMessage message(QStringLiteral("AnyMsg"), {});
        QVERIFY(!silent->Send(&message));
        QVERIFY(!Hub()->GetApplication(0));
    }

    void linkStartedReachesTheListener()
    {
        QLocalSocket raw;
        raw.connectToServer(Hub()->GetEndpoint());
        QVERIFY(raw.waitForConnected(2000));
        raw.write(Hello(Self()));
        raw.write(Frame(QStringLiteral("FromRawMsg"), {{QStringLiteral("K"), QStringLiteral("V")}}));
        raw.flush();
        QTRY_COMPARE(m_recorder.links.size(), 1);
        QCOMPARE(m_recorder.links.first()->GetProcessId(), Self());
        QTRY_COMPARE(m_recorder.Count(QStringLiteral("FromRawMsg")), 1);
        // The link is two-way: what the listener sends goes back over the same socket.
        ApplicationMessage reply(QStringLiteral("BackMsg"), {{QStringLiteral("N"), 7}});
        QVERIFY(m_recorder.links.first()->Send(&reply));
        QTRY_VERIFY(raw.bytesAvailable() >= 4);
        raw.waitForReadyRead(100);
        const QByteArray bytes = raw.readAll();
        QCOMPARE(bytes, Frame(QStringLiteral("BackMsg"), {{QStringLiteral("N"), 7}}));
    }

    void badFramesCloseOnlyTheirLink_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("hello");
        QByteArray oversize(4, '\0');
        qToBigEndian<quint32>(64u * 1024u * 1024u, oversize.data());
        QByteArray huge(4, '\xff');
        QTest::newRow("garbage before hello") << QByteArray("\x00\x00\x00\x05garbage and more", 20) << false;
        QTest::newRow("garbage after hello") << QByteArray("\x00\x00\x00\x05garbage and more", 20) << true;
        QTest::newRow("oversize length") << oversize + QByteArray(100, 'x') << true;
        QTest::newRow("largest length") << huge << true;
        // A frame of the right length whose string claims more bytes than the frame holds.
        QTest::newRow("payload that does not parse") << QByteArray("\x00\x00\x00\x06\x00\x00\x00\x06"
                                                                   "ab",
                                                                   10)
                                                     << true;
        QTest::newRow("message before hello") << Frame(QStringLiteral("SneakyMsg"), {}) << false;
        QTest::newRow("empty name") << Frame(QString(), {}) << true;
        QTest::newRow("bad hello") << Frame(QStringLiteral("OstrelAdapter.LinkHello"), {}) << false;
    }
    void badFramesCloseOnlyTheirLink()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, hello);

        QLocalSocket good;
        good.connectToServer(Hub()->GetEndpoint());
        QVERIFY(good.waitForConnected(2000));
        good.write(Hello(Self()));
        good.flush();
        QTRY_COMPARE(m_recorder.links.size(), 1);

        QLocalSocket bad;
        bad.connectToServer(Hub()->GetEndpoint());
        QVERIFY(bad.waitForConnected(2000));
        if (hello)
            bad.write(Hello(Self()));
        bad.write(bytes);
        bad.flush();
        QTRY_COMPARE_WITH_TIMEOUT(bad.state(), QLocalSocket::UnconnectedState, 5000);
        QCOMPARE(m_recorder.Count(QStringLiteral("SneakyMsg")), 0);

        good.write(Frame(QStringLiteral("StillHereMsg"), {}));
        good.flush();
        QTRY_COMPARE(m_recorder.Count(QStringLiteral("StillHereMsg")), 1);
        QCOMPARE(good.state(), QLocalSocket::ConnectedState);
    }

    void truncatedFrameNeitherBlocksNorCrashes()
    {
        QLocalSocket good;
        good.connectToServer(Hub()->GetEndpoint());
        QVERIFY(good.waitForConnected(2000));
        good.write(Hello(Self()));
        good.flush();
        {
            QLocalSocket cut;
            cut.connectToServer(Hub()->GetEndpoint());
            QVERIFY(cut.waitForConnected(2000));
            cut.write(Hello(Self()));
            cut.write(
                Frame(QStringLiteral("CutMsg"), {{QStringLiteral("X"), QString(1000, QLatin1Char('x'))}})
                    .left(500));
            cut.flush();
            QTest::qWait(100);
        } // the peer goes away in the middle of its frame
        good.write(Frame(QStringLiteral("AfterCutMsg"), {}));
        good.flush();
        QTRY_COMPARE(m_recorder.Count(QStringLiteral("AfterCutMsg")), 1);
        QCOMPARE(m_recorder.Count(QStringLiteral("CutMsg")), 0);
    }

    void peerThatDiesClosesItsLink()
    {
        Application* peer = StartPeer();
        QVERIFY(peer);
        QTRY_COMPARE_WITH_TIMEOUT(m_recorder.Count(QStringLiteral("PeerStartedMsg")), 1, 10000);
        ::kill(pid_t(peer->GetProcessId()), SIGKILL);
        QTRY_VERIFY_WITH_TIMEOUT(!peer->IsConnected(), 10000);
        ApplicationMessage message(QStringLiteral("EchoMsg"), {});
        QVERIFY(!peer->Send(&message));
        // The listener goes on serving others.
        QLocalSocket other;
        other.connectToServer(Hub()->GetEndpoint());
        QVERIFY(other.waitForConnected(2000));
        other.write(Hello(Self()));
        other.write(Frame(QStringLiteral("AliveMsg"), {}));
        other.flush();
        QTRY_COMPARE(m_recorder.Count(QStringLiteral("AliveMsg")), 1);
    }

    void messagesSentJustBeforeExitArrive()
    {
        // The peer sends more than the system buffers for a socket, then shuts its hub down at once.
        Application* peer = StartPeer();
        QVERIFY(peer);
        QTRY_COMPARE_WITH_TIMEOUT(m_recorder.Count(QStringLiteral("PeerStartedMsg")), 1, 10000);
        const int count = 40;
        const int bytes = 64 * 1024;
        ApplicationMessage flood(QStringLiteral("FloodThenQuitMsg"),
                                 {{QStringLiteral("Count"), count}, {QStringLiteral("Bytes"), bytes}});
        QVERIFY(peer->Send(&flood));
        QTRY_VERIFY_WITH_TIMEOUT(!ProcessRuns(peer->GetProcessId()), 10000);
        QTRY_COMPARE_WITH_TIMEOUT(m_recorder.Count(QStringLiteral("FloodMsg")), count, 10000);
        int expected = 0;
        for (const auto& message : std::as_const(m_recorder.messages))
        {
            if (message.first != QLatin1String("FloodMsg"))
                continue;
            QCOMPARE(message.second.value(QStringLiteral("Sequence")).toInt(), expected++);
            QCOMPARE(message.second.value(QStringLiteral("Block")).toByteArray().size(), bytes);
        }
    }

    void handlerMayShutTheHubDownWhileBeingTold()
    {
        struct ShutDown : ApplicationMessageHandler
        {
            void MessageReceived(ApplicationMessage*) override
            {
                ++calls;
                ApplicationManager::Uninitialize();
            }
            void ApplicationLinkStarted(Application*) override {}
            int calls = 0;
        } shutDown;
        Hub()->AddMessageHandler(&shutDown);
        QLocalSocket raw;
        raw.connectToServer(Hub()->GetEndpoint());
        QVERIFY(raw.waitForConnected(2000));
        // Several frames in one read, so the link still has work after the first one.
        raw.write(Hello(Self()) + Frame(QStringLiteral("FirstMsg"), {}) +
                  Frame(QStringLiteral("SecondMsg"), {}));
        raw.flush();
        QTRY_VERIFY(!ApplicationManager::GetInstance());
        QTRY_COMPARE_WITH_TIMEOUT(raw.state(), QLocalSocket::UnconnectedState, 5000);
        QCOMPARE(shutDown.calls, 1);
        // The recorder was registered first and heard the first message only.
        QCOMPARE(m_recorder.Count(QStringLiteral("FirstMsg")), 1);
        QCOMPARE(m_recorder.Count(QStringLiteral("SecondMsg")), 0);
    }

    void handlerMayRemoveAnotherWhileBeingTold()
    {
        Recorder second;
        struct Remover : ApplicationMessageHandler
        {
            void MessageReceived(ApplicationMessage*) override
            {
                ApplicationManager::GetInstance()->RemoveMessageHandler(other);
            }
            void ApplicationLinkStarted(Application*) override
            {
                ApplicationManager::GetInstance()->RemoveMessageHandler(other);
            }
            ApplicationMessageHandler* other = nullptr;
        } remover;
        remover.other = &second;
        Hub()->AddMessageHandler(&remover);
        Hub()->AddMessageHandler(&second);
        QLocalSocket raw;
        raw.connectToServer(Hub()->GetEndpoint());
        QVERIFY(raw.waitForConnected(2000));
        raw.write(Hello(Self()) + Frame(QStringLiteral("OnlyMsg"), {}));
        raw.flush();
        QTRY_COMPARE(m_recorder.Count(QStringLiteral("OnlyMsg")), 1);
        QVERIFY(second.links.isEmpty());
        QVERIFY(second.messages.isEmpty());
    }

    void uninitializeRemovesTheEndpoint()
    {
        const QString endpoint = Hub()->GetEndpoint();
        QVERIFY(QFileInfo::exists(endpoint));
        ApplicationManager::Uninitialize();
        QVERIFY(!QFileInfo::exists(endpoint));
        QLocalSocket socket;
        socket.connectToServer(endpoint);
        QVERIFY(!socket.waitForConnected(500));
    }

    void staleEndpointOfADeadProcessIsReplaced()
    {
        ApplicationManager::Uninitialize();
        const QString endpoint = ApplicationManager::EndpointFor(QCoreApplication::applicationPid());
        QVERIFY(WriteManifest(endpoint, "left behind by a process that died"));
        QVERIFY(ApplicationManager::Initialize(QStringLiteral("Launcher")));
        QCOMPARE(Hub()->GetEndpoint(), endpoint);
        QLocalSocket socket;
        socket.connectToServer(endpoint);
        QVERIFY(socket.waitForConnected(2000));
    }
};

QTEST_GUILESS_MAIN(tst_ApplicationLinks)
#include "tst_applicationlinks.moc"
