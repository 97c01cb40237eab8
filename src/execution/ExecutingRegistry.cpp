#include "execution/ExecutingRegistry.h"

namespace Velmora::WorkflowCore {

ExecutingRegistry::ExecutingRegistry(bool isHostProcess)
{
    Q_UNUSED(isHostProcess);
}

ExecutingRegistry::~ExecutingRegistry() = default;

QList<ExecutingWorkflowRecord> ExecutingRegistry::ReadAll() const
{
    return {};
}

QList<ExecutingWorkflowRecord> ExecutingRegistry::Enumerate(bool launchedByThisProcessOnly, bool includeFinished) const
{
    Q_UNUSED(launchedByThisProcessOnly);
    Q_UNUSED(includeFinished);
    return {};
}

QList<ExecutingWorkflow*> ExecutingRegistry::Snapshot(bool launchedByThisProcessOnly, bool includeFinished) const
{
    QList<ExecutingWorkflow*> workflows;
    for (const ExecutingWorkflowRecord& record : Enumerate(launchedByThisProcessOnly, includeFinished))
        workflows.append(new ExecutingWorkflow(new ExecutingWorkflowRecord(record)));
    return workflows;
}

bool ExecutingRegistry::Add(Workflow* workflow, int hostProcessId, int launcherProcessId)
{
    Q_UNUSED(workflow);
    Q_UNUSED(hostProcessId);
    Q_UNUSED(launcherProcessId);
    return false;
}

bool ExecutingRegistry::SetExitStatus(Workflow* workflow, int status, const QString& message)
{
    Q_UNUSED(workflow);
    Q_UNUSED(status);
    Q_UNUSED(message);
    return false;
}

bool ExecutingRegistry::AddExecutingApplication(Workflow* workflow, int processId)
{
    Q_UNUSED(workflow);
    Q_UNUSED(processId);
    return false;
}

bool ExecutingRegistry::RemoveExecutingApplication(Workflow* workflow, int processId)
{
    Q_UNUSED(workflow);
    Q_UNUSED(processId);
    return false;
}

} // namespace Velmora::WorkflowCore
