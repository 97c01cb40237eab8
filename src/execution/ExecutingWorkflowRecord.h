// SPDX-License-Identifier: MIT
#pragma once

#include <QList>
#include <QString>

namespace Velmora::WorkflowCore {

// One entry of the registry of executing workflows, copied out of the shared segment. Fields in
// the order the entry declares them; the segment stores them in another order.
struct ExecutingWorkflowRecord
{
    QString WorkflowId;
    QString SourceFile;
    int HostProcessId = 0;
    int LauncherProcessId = 0;
    int ExitStatus = 0; // 0 while running
    QString ErrorMessage;
    int TargetProductProcessId = 0;
    // The registering process's Workflow* as a number: meaningful only inside that process.
    qint64 WorkflowHandle = 0;
    QList<int> ExecutingApplications;
};

} // namespace Velmora::WorkflowCore
