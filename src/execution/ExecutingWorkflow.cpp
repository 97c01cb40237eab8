// SPDX-License-Identifier: MIT
#include <VmWorkflowCore/Workflow.h>

#include "execution/ExecutingWorkflowRecord.h"
#include "manager/WorkflowManagerImp.h"
#include "util/TextOut.h"

#include <algorithm>

namespace Velmora::WorkflowCore {

ExecutingWorkflow::ExecutingWorkflow(ExecutingWorkflowRecord* record) : m_record(record) {}

ExecutingWorkflow::~ExecutingWorkflow() = default;

Workflow* ExecutingWorkflow::GetWorkflow()
{
    return WorkflowManagerImp::Instance()->FindWorkflow(m_record->WorkflowId, QString());
}

int ExecutingWorkflow::GetHostProcessId()
{
    return m_record->HostProcessId;
}

int ExecutingWorkflow::GetLauncherProcessId()
{
    return m_record->LauncherProcessId;
}

int ExecutingWorkflow::GetTargetProductProcessId() const
{
    return m_record->TargetProductProcessId;
}

int ExecutingWorkflow::GetExecutingApplicationsCount() const
{
    return static_cast<int>(m_record->ExecutingApplications.size());
}

int ExecutingWorkflow::GetExecutingApplications(int* buffer, int size) const
{
    if (!buffer || size < 1)
        return 0;
    const int count = std::min(size, GetExecutingApplicationsCount());
    std::copy_n(m_record->ExecutingApplications.cbegin(), count, buffer);
    return count;
}

int ExecutingWorkflow::GetErrorStatus() const
{
    return m_record->ExitStatus;
}

// A run that ended with status 0 reads as not finished: both read the one status field, and
// callers rely on that pairing.
bool ExecutingWorkflow::IsFinished() const
{
    return m_record->ExitStatus != 0;
}

int ExecutingWorkflow::GetErrorMessage(WideChar* buffer, int size) const
{
    return CopyTextOut(m_record->ErrorMessage, buffer, size);
}

} // namespace Velmora::WorkflowCore
