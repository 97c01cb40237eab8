// SPDX-License-Identifier: MIT
#pragma once

#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include <QList>
#include <QObject>

#include <memory>

namespace Velmora::OstrelAdapter {
class Application;
class ApplicationMessage;
} // namespace Velmora::OstrelAdapter

namespace Velmora::WorkflowCore {

class OstrelMessageHandler;

class WorkflowNotificationManagerImp : public QObject
{
    Q_OBJECT
public:
    WorkflowNotificationManagerImp();
    ~WorkflowNotificationManagerImp() override;

    void SetPublic(WorkflowNotificationManager* manager) { m_public = manager; }
    WorkflowNotificationManager* Public() const { return m_public; }

    // Only the host application takes part on the hub side.
    bool IsHostProcess() const { return m_isHostProcess; }

    void AddLinkStateListener(LinkStateListener* listener);
    void RemoveLinkStateListener(LinkStateListener* listener);
    const QList<LinkStateListener*>& LinkStateListeners() const { return m_listeners; }

    // Announcements to the linked applications; each does nothing outside the host application or
    // for a null workflow.
    void AnnounceExecutionBeginning(Workflow* workflow);
    void AnnounceExecutionFinished(Workflow* workflow);
    void AnnounceWorkflowModified(const QString& workflowId, const QString& sourceFile);

    // The applications whose links a listener was waiting for, in the order they linked; always
    // empty outside the host application.
    const QList<OstrelAdapter::Application*>& LinkedApplications() const { return m_linkedApplications; }

public Q_SLOTS:
    void OstrelMessageReceived(Velmora::OstrelAdapter::ApplicationMessage* message);
    void ApplicationLinkStarted(Velmora::OstrelAdapter::Application* application);

private:
    void SendToLinkedApplications(const QString& name, const QMap<QString, QVariant>& data);

    WorkflowNotificationManager* m_public = nullptr;
    bool m_isHostProcess = false;
    // Registered with the hub from construction until destruction, whenever a hub exists.
    std::unique_ptr<OstrelMessageHandler> m_handler;
    QList<OstrelAdapter::Application*> m_linkedApplications;
    QList<LinkStateListener*> m_listeners;
};

// Whether the running application is the host application, by its file's base name.
bool IsHostApplication();

} // namespace Velmora::WorkflowCore
