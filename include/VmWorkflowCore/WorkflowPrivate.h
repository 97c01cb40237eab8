// SPDX-License-Identifier: MIT
#pragma once

#include <VmWorkflowCore/VmWorkflowCoreExport.h>
#include <VmWorkflowCore/Workflow.h>

#include <QMap>
#include <QString>

class QSortFilterProxyModel;

namespace Velmora {
namespace WorkflowCore {

class WorkflowExecutor;
class WorkflowEditorHandler;

/// Implemented by the host application to be told when the hub link to the application it
/// waits for has started. The library keeps the pointer only; the host keeps ownership.
class VMWORKFLOWCORE_EXPORT LinkStateListener
{
public:
    /// Called from the event loop once the application this listener waits for has linked to this process.
    virtual void OnLinkStarted() = 0;
    /// The process id of the application this listener waits for.
    virtual int GetProcessId() = 0;
    virtual ~LinkStateListener();
};

/// Operations for the library's in-house clients: the workflow editor, the host application and
/// plug-ins. They reach the manager's single instance, which must exist.
class VMWORKFLOWCORE_EXPORT WorkflowPrivate
{
public:
    /// For hosts: registers the run of workflow in the registry of executing workflows and tells the launcher
    /// it began; false when the registry cannot be written.
    static bool AddExecutingWorkflow(Workflow* workflow, int hostProcessId, int launcherProcessId);
    /// For hosts: tells the launcher the run of workflow ended and removes its entry; false when it had none.
    static bool RemoveExecutingWorkflow(Workflow* workflow);
    /// For hosts: listener is told when its application links; not owned.
    static void AddLinkStateListener(LinkStateListener* listener);
    /// Forgets a listener; it is told nothing more.
    static void RemoveLinkStateListener(LinkStateListener* listener);
    /// Hands a workflow the caller created to the catalogue, which owns it from then on.
    static void AddWorkflow(Workflow* workflow);
    /// False when the host context refuses workflow or this process still has an unfinished run; the plug-in
    /// is not asked.
    static bool CanExecuteWorkflow(Workflow* workflow);
    /// Whether workflow passes filter, read as WorkflowManager::GetWorkflows(filter, sort) reads it, so a
    /// caller can ask about one workflow (for example "IsExecutable=true") without a query over the whole
    /// catalogue. An empty filter passes every workflow; a null workflow passes none.
    static bool MatchesFilter(Workflow* workflow, const QString& filter);
    /// Deletes the workflow's file from disk; the catalogue keeps the workflow.
    static void DeleteSourceFile(Workflow* workflow);
    /// The first workflow whose name equals name ignoring case, or null.
    static Workflow* FindWorkflow(const QString& name);
    /// A copy of the arguments' map; empty for null.
    static QMap<QString, QString> GetArguments(WorkflowArguments* arguments);
    /// "base (n)" with the smallest n from 1 that no workflow is named.
    static QString GetNewWorkflowName(const QString& base);
    /// The required products of workflow with display names; empty when it needs none.
    static QString GetRequiredProductsDisplayText(Workflow* workflow);
    /// The user's interface state of workflow, from the per-user settings file.
    static WorkflowUIState GetUIState(Workflow* workflow);
    /// Stores the user's interface state of workflow in the per-user settings file.
    static void SetUIState(Workflow* workflow, const WorkflowUIState& state);
    /// The catalogue's workflow at index, or null outside 0..count-1.
    static Workflow* GetWorkflow(int index);
    /// The position of that very workflow in the catalogue, or -1.
    static int IndexOfWorkflow(Workflow* workflow);
    /// Whether workflow has changes not saved yet, as the editor marked it.
    static bool GetWorkflowDirtyState(Workflow* workflow);
    /// Marks workflow as changed or saved; setters of Workflow never do.
    static void SetWorkflowDirtyState(Workflow* workflow, bool dirty);
    /// The editor handler of the plug-in of workflow, owned by the plug-in; null when it has no plug-in, the
    /// plug-in cannot be loaded or has none.
    static WorkflowEditorHandler* GetWorkflowEditorHandler(Workflow* workflow);
    /// The executor of the plug-in of workflow, owned by the plug-in; null when it has no plug-in, the
    /// plug-in cannot be loaded or has none.
    static WorkflowExecutor* GetWorkflowExecuteHandler(Workflow* workflow);
    /// A sorted and filtered list of the catalogue; the caller owns the model.
    static QSortFilterProxyModel* GetWorkflowListModel(const QString& filter, const QString& sort);
};

} // namespace WorkflowCore
} // namespace Velmora
