// SPDX-License-Identifier: MIT
#pragma once

#include "execution/ExecutingWorkflowRecord.h"

#include <VmWorkflowCore/Workflow.h>

#include <QByteArray>
#include <QList>

#include <functional>

#include <memory>

namespace Velmora::WorkflowCore {

namespace Platform {
class SharedSegment;
}

// The registry of executing workflows shared by every process of the user, kept in one
// shared-memory segment. The manager owns one for its whole life.
class ExecutingRegistry
{
public:
    static constexpr int SegmentSize = 32768;
    static const QString& SegmentKey();

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
    // False for a null workflow, an unreachable or empty list, or when no entry of this process
    // matches the workflow.
    bool SetExitStatus(Workflow* workflow, int status, const QString& message);
    // True when the entry of the workflow holds (or no longer holds) the id afterwards.
    bool AddExecutingApplication(Workflow* workflow, int processId);
    bool RemoveExecutingApplication(Workflow* workflow, int processId);

    // The entry list as it is laid out in the segment. Parsing stops at the first thing that does
    // not fit the bytes and returns the complete entries before it; serialising yields an empty
    // array when the list does not fit in the segment.
    static QList<ExecutingWorkflowRecord> ParseEntries(const char* data, int size);
    static QByteArray SerializeEntries(const QList<ExecutingWorkflowRecord>& entries);

private:
    enum class Outcome
    {
        Unchanged,
        Changed,
        Failed
    };
    template <typename Edit> bool Change(bool mayCreate, Edit edit);
    // A change of the one entry this process registered for the workflow; false without one.
    using EntryEdit = std::function<Outcome(ExecutingWorkflowRecord&)>;
    bool ChangeEntry(Workflow* workflow, const EntryEdit& edit);
    bool Reach(bool forWriting, bool mayCreate) const;
    // The entries of the segment bytes in m_copy, parsed again only when those bytes changed.
    const QList<ExecutingWorkflowRecord>& ParsedCopy() const;

    bool m_isHostProcess = false;
    std::unique_ptr<Platform::SharedSegment> m_segment;
    mutable QByteArray m_copy; // reused between calls: one copy of the segment
    // The segment as last parsed, and what it held: an enumeration of an unchanged list (the usual
    // case of a launcher that polls) costs a compare instead of a parse.
    mutable QByteArray m_parsedBytes;
    mutable QList<ExecutingWorkflowRecord> m_parsed;
};

} // namespace Velmora::WorkflowCore
