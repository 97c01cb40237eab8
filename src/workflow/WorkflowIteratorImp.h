// SPDX-License-Identifier: MIT
#pragma once

#include "workflow/IteratorState.h"

#include <VmWorkflowCore/Workflow.h>

#include <memory>

namespace Velmora::WorkflowCore {

class WorkflowIteratorImp : public IteratorState<Workflow>
{
public:
    using IteratorState<Workflow>::IteratorState;
};

// Owns every ExecutingWorkflow of its snapshot.
class ExecutingWorkflowIteratorImp : public IteratorState<ExecutingWorkflow>
{
public:
    using IteratorState<ExecutingWorkflow>::IteratorState;
    ~ExecutingWorkflowIteratorImp() { qDeleteAll(Snapshot()); }
    ExecutingWorkflowIteratorImp(const ExecutingWorkflowIteratorImp&) = delete;
    ExecutingWorkflowIteratorImp& operator=(const ExecutingWorkflowIteratorImp&) = delete;
};

} // namespace Velmora::WorkflowCore
