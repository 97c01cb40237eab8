// SPDX-License-Identifier: MIT
// How long a launch takes to come alive: from ExecuteWorkflow until the launcher hears
// WorkflowExecutionBeginning, beside the floor under it measured in the same run: starting a
// trivial Qt program through the hub until it links back and says so.
//
// The program writes its own manifests, workflow and settings into a temporary folder; the host
// is the built VmWorkflowHost running the sample plug-in.
// Usage: bench_launch [launches, default 20]

#include <VmWorkflowCore/WorkflowManager.h>

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/ApplicationMessage.h>
#include <OstrelAdapter/ApplicationMessageHandler.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace Velmora::OstrelAdapter;
using namespace Velmora::WorkflowCore;

namespace {

const QString kHost = QStringLiteral(VMWF_HOST_EXECUTABLE);
const QString kSamplePlugin = QStringLiteral(VMWF_SAMPLE_PLUGIN);

std::vector<WideChar> Wide(const QString& text)
{
    std::vector<WideChar> buffer(static_cast<size_t>(text.size()) + 1, 0);
    for (int i = 0; i < text.size(); ++i)
        buffer[static_cast<size_t>(i)] = static_cast<WideChar>(text.at(i).unicode());
    return buffer;
}

// The trivial program: links back and says so, then waits to be told to go.
class Peer : public ApplicationMessageHandler
{
public:
    void ApplicationLinkStarted(Application* application) override
    {
        ApplicationMessage ready(QStringLiteral("PeerReadyMsg"), {});
        application->Send(&ready);
    }
    void MessageReceived(ApplicationMessage* message) override
    {
        if (message->GetName() == QLatin1String("QuitMsg"))
            QCoreApplication::quit();
    }
};

class Counter : public ApplicationMessageHandler
{
public:
    void ApplicationLinkStarted(Application*) override {}
    void MessageReceived(ApplicationMessage* message) override
    {
        if (message->GetName() == QLatin1String("PeerReadyMsg"))
            ++received;
    }
    int received = 0;
};

int RunPeer(QCoreApplication& app)
{
    ApplicationManager::Initialize(QStringLiteral("BenchPeer"));
    Peer peer;
    ApplicationManager::GetInstance()->AddMessageHandler(&peer);
    QTimer::singleShot(60000, &app, &QCoreApplication::quit);
    const int status = app.exec();
    ApplicationManager::GetInstance()->RemoveMessageHandler(&peer);
    ApplicationManager::Uninitialize();
    return status;
}

template <typename Condition> bool WaitFor(Condition condition, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition())
    {
        if (timer.hasExpired(timeoutMs))
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    }
    return true;
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

bool WriteFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(content) == content.size();
}

bool NoRunOfOurs()
{
    ExecutingWorkflowIterator* runs = WorkflowManager::GetInstance()->GetExecutingWorkflows(true);
    const bool none = !runs->MoveNext();
    delete runs;
    return none;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 1 && qstrcmp(argv[1], "--peer") == 0)
        return RunPeer(app);
    const int launches = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;

    QTemporaryDir root;
    for (const char* sub : {"runtime", "data", "config", "none", "tmp", "workflows", "applications"})
        QDir(root.path()).mkpath(QString::fromLatin1(sub));
    QFile::setPermissions(root.path() + QStringLiteral("/runtime"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(root.path() + QStringLiteral("/runtime")));
    qputenv("XDG_DATA_HOME", QFile::encodeName(root.path() + QStringLiteral("/data")));
    qputenv("XDG_CACHE_HOME", QFile::encodeName(root.path() + QStringLiteral("/cache")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root.path() + QStringLiteral("/config")));
    qputenv("XDG_DATA_DIRS", QFile::encodeName(root.path() + QStringLiteral("/none")));
    qputenv("XDG_CONFIG_DIRS", QFile::encodeName(root.path() + QStringLiteral("/none")));
    qputenv("TMPDIR", QFile::encodeName(root.path() + QStringLiteral("/tmp")));
    const QString applications = root.path() + QStringLiteral("/applications");
    qputenv("VELMORA_APPLICATIONS_PATH", QFile::encodeName(applications));
    WriteFile(applications + QStringLiteral("/peer.xml"),
              "<Application Id=\"Id_BenchPeer\" Version=\"1.0\" Executable=\"" +
                  QFile::encodeName(QCoreApplication::applicationFilePath()) + "\"/>");
    WriteFile(
        applications + QStringLiteral("/host.xml"),
        "<Application Id=\"Id_VmWorkflowHost\" Name=\"VmWorkflowHost\" Version=\"2017.0\" Executable=\"" +
            QFile::encodeName(kHost) + "\" InfoId=\"2017\"/>");
    const QString workflows = root.path() + QStringLiteral("/workflows");
    WriteFile(workflows + QStringLiteral("/bench.workflow"),
              "<?xml version=\"1.0\"?>\n<Workflows><Workflow Id=\"Id_Bench\" Name=\"Bench\" Plugin=\"" +
                  QFile::encodeName(QFileInfo(kSamplePlugin).fileName()) + "\"/></Workflows>\n");

    WorkflowManager::Initialize();
    WorkflowManager* manager = WorkflowManager::GetInstance();
    manager->SetCurrentLocale(Wide(QStringLiteral("en-US")).data());
    manager->SetWorkflowPluginSearchPaths(Wide(QFileInfo(kSamplePlugin).absolutePath()).data());
    manager->SetWorkflowSearchPaths(Wide(workflows).data());
    Workflow* workflow =
        manager->GetWorkflow(Wide(QStringLiteral("Id_Bench")).data(), Wide(QString()).data());
    if (!workflow)
    {
        std::fprintf(stderr, "the bench workflow was not found\n");
        return 1;
    }

    ApplicationManager* hub = ApplicationManager::GetInstance();
    Counter counter;
    hub->AddMessageHandler(&counter);
    const ApplicationInfo peerInfo =
        hub->GetInstalledApplications(QStringLiteral("Id_BenchPeer"), QString()).value(0);
    ApplicationMessage quit(QStringLiteral("QuitMsg"), {});

    int beginnings = 0;
    int finishes = 0;
    QObject::connect(manager->GetNotificationManager(),
                     &WorkflowNotificationManager::WorkflowExecutionBeginning,
                     [&](ExecutingWorkflow*) { ++beginnings; });
    QObject::connect(manager->GetNotificationManager(),
                     &WorkflowNotificationManager::WorkflowExecutionFinished,
                     [&](ExecutingWorkflow*) { ++finishes; });

    std::vector<double> floorMs;
    std::vector<double> launchMs;
    // Interleaved, so that both see the same machine.
    for (int i = 0; i < launches; ++i)
    {
        counter.received = 0;
        QElapsedTimer timer;
        timer.start();
        Application::StartupError error = Application::NoError;
        Application* peer = hub->StartApplication(peerInfo, {QStringLiteral("--peer")}, {}, &error);
        if (!peer || peer->Connect(10000) != 0 || !WaitFor([&] { return counter.received > 0; }, 10000))
        {
            std::fprintf(stderr, "the trivial program never linked back\n");
            return 1;
        }
        floorMs.push_back(timer.nsecsElapsed() / 1e6);
        peer->Send(&quit);

        if (!WaitFor(NoRunOfOurs, 20000))
        {
            std::fprintf(stderr, "an earlier run never ended\n");
            return 1;
        }
        const int beginningsBefore = beginnings;
        const int finishesBefore = finishes;
        timer.restart();
        if (!manager->ExecuteWorkflow(workflow, ApplicationMenu) ||
            !WaitFor([&] { return beginnings > beginningsBefore; }, 20000))
        {
            std::fprintf(stderr, "launch %d never began\n", i + 1);
            return 1;
        }
        launchMs.push_back(timer.nsecsElapsed() / 1e6);
        if (!WaitFor([&] { return finishes > finishesBefore; }, 20000))
        {
            std::fprintf(stderr, "launch %d never finished\n", i + 1);
            return 1;
        }
    }
    WaitFor(NoRunOfOurs, 20000);
    hub->RemoveMessageHandler(&counter);

    const double floor = Median(floorMs);
    const double launch = Median(launchMs);
    std::printf(
        "floor (hub start of a trivial Qt program until it links back): median %.1f ms over %d starts\n",
        floor, launches);
    std::printf(
        "launch (ExecuteWorkflow until WorkflowExecutionBeginning): median %.1f ms over %d launches\n",
        launch, launches);
    std::printf("ratio: %.2f\n", floor > 0 ? launch / floor : 0.0);
    WorkflowManager::Uninitialize();
    return 0;
}
