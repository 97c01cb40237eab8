// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <functional>

namespace Velmora::WorkflowCore {

class WorkflowImp;
class XlfCatalog;
class WorkflowSettingsStore;
class XmlFiler;
struct WorkflowElementData;

// Finds the translation catalogue of a file by the name its root gives in "XlfFile".
using CatalogLookup = std::function<XlfCatalog*(const QString& xlfFile)>;

// Has the filer, open on a workflow file, translate that file's texts through the catalogue its
// root names. Returns the name, empty when the file names none.
QString TranslateThroughFileCatalog(XmlFiler& filer, const CatalogLookup& catalogFor);

// Whether the element the cursor is on is the workflow with that id; ids match ignoring case.
bool IsWorkflowWithId(const XmlFiler& filer, const QString& id);
// Moves the cursor forward over its element and the siblings after it to the first workflow
// with that id; false, with the cursor on the last sibling, when none has it.
bool GoToWorkflowWithId(XmlFiler& filer, const QString& id);

// The user's choice whether the template with that id shows its introduction each time it runs,
// kept in the per-user settings: shown unless turned off.
bool ReadShowIntroductionOnExecute(WorkflowSettingsStore& settings, const QString& id);
void WriteShowIntroductionOnExecute(WorkflowSettingsStore& settings, const QString& id, bool show);

// Reads the record from the "Workflow" element the filer's cursor is on.
void ReadWorkflow(XmlFiler& filer, WorkflowImp& record);

// Reads the record from one element of a file read into plain data, exactly as ReadWorkflow
// reads it from the same element in a document: texts are translated through catalog (which
// may be null) as texts of the file fileName. sourceFile is that file's path as the record names
// it, CleanPath(fileName): a scan, whose paths are clean as it builds them, reads thousands of
// records without cleaning each path again.
void ReadWorkflow(const WorkflowElementData& element, const QString& fileName, const QString& sourceFile,
                  XlfCatalog* catalog, WorkflowImp& record);

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
