#include "execution/ExecutingRegistry.h"

namespace Velmora::WorkflowCore {

QList<ExecutingWorkflow*> ExecutingRegistry::Snapshot(bool includeFinished) const
{
    Q_UNUSED(includeFinished);
    return {};
}

} // namespace Velmora::WorkflowCore
