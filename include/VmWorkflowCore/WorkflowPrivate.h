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

// Implemented by the host application to be told when the hub link to the application it
// waits for has started. The library keeps the pointer only; the host keeps ownership.
class VMWORKFLOWCORE_EXPORT LinkStateListener
{
public:
    virtual void OnLinkStarted() = 0;
    // The process id of the application this listener waits for.
    virtual int GetProcessId() = 0;
    virtual ~LinkStateListener();
};

// Operations for the library's in-house clients: the workflow editor, the host application and
// plug-ins. They reach the manager's single instance, which must exist.
class VMWORKFLOWCORE_EXPORT WorkflowPrivate
{
public:
    static bool AddExecutingWorkflow(Workflow* workflow, int hostProcessId, int launcherProcessId);
    static bool RemoveExecutingWorkflow(Workflow* workflow);
    static void AddLinkStateListener(LinkStateListener* listener);
    static void RemoveLinkStateListener(LinkStateListener* listener);
    // Hands a workflow the caller created to the catalogue, which owns it from then on.
    static void AddWorkflow(Workflow* workflow);
    static bool CanExecuteWorkflow(Workflow* workflow);
    // Deletes the workflow's file from disk; the catalogue keeps the workflow.
    static void DeleteSourceFile(Workflow* workflow);
    // The first workflow whose name equals name ignoring case, or null.
    static Workflow* FindWorkflow(const QString& name);
    // A copy of the arguments' map; empty for null.
    static QMap<QString, QString> GetArguments(WorkflowArguments* arguments);
    // "base (n)" with the smallest n from 1 that no workflow is named.
    static QString GetNewWorkflowName(const QString& base);
    static QString GetRequiredProductsDisplayText(Workflow* workflow);
    static WorkflowUIState GetUIState(Workflow* workflow);
    static void SetUIState(Workflow* workflow, const WorkflowUIState& state);
    // The catalogue's workflow at index, or null outside 0..count-1.
    static Workflow* GetWorkflow(int index);
    // The position of that very workflow in the catalogue, or -1.
    static int IndexOfWorkflow(Workflow* workflow);
    static bool GetWorkflowDirtyState(Workflow* workflow);
    static void SetWorkflowDirtyState(Workflow* workflow, bool dirty);
    static WorkflowEditorHandler* GetWorkflowEditorHandler(Workflow* workflow);
    static WorkflowExecutor* GetWorkflowExecuteHandler(Workflow* workflow);
    // A sorted and filtered list of the catalogue; the caller owns the model.
    static QSortFilterProxyModel* GetWorkflowListModel(const QString& filter, const QString& sort);
};

} // namespace WorkflowCore
} // namespace Velmora
