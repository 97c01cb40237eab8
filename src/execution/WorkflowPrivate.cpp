// SPDX-License-Identifier: MIT
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "execution/ExecutingRegistry.h"
#include "execution/Plugin.h"
#include "manager/WorkflowManagerImp.h"
#include "models/WorkflowListModel.h"
#include "models/WorkflowListProxyModel.h"
#include "notification/WorkflowNotificationManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowArgumentsImp.h"
#include "workflow/WorkflowImp.h"

#include <QFile>

namespace Velmora::WorkflowCore {

namespace {

WorkflowManagerImp* Manager()
{
    return WorkflowManagerImp::Instance();
}

WorkflowNotificationManagerImp* Notifications()
{
    WorkflowManagerImp* manager = Manager();
    if (!manager || !manager->NotificationManager())
        return nullptr;
    return ImpOf(manager->NotificationManager());
}

} // namespace

LinkStateListener::~LinkStateListener() = default;

bool WorkflowPrivate::AddExecutingWorkflow(Workflow* workflow, int hostProcessId, int launcherProcessId)
{
    WorkflowManagerImp* manager = Manager();
    if (!workflow || !manager || !manager->Registry()->Add(workflow, hostProcessId, launcherProcessId))
        return false;
    if (WorkflowNotificationManagerImp* notifications = Notifications())
        notifications->AnnounceExecutionBeginning(workflow);
    return true;
}

// The entry stays in the registry: it counts as ended once its host is gone, and a later run of
// the same workflow from the same launcher takes its place.
bool WorkflowPrivate::RemoveExecutingWorkflow(Workflow* workflow)
{
    WorkflowManagerImp* manager = Manager();
    if (!workflow || !manager || manager->Registry()->ReadAll().isEmpty())
        return false;
    if (WorkflowNotificationManagerImp* notifications = Notifications())
        notifications->AnnounceExecutionFinished(workflow);
    return true;
}

void WorkflowPrivate::AddLinkStateListener(LinkStateListener* listener)
{
    if (WorkflowNotificationManagerImp* notifications = Notifications())
        notifications->AddLinkStateListener(listener);
}

void WorkflowPrivate::RemoveLinkStateListener(LinkStateListener* listener)
{
    if (WorkflowNotificationManagerImp* notifications = Notifications())
        notifications->RemoveLinkStateListener(listener);
}

void WorkflowPrivate::AddWorkflow(Workflow* workflow)
{
    Manager()->AddWorkflow(workflow);
}

bool WorkflowPrivate::CanExecuteWorkflow(Workflow* workflow)
{
    WorkflowManagerImp* manager = Manager();
    if (!workflow || !manager)
        return false;
    HostApplicationContext* context = manager->GetHostApplicationContext();
    if (context && !context->CanExecuteWorkflow(workflow))
        return false;
    // One unfinished launch per process: the plug-in has no say in this.
    return manager->Registry()->Enumerate(true, false).isEmpty();
}

bool WorkflowPrivate::MatchesFilter(Workflow* workflow, const QString& filter)
{
    WorkflowManagerImp* manager = Manager();
    if (!workflow || !manager)
        return false;
    return manager->PassesFilter(workflow, ParseFilterText(filter));
}

void WorkflowPrivate::DeleteSourceFile(Workflow* workflow)
{
    if (!workflow)
        return;
    const QString& sourceFile = ImpOf(workflow)->Fields().SourceFile;
    if (!sourceFile.isEmpty())
        QFile::remove(sourceFile);
}

Workflow* WorkflowPrivate::FindWorkflow(const QString& name)
{
    return Manager()->FindWorkflowByName(name);
}

QMap<QString, QString> WorkflowPrivate::GetArguments(WorkflowArguments* arguments)
{
    if (!arguments)
        return {};
    return ImpOf(arguments)->values;
}

QString WorkflowPrivate::GetNewWorkflowName(const QString& base)
{
    // The host's temporary launch file is named after the workflow and may not grow longer.
    constexpr qsizetype kLimit = 246;
    for (int n = 1;; ++n)
    {
        const QString suffix = QStringLiteral(" (%1)").arg(n);
        QString shortened = base;
        if (shortened.size() + suffix.size() > kLimit)
            shortened.chop(shortened.size() + suffix.size() - kLimit);
        const QString candidate = shortened + suffix;
        if (!Manager()->FindWorkflowByName(candidate))
            return candidate;
    }
}

QString WorkflowPrivate::GetRequiredProductsDisplayText(Workflow* workflow)
{
    return workflow ? ImpOf(workflow)->Fields().RequiredProductsDisplayText : QString();
}

WorkflowUIState WorkflowPrivate::GetUIState(Workflow* workflow)
{
    WorkflowUIState state{true};
    if (workflow)
        state.ShowIntroductionOnExecute = ImpOf(workflow)->Fields().ShowIntroductionOnExecute;
    return state;
}

void WorkflowPrivate::SetUIState(Workflow* workflow, const WorkflowUIState& state)
{
    if (!workflow)
        return;
    WorkflowFields& fields = ImpOf(workflow)->Fields();
    fields.ShowIntroductionOnExecute = state.ShowIntroductionOnExecute;
    fields.UIStateChanged = true;
}

Workflow* WorkflowPrivate::GetWorkflow(int index)
{
    const QList<Workflow*>& catalogue = Manager()->Catalogue();
    if (index < 0 || index >= catalogue.size())
        return nullptr;
    return catalogue.at(index);
}

int WorkflowPrivate::IndexOfWorkflow(Workflow* workflow)
{
    return Manager()->IndexOfWorkflow(workflow);
}

bool WorkflowPrivate::GetWorkflowDirtyState(Workflow* workflow)
{
    return workflow && ImpOf(workflow)->Fields().IsModified;
}

void WorkflowPrivate::SetWorkflowDirtyState(Workflow* workflow, bool dirty)
{
    if (workflow)
        ImpOf(workflow)->Fields().IsModified = dirty;
}

WorkflowEditorHandler* WorkflowPrivate::GetWorkflowEditorHandler(Workflow* workflow)
{
    WorkflowManagerImp* manager = Manager();
    Plugin* plugin = manager ? manager->PluginFor(workflow) : nullptr;
    return plugin ? plugin->EditorHandler() : nullptr;
}

WorkflowExecutor* WorkflowPrivate::GetWorkflowExecuteHandler(Workflow* workflow)
{
    WorkflowManagerImp* manager = Manager();
    Plugin* plugin = manager ? manager->PluginFor(workflow) : nullptr;
    return plugin ? plugin->ExecuteHandler() : nullptr;
}

QSortFilterProxyModel* WorkflowPrivate::GetWorkflowListModel(const QString& filter, const QString& sort)
{
    auto* proxy = new WorkflowListProxyModel(ParseFilterText(filter), ParseSortText(sort));
    // The list model has no parent; the caller's proxy destroys it.
    proxy->AdoptSourceModel(new WorkflowListModel);
    return proxy;
}

} // namespace Velmora::WorkflowCore
