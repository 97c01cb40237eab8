// SPDX-License-Identifier: MIT
#include "notification/WorkflowNotificationManagerImp.h"

#include "execution/ExecutingRegistry.h"
#include "manager/WorkflowManagerImp.h"
#include "notification/OstrelMessageHandler.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <OstrelAdapter/Application.h>
#include <OstrelAdapter/ApplicationManager.h>
#include <OstrelAdapter/ApplicationMessage.h>

#include <QCoreApplication>
#include <QFileInfo>

namespace Velmora::WorkflowCore {

namespace {

const QString kExecutionBeginningMsg = QStringLiteral("WorkflowExecutionBeginningMsg");
const QString kExecutionFinishedMsg = QStringLiteral("WorkflowExecutionFinishedMsg");
const QString kModifiedMsg = QStringLiteral("WorkflowModifiedMsg");
const QString kWorkflowId = QStringLiteral("WorkflowId");
const QString kWorkflowSourceFile = QStringLiteral("WorkflowSourceFile");

} // namespace

bool IsHostApplication()
{
    if (!QCoreApplication::instance())
        return false;
    const QString baseName = QFileInfo(QCoreApplication::applicationFilePath()).baseName();
    return baseName.compare(QLatin1String("VmWorkflowHost"), Qt::CaseInsensitive) == 0;
}

// Every process listens, so that a launcher hears about the runs its hosts carry out; only the
// host application records links and sends.
WorkflowNotificationManagerImp::WorkflowNotificationManagerImp()
    : m_isHostProcess(IsHostApplication()), m_handler(std::make_unique<OstrelMessageHandler>())
{
    connect(m_handler.get(), &OstrelMessageHandler::OstrelMessageReceived, this,
            &WorkflowNotificationManagerImp::OstrelMessageReceived);
    connect(m_handler.get(), &OstrelMessageHandler::ApplicationLinkStarted, this,
            &WorkflowNotificationManagerImp::ApplicationLinkStarted);
    if (OstrelAdapter::ApplicationManager* hub = OstrelAdapter::ApplicationManager::GetInstance())
        hub->AddMessageHandler(m_handler.get());
}

WorkflowNotificationManagerImp::~WorkflowNotificationManagerImp()
{
    // The hub must forget the handler before it goes; a hub already gone has forgotten it.
    if (OstrelAdapter::ApplicationManager* hub = OstrelAdapter::ApplicationManager::GetInstance())
        hub->RemoveMessageHandler(m_handler.get());
}

void WorkflowNotificationManagerImp::AddLinkStateListener(LinkStateListener* listener)
{
    if (!m_listeners.contains(listener))
        m_listeners.append(listener);
}

void WorkflowNotificationManagerImp::RemoveLinkStateListener(LinkStateListener* listener)
{
    m_listeners.removeAll(listener);
}

void WorkflowNotificationManagerImp::AnnounceExecutionBeginning(Workflow* workflow)
{
    if (!m_isHostProcess || !workflow)
        return;
    SendToLinkedApplications(kExecutionBeginningMsg, {{kWorkflowId, ImpOf(workflow)->Fields().Id}});
}

void WorkflowNotificationManagerImp::AnnounceExecutionFinished(Workflow* workflow)
{
    if (!m_isHostProcess || !workflow)
        return;
    SendToLinkedApplications(kExecutionFinishedMsg, {{kWorkflowId, ImpOf(workflow)->Fields().Id}});
}

void WorkflowNotificationManagerImp::AnnounceWorkflowModified(const QString& workflowId,
                                                              const QString& sourceFile)
{
    if (!m_isHostProcess)
        return;
    SendToLinkedApplications(kModifiedMsg, {{kWorkflowId, workflowId}, {kWorkflowSourceFile, sourceFile}});
}

void WorkflowNotificationManagerImp::SendToLinkedApplications(const QString& name,
                                                              const QMap<QString, QVariant>& data)
{
    OstrelAdapter::ApplicationMessage message(name, data);
    for (OstrelAdapter::Application* application : std::as_const(m_linkedApplications))
        application->Send(&message);
}

void WorkflowNotificationManagerImp::ApplicationLinkStarted(OstrelAdapter::Application* application)
{
    if (!m_isHostProcess || !application)
        return;
    // A listener may remove listeners when told; walk a copy so every listener present at the start
    // is considered once, and skip those removed meanwhile.
    const QList<LinkStateListener*> listeners = m_listeners;
    for (LinkStateListener* listener : listeners)
    {
        if (!listener || !m_listeners.contains(listener) ||
            listener->GetProcessId() != application->GetProcessId())
            continue;
        if (!m_linkedApplications.contains(application))
            m_linkedApplications.append(application);
        listener->OnLinkStarted();
    }
}

void WorkflowNotificationManagerImp::OstrelMessageReceived(OstrelAdapter::ApplicationMessage* message)
{
    WorkflowManagerImp* manager = WorkflowManagerImp::Instance();
    if (!message || !manager)
        return;
    const QString name = message->GetName();
    const QMap<QString, QVariant> data = message->GetData();
    const QString workflowId = data.value(kWorkflowId).toString();
    const QString sourceFile = data.value(kWorkflowSourceFile).toString();

    std::unique_ptr<ExecutingWorkflowRecord> entry;
    if (ExecutingRegistry* registry = manager->Registry())
    {
        const QList<ExecutingWorkflowRecord> records = registry->Enumerate(true, true);
        for (const ExecutingWorkflowRecord& record : records)
        {
            if (record.WorkflowId.compare(workflowId, Qt::CaseInsensitive) == 0)
            {
                entry = std::make_unique<ExecutingWorkflowRecord>(record);
                break;
            }
        }
    }

    if (name == kModifiedMsg)
    {
        if (Workflow* workflow = manager->FindWorkflow(workflowId, QString()))
            ImpOf(workflow)->Load(sourceFile, workflowId);
        return;
    }
    if (!entry || !m_public)
        return;
    if (name == kExecutionBeginningMsg)
    {
        const std::unique_ptr<ExecutingWorkflow> executing(
            FacadeAccess::MakeExecutingWorkflow(entry.release()));
        Q_EMIT m_public->WorkflowExecutionBeginning(executing.get());
    }
    else if (name == kExecutionFinishedMsg)
    {
        const std::unique_ptr<ExecutingWorkflow> executing(
            FacadeAccess::MakeExecutingWorkflow(entry.release()));
        Q_EMIT m_public->WorkflowExecutionFinished(executing.get());
    }
}

} // namespace Velmora::WorkflowCore
