// SPDX-License-Identifier: MIT
#include <VmWorkflowCore/WorkflowManager.h>

#include "notification/WorkflowNotificationManagerImp.h"

namespace Velmora::WorkflowCore {

WorkflowNotificationManager::WorkflowNotificationManager(WorkflowNotificationManagerImp* imp)
    : QObject(nullptr), m_imp(imp)
{
    m_imp->SetPublic(this);
}

WorkflowNotificationManager::~WorkflowNotificationManager() = default;

} // namespace Velmora::WorkflowCore
