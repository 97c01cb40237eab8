// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace Velmora::WorkflowCore {

class WorkflowImp;
class XlfCatalog;
class XmlFiler;
struct WorkflowElementData;

// Reads the record from the "Workflow" element the filer's cursor is on.
void ReadWorkflow(XmlFiler& filer, WorkflowImp& record);

// Reads the record from one element of a file read into plain data, exactly as ReadWorkflow
// reads it from the same element in a document: texts are translated through catalog (which
// may be null) as texts of the file fileName.
void ReadWorkflow(const WorkflowElementData& element, const QString& fileName, XlfCatalog* catalog,
                  WorkflowImp& record);

// Reads the workflow of file whose Id equals id ignoring case (the first one for an empty id).
bool LoadWorkflow(WorkflowImp& record, const QString& file, const QString& id);
// The same through the whole document: the reference the streaming read is held to.
bool LoadWorkflowFromDocument(WorkflowImp& record, const QString& file, const QString& id);

// Whether a save of the workflow with that id may put its file at target: there is no file, or
// every element of the file is a workflow of that id (ignoring case). A file holding another
// workflow, one that cannot be read, and a link are never replaced.
bool MayReplaceWorkflowFile(const QString& target, const QString& id);

// Writes the record as a one-workflow file at target under the given name and id.
bool WriteWorkflow(WorkflowImp& record, const QString& name, const QString& target, const QString& id);

} // namespace Velmora::WorkflowCore
