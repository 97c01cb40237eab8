#pragma once

#include <VmWorkflowCore/Workflow.h>

#include <QList>

namespace Velmora::WorkflowCore {

// The registry of executing workflows shared by every process of the user. The shared segment
// behind it arrives with the execution work; until then it holds no runs.
class ExecutingRegistry
{
public:
    ExecutingRegistry() = default;
    ~ExecutingRegistry() = default;
    ExecutingRegistry(const ExecutingRegistry&) = delete;
    ExecutingRegistry& operator=(const ExecutingRegistry&) = delete;

    // New ExecutingWorkflow objects, owned by the caller.
    QList<ExecutingWorkflow*> Snapshot(bool includeFinished) const;
};

} // namespace Velmora::WorkflowCore
