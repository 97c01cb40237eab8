#pragma once

#include "execution/ExecutingWorkflowRecord.h"

#include <VmWorkflowCore/Workflow.h>

#include <QList>

namespace Velmora::WorkflowCore {

// The registry of executing workflows shared by every process of the user, kept in one
// shared-memory segment. The manager owns one for its whole life.
class ExecutingRegistry
{
public:
    // isHostProcess: re-attaching happens read-write in the host application, read-only elsewhere.
    explicit ExecutingRegistry(bool isHostProcess);
    ~ExecutingRegistry();
    ExecutingRegistry(const ExecutingRegistry&) = delete;
    ExecutingRegistry& operator=(const ExecutingRegistry&) = delete;

    // Every entry as stored, without any check; empty when the segment cannot be reached.
    QList<ExecutingWorkflowRecord> ReadAll() const;
    // The entries in stored order, skipping those launched by other processes (when
    // launchedByThisProcessOnly), stale ones (host gone, status 0) and finished ones (unless
    // includeFinished).
    QList<ExecutingWorkflowRecord> Enumerate(bool launchedByThisProcessOnly, bool includeFinished) const;
    // New ExecutingWorkflow objects over copies of Enumerate's entries, owned by the caller.
    QList<ExecutingWorkflow*> Snapshot(bool launchedByThisProcessOnly, bool includeFinished) const;

    // Records the start of a run (replacing a finished entry of the same id and launcher in
    // place); does not announce it. False for a null workflow or when the list cannot be written.
    bool Add(Workflow* workflow, int hostProcessId, int launcherProcessId);
    bool SetExitStatus(Workflow* workflow, int status, const QString& message);
    bool AddExecutingApplication(Workflow* workflow, int processId);
    bool RemoveExecutingApplication(Workflow* workflow, int processId);
};

} // namespace Velmora::WorkflowCore
