// SPDX-License-Identifier: MIT
#include "RunCommands.h"

#include "WorkflowText.h"

#include <VmWorkflowCore/Workflow.h>

#include <OstrelAdapter/ApplicationManager.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTextStream>
#include <QTimer>

#include <memory>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace VmWorkflowTool {

namespace {

constexpr int kPollMs = 100;
// How long a started host may take to register its run before the tool gives up on it.
constexpr int kRegisterTimeoutMs = 20000;
// How long the end of a run may take to arrive after its entry left the list of running workflows.
// The entry goes as the host sets its status; the end comes through the hub after it, and on a
// machine under load it has been seen to trail by more than three seconds.
constexpr int kFinishGraceMs = 10000;

QString WorkflowIdOf(ExecutingWorkflow* run)
{
    Workflow* workflow = run->GetWorkflow();
    if (!workflow)
        return QString();
    return ReadText([&](WideChar* b, int s) { return workflow->GetId(b, s); });
}

QList<int> ApplicationsOf(ExecutingWorkflow* run)
{
    const int count = run->GetExecutingApplicationsCount();
    std::vector<int> ids(size_t(count > 0 ? count : 0));
    const int copied = count > 0 ? run->GetExecutingApplications(ids.data(), count) : 0;
    QList<int> result;
    for (int i = 0; i < copied; ++i)
        result.append(ids[size_t(i)]);
    return result;
}

QJsonObject Describe(ExecutingWorkflow* run)
{
    QJsonObject object;
    object.insert(QStringLiteral("workflowId"), WorkflowIdOf(run));
    object.insert(QStringLiteral("hostProcessId"), run->GetHostProcessId());
    object.insert(QStringLiteral("launcherProcessId"), run->GetLauncherProcessId());
    object.insert(QStringLiteral("targetProductProcessId"), run->GetTargetProductProcessId());
    QJsonArray applications;
    for (int id : ApplicationsOf(run))
        applications.append(id);
    object.insert(QStringLiteral("applications"), applications);
    object.insert(QStringLiteral("status"), run->GetErrorStatus());
    object.insert(QStringLiteral("message"),
                  ReadText([&](WideChar* b, int s) { return run->GetErrorMessage(b, s); }));
    object.insert(QStringLiteral("finished"), run->IsFinished());
    return object;
}

// The unfinished run of this process for that workflow, described; empty when there is none.
QJsonObject FindOwnRun(WorkflowManager* manager, Workflow* workflow)
{
    std::unique_ptr<ExecutingWorkflowIterator> it(manager->GetExecutingWorkflows(true));
    while (it->MoveNext())
    {
        if (it->GetCurrent()->GetWorkflow() == workflow)
            return Describe(it->GetCurrent());
    }
    return QJsonObject();
}

bool HostInstalled()
{
    auto* hub = Velmora::OstrelAdapter::ApplicationManager::GetInstance();
    return hub && !hub->GetInstalledApplications(QStringLiteral("Id_VmWorkflowHost"), QString()).isEmpty();
}

int Refuse(QTextStream& err, const QString& sentence)
{
    err << QCoreApplication::applicationName() << ": " << sentence << '\n';
    err.flush();
    return 1;
}

// Follows one launched run through the notification signals, with the registry as the witness of
// a host that vanished without saying so.
class RunFollower : public QObject
{
public:
    RunFollower(WorkflowManager* manager, Workflow* workflow, const RunRequest& request, QTextStream& out)
        : m_manager(manager), m_workflow(workflow), m_request(request), m_out(out)
    {
        WorkflowNotificationManager* notifications = manager->GetNotificationManager();
        if (notifications)
        {
            connect(notifications, &WorkflowNotificationManager::WorkflowExecutionBeginning, this,
                    [this](ExecutingWorkflow* run) { OnBeginning(run); });
            connect(notifications, &WorkflowNotificationManager::WorkflowExecutionFinished, this,
                    [this](ExecutingWorkflow* run) { OnFinished(run); });
        }
        connect(&m_poll, &QTimer::timeout, this, [this] { Poll(); });
    }

    // Runs the event loop until the run is known (without wait) or over (with wait).
    int Follow()
    {
        m_sinceLaunch.start();
        m_poll.start(kPollMs);
        const int status = m_loop.exec();
        m_poll.stop();
        if (m_request.json)
        {
            m_result.insert(QStringLiteral("events"), m_events);
            m_out << QString::fromUtf8(QJsonDocument(m_result).toJson(QJsonDocument::Indented));
        }
        m_out.flush();
        return status;
    }

private:
    void Print(const QString& line)
    {
        if (!m_request.json)
        {
            m_out << line << '\n';
            m_out.flush();
        }
    }

    void Started(const QJsonObject& run)
    {
        if (m_started)
            return;
        m_started = true;
        m_hostProcessId = run.value(QStringLiteral("hostProcessId")).toInt();
        m_result.insert(QStringLiteral("workflowId"), m_request.id);
        m_result.insert(QStringLiteral("hostProcessId"), m_hostProcessId);
        m_result.insert(QStringLiteral("launcherProcessId"),
                        run.value(QStringLiteral("launcherProcessId")).toInt());
        if (!m_request.wait)
        {
            Print(QStringLiteral("started %1 in host process %2").arg(m_request.id).arg(m_hostProcessId));
            m_loop.exit(0);
        }
    }

    void OnBeginning(ExecutingWorkflow* run)
    {
        if (run->GetWorkflow() != m_workflow)
            return;
        const QJsonObject described = Describe(run);
        QJsonObject event = described;
        event.insert(QStringLiteral("event"), QStringLiteral("beginning"));
        m_events.append(event);
        // The host announces the beginning only once its entry is in the registry, so the run
        // counts as seen even when the host is gone again before the next look at the registry.
        m_seenRunning = true;
        m_goneSince.invalidate();
        if (m_request.wait)
            Print(QStringLiteral("beginning %1 in host process %2 (launched by process %3)")
                      .arg(m_request.id)
                      .arg(run->GetHostProcessId())
                      .arg(run->GetLauncherProcessId()));
        Started(described);
    }

    void OnFinished(ExecutingWorkflow* run)
    {
        if (run->GetWorkflow() != m_workflow || m_finished)
            return;
        m_finished = true;
        const QJsonObject described = Describe(run);
        QJsonObject event = described;
        event.insert(QStringLiteral("event"), QStringLiteral("finished"));
        m_events.append(event);
        const int status = run->GetErrorStatus();
        const QString message = described.value(QStringLiteral("message")).toString();
        Print(QStringLiteral("finished %1 in host process %2 with status %3%4")
                  .arg(m_request.id)
                  .arg(run->GetHostProcessId())
                  .arg(status)
                  .arg(message.isEmpty() ? QString() : QStringLiteral(": ") + message));
        Started(described);
        m_result.insert(QStringLiteral("exitStatus"), status);
        m_result.insert(QStringLiteral("message"), message);
        m_loop.exit(status);
    }

    void Poll()
    {
        const QJsonObject run = FindOwnRun(m_manager, m_workflow);
        if (!run.isEmpty())
        {
            m_seenRunning = true;
            m_goneSince.invalidate();
            Started(run);
            return;
        }
        if (!m_seenRunning)
        {
            if (m_sinceLaunch.hasExpired(kRegisterTimeoutMs))
                Abandon(QStringLiteral("the host application did not register the run within %1 seconds.")
                            .arg(kRegisterTimeoutMs / 1000));
            return;
        }
        // The entry left the list: either the host set a failing status (its end is on the way)
        // or the host process is gone.
        if (!m_goneSince.isValid())
            m_goneSince.start();
        else if (m_goneSince.hasExpired(kFinishGraceMs))
            Abandon(QStringLiteral("the host process %1 ended without reporting the end of the run.")
                        .arg(m_hostProcessId));
    }

    void Abandon(const QString& sentence)
    {
        QTextStream err(stderr);
        err << QCoreApplication::applicationName() << ": " << sentence << '\n';
        m_result.insert(QStringLiteral("error"), sentence);
        m_loop.exit(1);
    }

    WorkflowManager* m_manager;
    Workflow* m_workflow;
    RunRequest m_request;
    QTextStream& m_out;
    QEventLoop m_loop;
    QTimer m_poll;
    QElapsedTimer m_sinceLaunch;
    QElapsedTimer m_goneSince;
    bool m_started = false;
    bool m_finished = false;
    bool m_seenRunning = false;
    int m_hostProcessId = 0;
    QJsonObject m_result;
    QJsonArray m_events;
};

// The tool's side of a launch: it vetoes nothing and hands the user's extra arguments to the host.
class ToolContext : public HostApplicationContext
{
public:
    explicit ToolContext(const QMap<QString, QString>& arguments) : m_arguments(arguments) {}

    bool CanExecuteWorkflow(Workflow*) override { return true; }
    void AddLaunchArguments(Workflow*, WorkflowArguments* arguments) override
    {
        for (auto it = m_arguments.constBegin(); it != m_arguments.constEnd(); ++it)
            arguments->SetValue(Wide(it.key()), Wide(it.value()));
    }
    int GetCurrentProductId(WideChar* buffer, int size) override
    {
        if (buffer && size > 0)
            buffer[0] = 0;
        return 0;
    }
    bool BeforeExecuteWorkflow(Workflow*) override { return true; }

private:
    QMap<QString, QString> m_arguments;
};

} // namespace

int Run(WorkflowManager* manager, const RunRequest& request, QTextStream& out, QTextStream& err)
{
    Workflow* workflow = manager->GetWorkflow(Wide(request.id), Wide(QString()));
    if (!workflow)
        return Refuse(err, QStringLiteral("no workflow has the id \"%1\".").arg(request.id));
    if (!RunsHere(workflow))
        return Refuse(
            err, QStringLiteral("the workflow \"%1\" cannot run here because a required product is missing.")
                     .arg(request.id));
    {
        std::unique_ptr<ExecutingWorkflowIterator> own(manager->GetExecutingWorkflows(true));
        if (own->MoveNext())
            return Refuse(err, QStringLiteral("another run of this process is going on."));
    }
    if (!HostInstalled())
        return Refuse(err, QStringLiteral("the host application VmWorkflowHost is not installed."));

    // Listen before launching: the host may announce the run as soon as it is linked.
    RunFollower follower(manager, workflow, request, out);
    ToolContext context(request.arguments);
    manager->SetHostApplicationContext(&context);
    const bool launched = manager->ExecuteWorkflow(workflow, WorkflowLaunchPoint(request.launchPoint));
    if (!launched)
    {
        manager->SetHostApplicationContext(nullptr);
        return Refuse(err,
                      QStringLiteral("the launch of \"%1\" was refused by the workflow's plug-in or the host "
                                     "application could not be started.")
                          .arg(request.id));
    }
    const int status = follower.Follow();
    manager->SetHostApplicationContext(nullptr);
    return status;
}

int Running(WorkflowManager* manager, bool json, QTextStream& out)
{
    QJsonArray rows;
    std::unique_ptr<ExecutingWorkflowIterator> it(manager->GetExecutingWorkflows(false));
    while (it->MoveNext())
        rows.append(Describe(it->GetCurrent()));
    if (json)
    {
        out << QString::fromUtf8(QJsonDocument(rows).toJson(QJsonDocument::Indented));
        return 0;
    }
    for (const QJsonValue& value : std::as_const(rows))
    {
        const QJsonObject row = value.toObject();
        QStringList applications;
        for (const QJsonValue& id : row.value(QStringLiteral("applications")).toArray())
            applications.append(QString::number(id.toInt()));
        const QString id = row.value(QStringLiteral("workflowId")).toString();
        out << (id.isEmpty() ? QStringLiteral("(not in this catalogue)") : id) << "  host "
            << row.value(QStringLiteral("hostProcessId")).toInt() << "  launcher "
            << row.value(QStringLiteral("launcherProcessId")).toInt() << "  applications "
            << (applications.isEmpty() ? QStringLiteral("none") : applications.join(QLatin1Char(',')))
            << "  status " << row.value(QStringLiteral("status")).toInt();
        const QString message = row.value(QStringLiteral("message")).toString();
        if (!message.isEmpty())
            out << "  " << message;
        out << '\n';
    }
    out << rows.size() << (rows.size() == 1 ? " running workflow\n" : " running workflows\n");
    return 0;
}

} // namespace VmWorkflowTool
