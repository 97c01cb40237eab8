// SPDX-License-Identifier: MIT
#include <VmWorkflowCore/WorkflowManager.h>

#include "notification/WorkflowNotificationManagerImp.h"

namespace Velmora::WorkflowCore {

WorkflowNotificationManager::WorkflowNotificationManager(WorkflowNotificationManagerImp* imp)
    : QObject(nullptr), m_imp(imp)
{
    m_imp->SetPublic(this);
}

WorkflowNotificationManager::~WorkflowNotificationManager()
{
    delete m_imp;
    m_imp = nullptr;
}

} // namespace Velmora::WorkflowCore
