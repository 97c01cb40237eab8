// SPDX-License-Identifier: MIT
#pragma once

/// @file
/// The plug-in SDK: what a workflow plug-in library implements and exports.
///
/// A plug-in is a shared library named by a workflow's "Plugin" attribute: an absolute path, or a
/// file name looked for in the configured plug-in folders, then the machine-wide ones, then the
/// folder of the running application. Workflows naming files of the same name (ignoring case)
/// share one library. The library loads it once per process, on the first request for a handler,
/// calls its C entry point "GetWorkflowPlugin" and keeps the WorkflowPlugin it returns for as long
/// as the process uses the library; it never deletes any object of this header. A library that
/// cannot be loaded or lacks the entry point is not tried again in that process. When the manager
/// is uninitialised the library is unloaded without any call into it, so handlers must not be used
/// after that. Every interface below keeps its virtual operations in the order written: a plug-in
/// built against this header by a third party is called through those slots.

#include <VmWorkflowCore/Workflow.h>

#include <QtGlobal>

namespace Velmora {
namespace WorkflowCore {

/// Carries out a workflow inside the host application. Opaque to the library itself: the library
/// only hands it to the host (WorkflowPrivate::GetWorkflowExecuteHandler).
class WorkflowExecutor
{
public:
    /// Runs the workflow to its end on the calling thread. arguments holds the launch's
    /// "/Key=Value" pairs (without the slash) as the host received them; the executor may read
    /// them and must not keep the pointer. Returns the run's exit status: 0 for success, any other
    /// value for a failure.
    virtual int ExecuteWorkflow(Workflow* workflow, WorkflowArguments* arguments) = 0;
    /// The last run's message for the user (empty after a plain success), copied by the library's
    /// text-out rule: a null buffer asks the length; otherwise at most size - 1 units and a
    /// terminator are copied and the count copied is returned.
    virtual int GetExitMessage(WideChar* buffer, int size) = 0;
    virtual ~WorkflowExecutor() = default;
};

/// Lets the workflow editor show a plug-in's own pages for a workflow. Opaque to the library.
class WorkflowEditorHandler
{
public:
    /// Opens the plug-in's editor for the workflow; true when the user changed it.
    virtual bool EditWorkflow(Workflow* workflow) = 0;
    virtual ~WorkflowEditorHandler() = default;
};

/// Asked by the launcher before it starts the host application for one of the plug-in's
/// workflows.
class WorkflowLaunchHandler
{
public:
    /// False refuses the launch. The handler may add entries to arguments; each becomes one
    /// "/Key=Value" argument of the host's command line. Neither pointer may be kept.
    virtual bool PrepareLaunch(Workflow* workflow, WorkflowArguments* arguments) = 0;
    virtual ~WorkflowLaunchHandler() = default;
};

/// The interface the entry point returns. Each operation may return null when the plug-in has no
/// such handler. The library keeps the first non-null answer of each operation for as long as the
/// library stays loaded and does not ask again; a null answer is asked again on the next request.
class WorkflowPlugin
{
public:
    /// The executor the host runs workflows with, owned by the plug-in; null when it has none.
    virtual WorkflowExecutor* GetWorkflowExecuteHandler() = 0;
    /// The editor pages of the plug-in, owned by it; null when it has none.
    virtual WorkflowEditorHandler* GetWorkflowEditorHandler() = 0;
    /// Asked once per process before the first launch of one of its workflows; owned by the plug-in; null
    /// when it has none.
    virtual WorkflowLaunchHandler* GetWorkflowLaunchHandler() = 0;
    virtual ~WorkflowPlugin() = default;
};

} // namespace WorkflowCore
} // namespace Velmora

/// The signature of the entry point, for hosts that resolve it themselves.
extern "C" typedef Velmora::WorkflowCore::WorkflowPlugin* (*GetWorkflowPluginFunction)();

/// Defines the exported entry point "GetWorkflowPlugin" of a plug-in library. PluginClass is
/// default-constructed once, on the first call, and lives until the library is unloaded:
///
///     class MyPlugin : public Velmora::WorkflowCore::WorkflowPlugin { ... };
///     VMWORKFLOW_DECLARE_PLUGIN(MyPlugin)
#define VMWORKFLOW_DECLARE_PLUGIN(PluginClass)                                                               \
    extern "C" Q_DECL_EXPORT Velmora::WorkflowCore::WorkflowPlugin* GetWorkflowPlugin()                      \
    {                                                                                                        \
        static PluginClass instance;                                                                         \
        return &instance;                                                                                    \
    }
