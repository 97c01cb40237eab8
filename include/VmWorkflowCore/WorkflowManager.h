// SPDX-License-Identifier: MIT
#pragma once

#include <VmWorkflowCore/VmWorkflowCoreExport.h>
#include <VmWorkflowCore/Workflow.h>

#include <QObject>

namespace Velmora {
namespace WorkflowCore {

class WorkflowManagerImp;
class WorkflowNotificationManagerImp;

/// Where a launch was asked from; reported with the launch.
enum WorkflowLaunchPoint : int
{
    ApplicationMenu = 0, ///< the application's menu
    WorkflowBrowser,     ///< a workflow browser
    WorkflowEditor,      ///< the workflow editor
    Ribbon               ///< the application's ribbon
};

/// Implemented by the application that embeds the library and set on the manager; the manager
/// only keeps the pointer, the application keeps ownership.
class VMWORKFLOWCORE_EXPORT HostApplicationContext
{
public:
    /// May refuse a launch.
    virtual bool CanExecuteWorkflow(Workflow* workflow) = 0;
    /// Adds arguments for the host application of a launch.
    virtual void AddLaunchArguments(Workflow* workflow, WorkflowArguments* arguments) = 0;
    /// The product the application is, by the text-out rule of the exported interface.
    virtual int GetCurrentProductId(WideChar* buffer, int size) = 0;
    /// Called last before the host application is started; false cancels the launch.
    virtual bool BeforeExecuteWorkflow(Workflow* workflow) = 0;
    virtual ~HostApplicationContext();
};

/// Raises a signal when a workflow launched by this process starts or ends in the host
/// application. The ExecutingWorkflow passed lives only for the duration of the signal.
class VMWORKFLOWCORE_EXPORT WorkflowNotificationManager : public QObject
{
    Q_OBJECT
public:
    ~WorkflowNotificationManager() override;

Q_SIGNALS:
    /// A run began in a host application. workflow, and the Workflow it names, may be used during the signal
    /// only.
    void WorkflowExecutionBeginning(Velmora::WorkflowCore::ExecutingWorkflow* workflow);
    /// A run ended; GetErrorStatus() and GetErrorMessage() tell how. workflow may be used during the signal
    /// only.
    void WorkflowExecutionFinished(Velmora::WorkflowCore::ExecutingWorkflow* workflow);

private:
    friend class FacadeAccess;
    // Only the manager makes the one notification manager (WorkflowManager::GetNotificationManager());
    // it owns imp.
    explicit WorkflowNotificationManager(WorkflowNotificationManagerImp* imp);

    std::unique_ptr<WorkflowNotificationManagerImp> const m_imp;
};

/// The library's single entry object. Initialize() creates it, Uninitialize() destroys it and
/// every workflow of its catalogue.
class VMWORKFLOWCORE_EXPORT WorkflowManager
{
public:
    /// Creates the singleton; a second call does nothing (there is no reference count).
    static bool Initialize();
    /// Destroys the singleton and everything it owns.
    static bool Uninitialize();
    /// The singleton, or null outside Initialize()/Uninitialize().
    static WorkflowManager* GetInstance();

    /// All workflows of the catalogue; the iterator belongs to the caller.
    WorkflowIterator* GetWorkflows();
    /// The workflows that pass filter, sorted by sort; the iterator belongs to the caller.
    WorkflowIterator* GetWorkflows(const WideChar* filter, const WideChar* sort);
    /// The first workflow whose id equals id ignoring case and, when sourceFile is not empty,
    /// that was read from that file. Owned by the catalogue.
    Workflow* GetWorkflow(const WideChar* id, const WideChar* sourceFile);
    /// The unfinished runs in the registry of executing workflows whose host process still runs;
    /// with launchedByThisProcessOnly only those this process launched. The iterator belongs to
    /// the caller.
    ExecutingWorkflowIterator* GetExecutingWorkflows(bool launchedByThisProcessOnly);

    /// Folders joined by ";" scanned for workflow files; a changed value rescans at once.
    void SetWorkflowSearchPaths(const WideChar* paths);
    /// The workflow folders as set, joined by ";"; empty before the first SetWorkflowSearchPaths().
    int GetWorkflowSearchPaths(WideChar* buffer, int size);
    /// Folders joined by ";" searched first for a workflow's plug-in, before the machine-wide folders and the
    /// application's own folder.
    void SetWorkflowPluginSearchPaths(const WideChar* paths);
    /// The plug-in folders as set; empty when none were set.
    int GetWorkflowPluginSearchPaths(WideChar* buffer, int size);
    /// The locale (such as "de-DE") workflow texts are translated into; it is also passed to the host at
    /// launch.
    void SetCurrentLocale(const WideChar* locale);
    /// The locale as set; empty before SetCurrentLocale().
    int GetCurrentLocale(WideChar* buffer, int size);

    /// Starts workflow in the host application VmWorkflowHost and returns at once. True only when the host
    /// was started; false when the workflow is null, the host context or the plug-in refused, this process
    /// still has an unfinished run, or the host could not be started. Follow the run through
    /// GetNotificationManager().
    bool ExecuteWorkflow(Workflow* workflow, WorkflowLaunchPoint launchPoint);
    /// Removes the workflow with id (and, when sourceFile is not empty, read from that file) from the
    /// catalogue and destroys it; with removeFromFile its element is also taken out of the file, and a file
    /// left without workflows is deleted. Pointers to the workflow are invalid afterwards. False when there
    /// is no such workflow, for a template, and when removeFromFile is set but the file cannot be written
    /// (the workflow then stays).
    bool DeleteWorkflow(const WideChar* id, const WideChar* sourceFile, bool removeFromFile);
    /// For hosts and plug-ins: tells the other processes that the workflow with workflowId in sourceFile was
    /// changed on disk, so that their catalogues read it again. Always true.
    bool WorkflowModifiedInPlugin(const WideChar* workflowId, const WideChar* sourceFile);

    /// Sets the embedding application's context (null removes it). The manager keeps the pointer only: the
    /// context must outlive its use or be removed first.
    void SetHostApplicationContext(HostApplicationContext* context);
    /// The context set last, or null.
    HostApplicationContext* GetHostApplicationContext() const;
    /// The object whose signals report runs this process launched; owned by the manager and valid until
    /// Uninitialize().
    WorkflowNotificationManager* GetNotificationManager();

    /// For hosts: records that the run of workflow now uses the application with processId.
    void WorkflowExecutionBeginningInApplication(Workflow* workflow, int processId);
    /// For hosts: records that the run of workflow no longer uses the application with processId.
    void WorkflowExecutionFinishedInApplication(Workflow* workflow, int processId);
    /// For hosts: records the exit status and message of the run of workflow; a non-zero status marks the run
    /// finished. False when the registry cannot be reached.
    bool SetExecutingWorkflowExitStatus(Workflow* workflow, int status, const WideChar* message);

    /// The display names of the product ids (joined by ","), joined by ","; an unknown id gives an empty
    /// name.
    int ProductIdsToNameList(const WideChar* ids, WideChar* buffer, int size) const;
    /// The hub application names of the product ids (joined by ",") into names and the versions the ids ask
    /// for into second, each joined by "," and copied by the text-out rule; a null buffer or a size below 1
    /// leaves that buffer alone.
    void ProductIdsToOstrelNameList(const WideChar* ids, WideChar* names, int namesSize, WideChar* second,
                                    int secondSize) const;
    /// The hub info ids of the installed applications matching the product ids; with a null ids the count
    /// available, else the count written (at most size).
    int GetInstalledProducts(const WideChar* productIds, long long* ids, int size) const;

    /// The library's version (2015 and 11): VMWORKFLOWCORE_VERSION_MAJOR and VMWORKFLOWCORE_VERSION_MINOR
    /// of the VmWorkflowCoreVersion.h it was built with.
    void GetWorkflowVersionInfo(int& major, int& minor) const;

private:
    friend class FacadeAccess;
    WorkflowManager();
    ~WorkflowManager();
    WorkflowManager(const WorkflowManager&) = delete;
    WorkflowManager& operator=(const WorkflowManager&) = delete;

    std::unique_ptr<WorkflowManagerImp> const m_imp;
};

} // namespace WorkflowCore
} // namespace Velmora
