// SPDX-License-Identifier: MIT
#include <VmWorkflowCore/VmWorkflowCoreVersion.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "execution/ExecutingRegistry.h"
#include "manager/WorkflowManagerImp.h"
#include "notification/WorkflowNotificationManagerImp.h"
#include "util/FacadeAccess.h"
#include "util/TextOut.h"
#include "workflow/WorkflowIteratorImp.h"

#include <OstrelAdapter/ApplicationManager.h>

namespace Velmora::WorkflowCore {

namespace {
// One manager per process, set up and torn down from one thread; no reference count.
bool s_initialized = false;
WorkflowManager* s_instance = nullptr;
} // namespace

HostApplicationContext::~HostApplicationContext() = default;

WorkflowManager::WorkflowManager() : m_imp(new WorkflowManagerImp) {}

WorkflowManager::~WorkflowManager() = default;

bool WorkflowManager::Initialize()
{
    if (s_initialized)
        return true;
    s_initialized = true;
    if (!s_instance)
        s_instance = new WorkflowManager;
    OstrelAdapter::ApplicationManager::Initialize(QStringLiteral("VmWorkflowCore"));
    s_instance->m_imp->SetNotificationManager(
        FacadeAccess::MakeNotificationManager(new WorkflowNotificationManagerImp));
    s_instance->m_imp->LoadProducts();
    return true;
}

bool WorkflowManager::Uninitialize()
{
    if (!s_initialized)
        return true;
    s_initialized = false;
    if (s_instance)
    {
        delete s_instance;
        s_instance = nullptr;
    }
    OstrelAdapter::ApplicationManager::Uninitialize();
    return true;
}

WorkflowManager* WorkflowManager::GetInstance()
{
    return s_instance;
}

WorkflowIterator* WorkflowManager::GetWorkflows()
{
    m_imp->EnsureCatalogueLoaded();
    return FacadeAccess::MakeIterator(new WorkflowIteratorImp(m_imp->Catalogue()));
}

WorkflowIterator* WorkflowManager::GetWorkflows(const WideChar* filter, const WideChar* sort)
{
    return FacadeAccess::MakeIterator(
        new WorkflowIteratorImp(m_imp->QueryWorkflows(TextIn(filter), TextIn(sort))));
}

Workflow* WorkflowManager::GetWorkflow(const WideChar* id, const WideChar* sourceFile)
{
    return m_imp->FindWorkflow(TextIn(id), TextIn(sourceFile));
}

ExecutingWorkflowIterator* WorkflowManager::GetExecutingWorkflows(bool launchedByThisProcessOnly)
{
    return FacadeAccess::MakeIterator(
        new ExecutingWorkflowIteratorImp(m_imp->Registry()->Snapshot(launchedByThisProcessOnly, false)));
}

void WorkflowManager::SetWorkflowSearchPaths(const WideChar* paths)
{
    m_imp->SetWorkflowSearchPaths(TextIn(paths));
}

int WorkflowManager::GetWorkflowSearchPaths(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->WorkflowSearchPaths(), buffer, size);
}

void WorkflowManager::SetWorkflowPluginSearchPaths(const WideChar* paths)
{
    m_imp->SetWorkflowPluginSearchPaths(TextIn(paths));
}

int WorkflowManager::GetWorkflowPluginSearchPaths(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->WorkflowPluginSearchPaths(), buffer, size);
}

void WorkflowManager::SetCurrentLocale(const WideChar* locale)
{
    m_imp->SetCurrentLocale(TextIn(locale));
}

int WorkflowManager::GetCurrentLocale(WideChar* buffer, int size)
{
    return CopyTextOut(m_imp->CurrentLocale(), buffer, size);
}

bool WorkflowManager::ExecuteWorkflow(Workflow* workflow, WorkflowLaunchPoint launchPoint)
{
    return m_imp->ExecuteWorkflow(workflow, launchPoint);
}

bool WorkflowManager::DeleteWorkflow(const WideChar* id, const WideChar* sourceFile, bool removeFromFile)
{
    return m_imp->DeleteWorkflow(TextIn(id), TextIn(sourceFile), removeFromFile);
}

bool WorkflowManager::WorkflowModifiedInPlugin(const WideChar* workflowId, const WideChar* sourceFile)
{
    // Plug-ins treat the announcement as fire-and-forget; whether anyone heard it is not theirs.
    if (WorkflowNotificationManager* notifications = m_imp->NotificationManager())
        ImpOf(notifications)->AnnounceWorkflowModified(TextIn(workflowId), TextIn(sourceFile));
    return true;
}

void WorkflowManager::SetHostApplicationContext(HostApplicationContext* context)
{
    m_imp->SetHostApplicationContext(context);
}

HostApplicationContext* WorkflowManager::GetHostApplicationContext() const
{
    return m_imp->GetHostApplicationContext();
}

WorkflowNotificationManager* WorkflowManager::GetNotificationManager()
{
    return m_imp->NotificationManager();
}

void WorkflowManager::WorkflowExecutionBeginningInApplication(Workflow* workflow, int processId)
{
    m_imp->Registry()->AddExecutingApplication(workflow, processId);
}

void WorkflowManager::WorkflowExecutionFinishedInApplication(Workflow* workflow, int processId)
{
    m_imp->Registry()->RemoveExecutingApplication(workflow, processId);
}

bool WorkflowManager::SetExecutingWorkflowExitStatus(Workflow* workflow, int status, const WideChar* message)
{
    return m_imp->Registry()->SetExitStatus(workflow, status, TextIn(message));
}

int WorkflowManager::ProductIdsToNameList(const WideChar* ids, WideChar* buffer, int size) const
{
    return CopyTextOut(m_imp->Products().NameList(TextIn(ids)), buffer, size);
}

void WorkflowManager::ProductIdsToOstrelNameList(const WideChar* ids, WideChar* names, int namesSize,
                                                 WideChar* second, int secondSize) const
{
    QString nameList;
    QString versionList;
    m_imp->Products().OstrelNameList(TextIn(ids), nameList, versionList);
    // Each buffer is filled only when there is room for something.
    if (names && namesSize >= 1)
        CopyTextOut(nameList, names, namesSize);
    if (second && secondSize >= 1)
        CopyTextOut(versionList, second, secondSize);
}

int WorkflowManager::GetInstalledProducts(const WideChar* productIds, long long* ids, int size) const
{
    const QList<qint64> installed = m_imp->Products().InstalledProducts(TextIn(productIds));
    if (!ids)
        return int(installed.size());
    if (size < 1)
        return 0;
    const int count = qMin(size, int(installed.size()));
    for (int i = 0; i < count; ++i)
        ids[i] = installed.at(i);
    return count;
}

void WorkflowManager::GetWorkflowVersionInfo(int& major, int& minor) const
{
    major = VMWORKFLOWCORE_VERSION_MAJOR;
    minor = VMWORKFLOWCORE_VERSION_MINOR;
}

} // namespace Velmora::WorkflowCore
