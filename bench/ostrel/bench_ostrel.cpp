// SPDX-License-Identifier: MIT
// The floor under launching a workflow: how long the hub takes to start an application and link
// with it, and the round trip of a small message between two processes.
//
// The program starts copies of itself (with --peer) through a manifest it writes into a
// temporary folder. Reports, as medians:
//   - StartApplication until Connect has linked, and until the peer's first message came back;
//   - the round trip of a message whose frame is 200 bytes.
// Usage: bench_ostrel [starts, default 20] [round trips, default 2000]

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/ApplicationMessage.h>
#include <OstrelAdapter/ApplicationMessageHandler.h>

#include <QCoreApplication>
#include <QDataStream>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QIODevice>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace Velmora::OstrelAdapter;

namespace {

class Peer : public ApplicationMessageHandler
{
public:
    void ApplicationLinkStarted(Application* application) override
    {
        m_launcher = application;
        ApplicationMessage ready(QStringLiteral("PeerReadyMsg"), {});
        application->Send(&ready);
    }
    void MessageReceived(ApplicationMessage* message) override
    {
        if (message->GetName() == QLatin1String("QuitMsg"))
            QCoreApplication::quit();
        else if (m_launcher)
            m_launcher->Send(message);
    }

private:
    Application* m_launcher = nullptr;
};

class Counter : public ApplicationMessageHandler
{
public:
    void ApplicationLinkStarted(Application*) override {}
    void MessageReceived(ApplicationMessage*) override { ++received; }
    int received = 0;
};

int RunPeer(QCoreApplication& app)
{
    ApplicationManager::Initialize(QStringLiteral("BenchPeer"));
    Peer peer;
    ApplicationManager::GetInstance()->AddMessageHandler(&peer);
    QTimer::singleShot(120000, &app, &QCoreApplication::quit);
    const int status = app.exec();
    ApplicationManager::GetInstance()->RemoveMessageHandler(&peer);
    ApplicationManager::Uninitialize();
    return status;
}

bool WaitFor(const Counter& counter, int count, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (counter.received < count)
    {
        if (timer.hasExpired(timeoutMs))
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
    }
    return true;
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

qsizetype FrameSize(const ApplicationMessage& message)
{
    QByteArray payload;
    QDataStream stream(&payload, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_6_0);
    stream << message.GetName() << message.GetData();
    return payload.size() + 4;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "--peer") == 0)
        return RunPeer(app);
    const int starts = argc > 1 ? std::atoi(argv[1]) : 20;
    const int roundTrips = argc > 2 ? std::atoi(argv[2]) : 2000;

    QTemporaryDir root;
    QDir(root.path()).mkpath(QStringLiteral("runtime"));
    QFile::setPermissions(root.path() + QStringLiteral("/runtime"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(root.path() + QStringLiteral("/runtime")));
    qputenv("XDG_DATA_DIRS", QFile::encodeName(root.path() + QStringLiteral("/none")));
    qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(root.path()));
    QFile manifest(root.path() + QStringLiteral("/peer.xml"));
    manifest.open(QIODevice::WriteOnly);
    manifest.write("<Application Id=\"Id_BenchPeer\" Version=\"1.0\" Executable=\"" +
                   QFile::encodeName(QCoreApplication::applicationFilePath()) + "\"/>");
    manifest.close();

    ApplicationManager::Initialize(QStringLiteral("BenchLauncher"));
    ApplicationManager* hub = ApplicationManager::GetInstance();
    Counter counter;
    hub->AddMessageHandler(&counter);
    const ApplicationInfo info =
        hub->GetInstalledApplications(QStringLiteral("Id_BenchPeer"), QString()).value(0);
    ApplicationMessage quit(QStringLiteral("QuitMsg"), {});

    std::vector<double> linkedMs;
    std::vector<double> acknowledgedMs;
    Application* kept = nullptr;
    for (int i = 0; i < starts; ++i)
    {
        counter.received = 0;
        QElapsedTimer timer;
        timer.start();
        Application::StartupError error = Application::NoError;
        Application* peer = hub->StartApplication(info, {QStringLiteral("--peer")}, {}, &error);
        if (!peer || peer->Connect(10000) != 0)
        {
            std::fprintf(stderr, "could not start and link the peer\n");
            return 1;
        }
        linkedMs.push_back(timer.nsecsElapsed() / 1e6);
        if (!WaitFor(counter, 1, 10000))
        {
            std::fprintf(stderr, "the peer never answered\n");
            return 1;
        }
        acknowledgedMs.push_back(timer.nsecsElapsed() / 1e6);
        if (i + 1 < starts)
            peer->Send(&quit);
        else
            kept = peer;
    }

    QVariantMap data;
    data.insert(QStringLiteral("Payload"), QByteArray());
    ApplicationMessage probe(QStringLiteral("EchoMsg"), data);
    // Pad with bytes until the whole frame, length prefix included, is 200 bytes.
    data.insert(QStringLiteral("Payload"), QByteArray(200 - FrameSize(probe), 'x'));
    const ApplicationMessage message(QStringLiteral("EchoMsg"), data);
    std::vector<double> roundTripUs;
    roundTripUs.reserve(size_t(roundTrips));
    for (int i = 0; i < roundTrips; ++i)
    {
        counter.received = 0;
        QElapsedTimer timer;
        timer.start();
        ApplicationMessage copy = message;
        kept->Send(&copy);
        if (!WaitFor(counter, 1, 10000))
        {
            std::fprintf(stderr, "a round trip was lost\n");
            return 1;
        }
        roundTripUs.push_back(timer.nsecsElapsed() / 1e3);
    }
    kept->Send(&quit);

    std::printf(
        "start to link: median %.1f ms (Connect returned), %.1f ms (peer's first message back), %d starts\n",
        Median(linkedMs), Median(acknowledgedMs), starts);
    std::printf("round trip of a %lld-byte frame: median %.1f us over %d trips (fastest %.1f us)\n",
                static_cast<long long>(FrameSize(message)), Median(roundTripUs), roundTrips,
                *std::min_element(roundTripUs.begin(), roundTripUs.end()));
    hub->RemoveMessageHandler(&counter);
    ApplicationManager::Uninitialize();
    return 0;
}
