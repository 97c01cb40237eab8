// SPDX-License-Identifier: MIT
// A plug-in that logs every call the library makes into it: the entry point and each question
// for a handler. Its editor handler answers null the first time it is asked, so that a test can
// see a null answer asked again. It calls nothing of the workflow library.

#include <VmWorkflowCore/WorkflowPlugin.h>

#include "LoadLog.h"

namespace {

using namespace Velmora::WorkflowCore;
using VmWorkflowTestPlugin::LogEvent;

VmWorkflowTestPlugin::LoadLog g_loadLog;

class CountingExecutor : public WorkflowExecutor
{
public:
    int ExecuteWorkflow(Workflow*, WorkflowArguments*) override { return 42; }
    int GetExitMessage(WideChar* buffer, int size) override
    {
        if (buffer && size > 0)
            buffer[0] = WideChar(0);
        return 0;
    }
};

class CountingEditor : public WorkflowEditorHandler
{
public:
    bool EditWorkflow(Workflow*) override { return false; }
};

class CountingLaunchHandler : public WorkflowLaunchHandler
{
public:
    bool PrepareLaunch(Workflow*, WorkflowArguments*) override { return true; }
};

class CountingPlugin : public WorkflowPlugin
{
public:
    WorkflowExecutor* GetWorkflowExecuteHandler() override
    {
        LogEvent("ask-execute");
        return &m_executor;
    }
    WorkflowEditorHandler* GetWorkflowEditorHandler() override
    {
        LogEvent("ask-editor");
        return m_editorAsked++ == 0 ? nullptr : &m_editor;
    }
    WorkflowLaunchHandler* GetWorkflowLaunchHandler() override
    {
        LogEvent("ask-launch");
        return &m_launchHandler;
    }

private:
    CountingExecutor m_executor;
    CountingEditor m_editor;
    CountingLaunchHandler m_launchHandler;
    int m_editorAsked = 0;
};

CountingPlugin g_plugin;

} // namespace

extern "C" Q_DECL_EXPORT WorkflowPlugin* GetWorkflowPlugin()
{
    LogEvent("entry");
    return &g_plugin;
}
