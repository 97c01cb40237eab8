// SPDX-License-Identifier: MIT
// A plug-in whose launch handler refuses every launch, and counts how often it is asked.

#include <VmWorkflowCore/WorkflowPlugin.h>

namespace {

int s_launchHandlerRequests = 0;
int s_prepareLaunchCalls = 0;

class RefusingLaunchHandler : public Velmora::WorkflowCore::WorkflowLaunchHandler
{
public:
    bool PrepareLaunch(Velmora::WorkflowCore::Workflow*, Velmora::WorkflowCore::WorkflowArguments*) override
    {
        ++s_prepareLaunchCalls;
        return false;
    }
};

class RefusingPlugin : public Velmora::WorkflowCore::WorkflowPlugin
{
public:
    Velmora::WorkflowCore::WorkflowExecutor* GetWorkflowExecuteHandler() override { return nullptr; }
    Velmora::WorkflowCore::WorkflowEditorHandler* GetWorkflowEditorHandler() override { return nullptr; }
    Velmora::WorkflowCore::WorkflowLaunchHandler* GetWorkflowLaunchHandler() override
    {
        ++s_launchHandlerRequests;
        return &m_handler;
    }

private:
    RefusingLaunchHandler m_handler;
};

} // namespace

VMWORKFLOW_DECLARE_PLUGIN(RefusingPlugin)

extern "C" Q_DECL_EXPORT int RefusingPluginLaunchHandlerRequests()
{
    return s_launchHandlerRequests;
}

extern "C" Q_DECL_EXPORT int RefusingPluginPrepareLaunchCalls()
{
    return s_prepareLaunchCalls;
}
