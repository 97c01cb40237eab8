// SPDX-License-Identifier: MIT
#include <VmWorkflowCore/Workflow.h>

#include "workflow/WorkflowIteratorImp.h"

namespace Velmora::WorkflowCore {

WorkflowIterator::WorkflowIterator(WorkflowIteratorImp* imp) : m_imp(imp) {}

WorkflowIterator::~WorkflowIterator() = default;

bool WorkflowIterator::MoveNext()
{
    return m_imp->MoveNext();
}

Workflow* WorkflowIterator::GetCurrent()
{
    return m_imp->GetCurrent();
}

void WorkflowIterator::Reset()
{
    m_imp->Reset();
}

ExecutingWorkflowIterator::ExecutingWorkflowIterator(ExecutingWorkflowIteratorImp* imp) : m_imp(imp) {}

ExecutingWorkflowIterator::~ExecutingWorkflowIterator() = default;

bool ExecutingWorkflowIterator::MoveNext()
{
    return m_imp->MoveNext();
}

ExecutingWorkflow* ExecutingWorkflowIterator::GetCurrent()
{
    return m_imp->GetCurrent();
}

void ExecutingWorkflowIterator::Reset()
{
    m_imp->Reset();
}

} // namespace Velmora::WorkflowCore
