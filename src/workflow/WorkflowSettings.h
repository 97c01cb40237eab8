#pragma once

#include <QString>

namespace Velmora::WorkflowCore {

// The per-user settings of workflows, one element per workflow Id (exact case), one attribute
// per setting.
QString WorkflowSettingsFolder();
QString WorkflowSettingsFile();

// Empty when anything is missing.
QString ReadWorkflowSetting(const QString& workflowId, const QString& key);
// Creates the folder, the file and the workflow's element as needed; a damaged file is never
// overwritten.
void WriteWorkflowSetting(const QString& workflowId, const QString& key, const QString& value);

} // namespace Velmora::WorkflowCore
