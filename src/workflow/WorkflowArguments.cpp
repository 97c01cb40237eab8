// SPDX-License-Identifier: MIT
#include <VmWorkflowCore/Workflow.h>

#include "util/TextOut.h"
#include "workflow/WorkflowArgumentsImp.h"

namespace Velmora::WorkflowCore {

WorkflowArguments::WorkflowArguments() : m_imp(new WorkflowArgumentsImp) {}

// The whole map goes with the arguments: nothing of it outlives them.
WorkflowArguments::~WorkflowArguments() = default;

int WorkflowArguments::GetValue(const WideChar* key, WideChar* buffer, int size) const
{
    return CopyTextOut(m_imp->values.value(TextIn(key)), buffer, size);
}

void WorkflowArguments::SetValue(const WideChar* key, const WideChar* value)
{
    m_imp->values.insert(TextIn(key), TextIn(value));
}

} // namespace Velmora::WorkflowCore
