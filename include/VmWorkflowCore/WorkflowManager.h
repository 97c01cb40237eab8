#pragma once

#include <VmWorkflowCore/VmWorkflowCoreExport.h>
#include <VmWorkflowCore/Workflow.h>

#include <QObject>

namespace Velmora {
namespace WorkflowCore {

class WorkflowManagerImp;
class WorkflowNotificationManagerImp;

// Where a launch was asked from; reported with the launch.
enum WorkflowLaunchPoint : int
{
    ApplicationMenu = 0,
    WorkflowBrowser,
    WorkflowEditor,
    Ribbon
};

// Implemented by the application that embeds the library and set on the manager; the manager
// only keeps the pointer, the application keeps ownership.
class VMWORKFLOWCORE_EXPORT HostApplicationContext
{
public:
    // May refuse a launch.
    virtual bool CanExecuteWorkflow(Workflow* workflow) = 0;
    // Adds arguments for the host application of a launch.
    virtual void AddLaunchArguments(Workflow* workflow, WorkflowArguments* arguments) = 0;
    // The product the application is, by the text-out rule of the exported interface.
    virtual int GetCurrentProductId(WideChar* buffer, int size) = 0;
    // Called last before the host application is started; false cancels the launch.
    virtual bool BeforeExecuteWorkflow(Workflow* workflow) = 0;
    virtual ~HostApplicationContext();
};

// Raises a signal when a workflow launched by this process starts or ends in the host
// application. The ExecutingWorkflow passed lives only for the duration of the signal.
class VMWORKFLOWCORE_EXPORT WorkflowNotificationManager : public QObject
{
    Q_OBJECT
public:
    explicit WorkflowNotificationManager(WorkflowNotificationManagerImp* imp);
    ~WorkflowNotificationManager() override;

    WorkflowNotificationManagerImp* GetImp() const { return m_imp; }

Q_SIGNALS:
    void WorkflowExecutionBeginning(Velmora::WorkflowCore::ExecutingWorkflow* workflow);
    void WorkflowExecutionFinished(Velmora::WorkflowCore::ExecutingWorkflow* workflow);

private:
    WorkflowNotificationManagerImp* m_imp;
};

// The library's single entry object. Initialize() creates it, Uninitialize() destroys it and
// every workflow of its catalogue.
class VMWORKFLOWCORE_EXPORT WorkflowManager
{
public:
    // Creates the singleton; a second call does nothing (there is no reference count).
    static bool Initialize();
    // Destroys the singleton and everything it owns.
    static bool Uninitialize();
    // The singleton, or null outside Initialize()/Uninitialize().
    static WorkflowManager* GetInstance();

    // All workflows of the catalogue; the iterator belongs to the caller.
    WorkflowIterator* GetWorkflows();
    // The workflows that pass filter, sorted by sort; the iterator belongs to the caller.
    WorkflowIterator* GetWorkflows(const WideChar* filter, const WideChar* sort);
    // The first workflow whose id equals id ignoring case and, when sourceFile is not empty,
    // that was read from that file. Owned by the catalogue.
    Workflow* GetWorkflow(const WideChar* id, const WideChar* sourceFile);
    // The unfinished runs in the registry of executing workflows whose host process still runs;
    // with launchedByThisProcessOnly only those this process launched. The iterator belongs to
    // the caller.
    ExecutingWorkflowIterator* GetExecutingWorkflows(bool launchedByThisProcessOnly);

    // Folders joined by ";" scanned for workflow files; a changed value rescans at once.
    void SetWorkflowSearchPaths(const WideChar* paths);
    int GetWorkflowSearchPaths(WideChar* buffer, int size);
    void SetWorkflowPluginSearchPaths(const WideChar* paths);
    int GetWorkflowPluginSearchPaths(WideChar* buffer, int size);
    void SetCurrentLocale(const WideChar* locale);
    int GetCurrentLocale(WideChar* buffer, int size);

    bool ExecuteWorkflow(Workflow* workflow, WorkflowLaunchPoint launchPoint);
    bool DeleteWorkflow(const WideChar* id, const WideChar* sourceFile, bool removeFromFile);
    bool WorkflowModifiedInPlugin(const WideChar* workflowId, const WideChar* sourceFile);

    void SetHostApplicationContext(HostApplicationContext* context);
    HostApplicationContext* GetHostApplicationContext() const;
    WorkflowNotificationManager* GetNotificationManager();

    void WorkflowExecutionBeginningInApplication(Workflow* workflow, int processId);
    void WorkflowExecutionFinishedInApplication(Workflow* workflow, int processId);
    bool SetExecutingWorkflowExitStatus(Workflow* workflow, int status, const WideChar* message);

    int ProductIdsToNameList(const WideChar* ids, WideChar* buffer, int size) const;
    void ProductIdsToOstrelNameList(const WideChar* ids, WideChar* names, int namesSize,
                                    WideChar* second, int secondSize) const;
    int GetInstalledProducts(const WideChar* productIds, long long* ids, int size) const;

    // Always 2015 and 11.
    void GetWorkflowVersionInfo(int& major, int& minor) const;

    WorkflowManagerImp* GetImp() const { return m_imp; }

private:
    WorkflowManager();
    ~WorkflowManager();
    WorkflowManager(const WorkflowManager&) = delete;
    WorkflowManager& operator=(const WorkflowManager&) = delete;

    WorkflowManagerImp* m_imp;
};

} // namespace WorkflowCore
} // namespace Velmora
