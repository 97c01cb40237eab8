// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

// The vocabulary shared by the launch arguments, the plug-in entry point and the hub messages.
namespace Velmora::WorkflowCore::Names {

extern const QString Locale;
extern const QString LocaleId;
extern const QString ParentProcessId;
extern const QString PluginSearchPaths;
extern const QString WorkflowSearchPath;
extern const QString GetWorkflowInfo;
extern const QString WorkflowFile;
extern const QString WorkflowId;
extern const QString WorkflowSourceFile;
extern const QString HostApplicationId;
extern const QString Workflows;
extern const QString Velmora;
extern const QString WorkflowExecutionBeginningMsg;
extern const QString WorkflowExecutionFinishedMsg;
extern const QString WorkflowModifiedMsg;

} // namespace Velmora::WorkflowCore::Names
