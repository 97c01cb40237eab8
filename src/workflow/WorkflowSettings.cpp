#include "workflow/WorkflowSettings.h"

namespace Velmora::WorkflowCore {

// TEMPORARY until the XML filer lands in this tree.
QString WorkflowSettingsFolder() { return QString(); }
QString WorkflowSettingsFile() { return QString(); }
QString ReadWorkflowSetting(const QString&, const QString&) { return QString(); }
void WriteWorkflowSetting(const QString&, const QString&, const QString&) {}

} // namespace Velmora::WorkflowCore
