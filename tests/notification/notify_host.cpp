// SPDX-License-Identifier: MIT
// A small host for the notification tests, built twice: once with the file name VmWorkflowHost (so
// the library takes the host role) and once under another name (so it does not). It starts the
// library, registers link-state listeners as its command line says and then obeys the test over
// the hub link:
//   arguments: a process id adds a listener waiting for that process, "null" adds a null listener,
//   "again" adds the previous listener once more, "--search <folders>" sets the search paths.
//   "HostModifyMsg" {WorkflowId, WorkflowSourceFile} calls WorkflowModifiedInPlugin;
//   "HostBeginMsg" / "HostEndMsg" {WorkflowId, LauncherProcessId} register and remove a run of the
//   catalogue's workflow with that id; "HostRelayMsg" {Name, Data} sends a raw message back;
//   "HostReportMsg" asks what arrived here; "HostQuitMsg" ends the program.
// Every command is answered with "HostDoneMsg"; messages on one link keep their order, so the
// answer arrives after anything the command made the library send.

#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/ApplicationMessage.h>
#include <OstrelAdapter/ApplicationMessageHandler.h>

#include <QCoreApplication>
#include <QStringList>
#include <QTimer>

#include <memory>
#include <vector>

using namespace Velmora::WorkflowCore;
using namespace Velmora::OstrelAdapter;

namespace {

QStringList s_told;

class Listener : public LinkStateListener
{
public:
    Listener(int processId, QString label) : m_processId(processId), m_label(std::move(label)) {}
    void OnLinkStarted() override { s_told.append(m_label); }
    int GetProcessId() override { return m_processId; }

private:
    int m_processId;
    QString m_label;
};

const WideChar* Wide(const QString& text)
{
    return reinterpret_cast<const WideChar*>(text.utf16());
}

class Controller : public ApplicationMessageHandler
{
public:
    void ApplicationLinkStarted(Application* application) override
    {
        m_peer = application;
        // The library's handler was added first, so the listeners have already been told.
        ApplicationMessage seen(QStringLiteral("HostLinkSeenMsg"), {{QStringLiteral("Told"), s_told}});
        application->Send(&seen);
    }

    void MessageReceived(ApplicationMessage* message) override
    {
        const QString name = message->GetName();
        const QVariantMap data = message->GetData();
        m_received.append(name);
        if (!m_peer || !name.startsWith(QLatin1String("Host")))
            return;
        QVariantMap answer;
        if (name == QLatin1String("HostModifyMsg"))
        {
            const QString id = data.value(QStringLiteral("WorkflowId")).toString();
            const QString file = data.value(QStringLiteral("WorkflowSourceFile")).toString();
            answer.insert(QStringLiteral("Result"),
                          WorkflowManager::GetInstance()->WorkflowModifiedInPlugin(Wide(id), Wide(file)));
        }
        else if (name == QLatin1String("HostBeginMsg") || name == QLatin1String("HostEndMsg"))
        {
            const QString id = data.value(QStringLiteral("WorkflowId")).toString();
            Workflow* workflow = WorkflowManager::GetInstance()->GetWorkflow(Wide(id), nullptr);
            bool result = false;
            if (name == QLatin1String("HostBeginMsg"))
                result = WorkflowPrivate::AddExecutingWorkflow(
                    workflow, int(QCoreApplication::applicationPid()),
                    data.value(QStringLiteral("LauncherProcessId")).toInt());
            else
            {
                WorkflowManager::GetInstance()->SetExecutingWorkflowExitStatus(workflow, 1, Wide(QString()));
                result = WorkflowPrivate::RemoveExecutingWorkflow(workflow);
            }
            answer.insert(QStringLiteral("Result"), result);
        }
        else if (name == QLatin1String("HostRelayMsg"))
        {
            ApplicationMessage relayed(data.value(QStringLiteral("Name")).toString(),
                                       data.value(QStringLiteral("Data")).toMap());
            answer.insert(QStringLiteral("Result"), m_peer->Send(&relayed));
        }
        else if (name == QLatin1String("HostReportMsg"))
        {
            answer.insert(QStringLiteral("Received"), m_received);
        }
        else if (name == QLatin1String("HostQuitMsg"))
        {
            QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        }
        answer.insert(QStringLiteral("Command"), name);
        ApplicationMessage done(QStringLiteral("HostDoneMsg"), answer);
        m_peer->Send(&done);
    }

private:
    Application* m_peer = nullptr;
    QStringList m_received;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    WorkflowManager::Initialize();

    std::vector<std::unique_ptr<Listener>> listeners;
    const QStringList arguments = app.arguments().mid(1);
    for (int i = 0; i < arguments.size(); ++i)
    {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--search") && i + 1 < arguments.size())
        {
            WorkflowManager::GetInstance()->SetWorkflowSearchPaths(Wide(arguments.at(++i)));
        }
        else if (argument == QLatin1String("null"))
        {
            WorkflowPrivate::AddLinkStateListener(nullptr);
        }
        else if (argument == QLatin1String("again"))
        {
            if (!listeners.empty())
                WorkflowPrivate::AddLinkStateListener(listeners.back().get());
        }
        else
        {
            listeners.push_back(
                std::make_unique<Listener>(argument.toInt(), QString::number(listeners.size())));
            WorkflowPrivate::AddLinkStateListener(listeners.back().get());
        }
    }

    Controller controller;
    ApplicationManager::GetInstance()->AddMessageHandler(&controller);
    // Never outlive a test that forgot to say goodbye.
    QTimer::singleShot(60000, &app, &QCoreApplication::quit);
    const int status = app.exec();
    ApplicationManager::GetInstance()->RemoveMessageHandler(&controller);
    for (const auto& listener : listeners)
        WorkflowPrivate::RemoveLinkStateListener(listener.get());
    WorkflowManager::Uninitialize();
    return status;
}
