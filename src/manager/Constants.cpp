// SPDX-License-Identifier: MIT
#include "manager/Constants.h"

#include "platform/Platform.h"

namespace Velmora::WorkflowCore::Names {

const QString Locale = QStringLiteral("Locale");
const QString LocaleId = QStringLiteral("LocaleId");
const QString ParentProcessId = QStringLiteral("ParentProcessId");
const QString PluginSearchPaths = QStringLiteral("PluginSearchPaths");
const QString WorkflowSearchPath = QStringLiteral("WorkflowSearchPath");
const QString GetWorkflowInfo = QStringLiteral("GetWorkflowInfo");
const QString WorkflowFile = QStringLiteral("WorkflowFile");
const QString WorkflowId = QStringLiteral("WorkflowId");
const QString WorkflowSourceFile = QStringLiteral("WorkflowSourceFile");
const QString HostApplicationId = QStringLiteral("Id_VmWorkflowHost");
const QString Workflows = QStringLiteral("Workflows");
const QString Velmora = Platform::MakerName();
const QString WorkflowExecutionBeginningMsg = QStringLiteral("WorkflowExecutionBeginningMsg");
const QString WorkflowExecutionFinishedMsg = QStringLiteral("WorkflowExecutionFinishedMsg");
const QString WorkflowModifiedMsg = QStringLiteral("WorkflowModifiedMsg");

} // namespace Velmora::WorkflowCore::Names
