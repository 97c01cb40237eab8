#include "notification/WorkflowNotificationManagerImp.h"

#include <QCoreApplication>
#include <QFileInfo>

namespace Velmora::WorkflowCore {

bool IsHostApplication()
{
    if (!QCoreApplication::instance())
        return false;
    const QString baseName = QFileInfo(QCoreApplication::applicationFilePath()).baseName();
    return baseName.compare(QLatin1String("VmWorkflowHost"), Qt::CaseInsensitive) == 0;
}

WorkflowNotificationManagerImp::WorkflowNotificationManagerImp() : m_isHostProcess(IsHostApplication()) {}

WorkflowNotificationManagerImp::~WorkflowNotificationManagerImp() = default;

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
    Q_UNUSED(workflow);
}

void WorkflowNotificationManagerImp::AnnounceExecutionFinished(Workflow* workflow)
{
    Q_UNUSED(workflow);
}

void WorkflowNotificationManagerImp::AnnounceWorkflowModified(const QString& workflowId, const QString& sourceFile)
{
    Q_UNUSED(workflowId);
    Q_UNUSED(sourceFile);
}

} // namespace Velmora::WorkflowCore
