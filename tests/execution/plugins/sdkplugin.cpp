// SPDX-License-Identifier: MIT
// A plug-in written the way a third party writes one: it includes the plug-in SDK header and
// nothing else of ours, and links only what that header needs.

#include <VmWorkflowCore/WorkflowPlugin.h>

#include <algorithm>
#include <vector>

namespace {

using namespace Velmora::WorkflowCore;

class SdkExecutor : public WorkflowExecutor
{
public:
    int ExecuteWorkflow(Workflow* workflow, WorkflowArguments* arguments) override
    {
        if (!workflow)
            return 1;
        // The message names the workflow; the status is the length of its id.
        const int length = workflow->GetName(nullptr, 0);
        std::vector<WideChar> name(static_cast<size_t>(length) + 1);
        workflow->GetName(name.data(), length + 1);
        const char16_t prefix[] = u"Ran ";
        m_message.assign(prefix, prefix + 4);
        m_message.insert(m_message.end(), name.begin(), name.begin() + length);
        if (arguments)
        {
            const char16_t key[] = u"SdkPluginRan";
            const char16_t value[] = u"True";
            arguments->SetValue(reinterpret_cast<const WideChar*>(key),
                                reinterpret_cast<const WideChar*>(value));
        }
        return workflow->GetId(nullptr, 0);
    }
    int GetExitMessage(WideChar* buffer, int size) override
    {
        const int length = static_cast<int>(m_message.size());
        if (!buffer)
            return length;
        if (size < 1)
            return 0;
        const int copied = std::min(length, size - 1);
        std::copy_n(m_message.begin(), copied, buffer);
        buffer[copied] = WideChar(0);
        return copied;
    }

private:
    std::vector<WideChar> m_message;
};

class SdkPlugin : public WorkflowPlugin
{
public:
    WorkflowExecutor* GetWorkflowExecuteHandler() override { return &m_executor; }
    WorkflowEditorHandler* GetWorkflowEditorHandler() override { return nullptr; }
    WorkflowLaunchHandler* GetWorkflowLaunchHandler() override { return nullptr; }

private:
    SdkExecutor m_executor;
};

} // namespace

VMWORKFLOW_DECLARE_PLUGIN(SdkPlugin)
