// SPDX-License-Identifier: MIT
#pragma once

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

namespace Velmora::WorkflowCore {

class WorkflowManagerImp;
class WorkflowNotificationManagerImp;

// The one way from an exported facade to what it hides, and the one place that may make the
// facades whose constructors take private types. Callers see only pointers, so a facade's
// insides can change without touching the installed headers.
class FacadeAccess
{
public:
    static WorkflowImp* Imp(const Workflow* workflow) { return workflow->m_imp.get(); }
    static WorkflowArgumentsImp* Imp(const WorkflowArguments* arguments) { return arguments->m_imp.get(); }
    static WorkflowManagerImp* Imp(const WorkflowManager* manager) { return manager->m_imp.get(); }
    static WorkflowNotificationManagerImp* Imp(const WorkflowNotificationManager* notifications)
    {
        return notifications->m_imp.get();
    }
    static ExecutingWorkflowRecord* Record(const ExecutingWorkflow* run) { return run->m_record.get(); }

    // Each takes ownership of what it is given.
    static WorkflowIterator* MakeIterator(WorkflowIteratorImp* imp) { return new WorkflowIterator(imp); }
    static ExecutingWorkflowIterator* MakeIterator(ExecutingWorkflowIteratorImp* imp)
    {
        return new ExecutingWorkflowIterator(imp);
    }
    static ExecutingWorkflow* MakeExecutingWorkflow(ExecutingWorkflowRecord* record)
    {
        return new ExecutingWorkflow(record);
    }
    static WorkflowNotificationManager* MakeNotificationManager(WorkflowNotificationManagerImp* imp)
    {
        return new WorkflowNotificationManager(imp);
    }
};

// Shorthands: ImpOf(workflow) for a pointer or a reference to a facade.
inline WorkflowImp* ImpOf(const Workflow* workflow)
{
    return FacadeAccess::Imp(workflow);
}
inline WorkflowImp* ImpOf(const Workflow& workflow)
{
    return FacadeAccess::Imp(&workflow);
}
inline WorkflowArgumentsImp* ImpOf(const WorkflowArguments* arguments)
{
    return FacadeAccess::Imp(arguments);
}
inline WorkflowArgumentsImp* ImpOf(const WorkflowArguments& arguments)
{
    return FacadeAccess::Imp(&arguments);
}
inline WorkflowManagerImp* ImpOf(const WorkflowManager* manager)
{
    return FacadeAccess::Imp(manager);
}
inline WorkflowNotificationManagerImp* ImpOf(const WorkflowNotificationManager* notifications)
{
    return FacadeAccess::Imp(notifications);
}

inline ExecutingWorkflowRecord* RecordOf(const ExecutingWorkflow* run)
{
    return FacadeAccess::Record(run);
}

} // namespace Velmora::WorkflowCore
