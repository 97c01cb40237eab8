#include "workflow/WorkflowFile.h"

namespace Velmora::WorkflowCore {

// TEMPORARY until the XML filer lands in this tree.
void ReadWorkflow(XmlFiler&, WorkflowImp&) {}
bool LoadWorkflow(WorkflowImp&, const QString&, const QString&) { return false; }
bool WriteWorkflow(WorkflowImp&, const QString&, const QString&, const QString&) { return false; }

} // namespace Velmora::WorkflowCore
