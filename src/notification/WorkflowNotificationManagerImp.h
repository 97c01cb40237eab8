#pragma once

#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include <QList>
#include <QObject>

namespace Velmora::WorkflowCore {

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

private:
    WorkflowNotificationManager* m_public = nullptr;
    bool m_isHostProcess = false;
    QList<LinkStateListener*> m_listeners;
};

// Whether the running application is the host application, by its file's base name.
bool IsHostApplication();

} // namespace Velmora::WorkflowCore
