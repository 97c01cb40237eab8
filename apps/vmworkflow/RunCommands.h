// SPDX-License-Identifier: MIT
#pragma once

// The commands of vmworkflow that launch workflows and look at running ones.

#include <VmWorkflowCore/WorkflowManager.h>

#include <QMap>
#include <QString>

class QTextStream;

namespace VmWorkflowTool {

struct RunRequest
{
    QString id;
    int launchPoint = 0;
    bool wait = false;
    bool json = false;
    // Extra "/Key=Value" arguments for the host and the workflow's plug-in.
    QMap<QString, QString> arguments;
};

// Launches the workflow through the library. Without wait it prints the host's process id once
// the host has registered the run; with wait it prints the run's beginning and end as they happen
// and returns the run's exit status. A refused launch prints one sentence and returns 1.
int Run(Velmora::WorkflowCore::WorkflowManager* manager, const RunRequest& request, QTextStream& out,
        QTextStream& err);

// The registry of executing workflows as this user's processes see it.
int Running(Velmora::WorkflowCore::WorkflowManager* manager, bool json, QTextStream& out);

} // namespace VmWorkflowTool
