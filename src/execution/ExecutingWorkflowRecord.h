#pragma once

#include <QList>
#include <QString>

namespace Velmora::WorkflowCore {

// One entry of the registry of executing workflows, copied out of the shared segment.
struct ExecutingWorkflowRecord
{
    QString WorkflowId;
    int HostProcessId = 0;
    int LauncherProcessId = 0;
    int TargetProductProcessId = 0;
    QList<int> ExecutingApplications;
    int ExitStatus = 0;
    QString ErrorMessage;
};

} // namespace Velmora::WorkflowCore
