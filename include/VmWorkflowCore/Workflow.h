// SPDX-License-Identifier: MIT
#pragma once

#include <VmWorkflowCore/VmWorkflowCoreExport.h>

#include <memory>

/// @file
/// Workflows, their launch arguments, and the iterators over the catalogue and over running workflows.
///
/// Text crosses this interface as zero-terminated UTF-16 (WideChar). Every getter of the form
/// int GetX(WideChar* buffer, int size) follows one rule:
///   - a null buffer returns the length of the value in code units (size is not looked at);
///   - a size below 1 writes nothing and returns 0;
///   - otherwise at most size - 1 code units are copied, a terminator always follows, and the
///     number of units copied is returned. A result of size - 1 may mean the value was cut.
///
/// An empty value reads as length 0. Text setters store the value only when it differs from the
/// current one; they change the workflow in memory only, and Workflow::Save() writes it.

/// The product family's shared libraries.
namespace Velmora {
/// The workflow library: workflows, their catalogue, launching and following runs, plug-ins.
namespace WorkflowCore {

class WorkflowImp;
class WorkflowArgumentsImp;
class WorkflowIteratorImp;
class ExecutingWorkflowIteratorImp;
struct ExecutingWorkflowRecord;
class FacadeAccess;

/// Which image table GetImage and SetImage use. Any other value selects the template table, so
/// the type is fixed to int to make every value a valid one.
enum WorkflowImage : int
{
    WorkflowImageAutomatic = 0, ///< the template table for a template, else the modified table
    WorkflowImageTemplate = 1,  ///< the template images
    WorkflowImageModified = 2   ///< the images of the user's changed copy
};

/// The per-user state of a workflow's user interface.
struct WorkflowUIState
{
    /// Whether the host shows the workflow's introduction before it runs it.
    bool ShowIntroductionOnExecute;
};

/// One workflow definition. A Workflow obtained from the manager, an iterator or an
/// ExecutingWorkflow belongs to the manager's catalogue and must not be deleted; one you
/// construct or Clone() belongs to you.
class VMWORKFLOWCORE_EXPORT Workflow
{
public:
    Workflow();
    ~Workflow();

    /// The id of the template this workflow was made from; empty when it was made from none.
    int GetTemplateId(WideChar* buffer, int size);
    /// True for a template: a read-only workflow from which users make their own.
    bool IsTemplate() const;
    /// The workflow's id, unique in the catalogue ignoring case (two files may still share one).
    int GetId(WideChar* buffer, int size);
    /// The help topic of the workflow; empty when it has none.
    int GetHelpId(WideChar* buffer, int size);
    /// Sets the help topic in memory; Save() writes it.
    void SetHelpId(const WideChar* value);
    /// The display name; a template's name is translated into the manager's locale when its translation file
    /// has it.
    int GetName(WideChar* buffer, int size);
    /// Renames the workflow in memory; Save() writes it under the new name.
    void SetName(const WideChar* value);
    /// The description shown to the user; empty when there is none.
    int GetDescription(WideChar* buffer, int size);
    /// Sets the description in memory; Save() writes it.
    void SetDescription(const WideChar* value);
    /// The image path of the table selected by which whose pixel width lies nearest to key.
    int GetImage(WorkflowImage which, int key, WideChar* buffer, int size);
    /// Stores path under the width key; a key below 1 uses the image's own width.
    void SetImage(WorkflowImage which, int key, const WideChar* path);
    /// The tool tip text; empty when there is none.
    int GetToolTip(WideChar* buffer, int size);
    /// Sets the tool tip in memory; Save() writes it.
    void SetToolTip(const WideChar* value);
    /// Free text the embedding application keeps with the workflow; the library never reads it.
    int GetTag(WideChar* buffer, int size);
    /// Sets the free tag text in memory; Save() writes it.
    void SetTag(const WideChar* value);
    /// The plug-in's settings markup, as written inside the workflow's Settings element; empty when there is
    /// none.
    int GetSettings(WideChar* buffer, int size);
    /// Replaces the settings markup in memory; Save() writes it.
    void SetSettings(const WideChar* value);
    /// The path of the user-interface file the plug-in shows; empty when there is none.
    int GetUIFile(WideChar* buffer, int size);
    /// Sets the user-interface file path in memory; Save() writes it.
    void SetUIFile(const WideChar* value);
    /// The path of the .workflow file the workflow was read from; empty for one made in memory and never
    /// saved.
    int GetSourceFile(WideChar* buffer, int size);
    /// The product id (code, optionally ":" and a version) the workflow belongs to; empty when none.
    int GetPrimaryProduct(WideChar* buffer, int size);
    /// The product id the workflow works on; empty when none.
    int GetTargetProduct(WideChar* buffer, int size);
    /// The required-products expression that decides whether the workflow can run here; empty means it can
    /// run anywhere.
    int GetRequiredProducts(WideChar* buffer, int size);
    /// The required-products expression with product names, for display; empty when the workflow needs
    /// nothing.
    int GetRequiredProductsDisplayText(WideChar* buffer, int size);
    /// Seconds since 1970-01-01 00:00 UTC. A date before that reads as 0 and one after
    /// 2106-02-07T06:28:15 UTC as 4294967295, the largest value the result can hold.
    unsigned int GetCreatedDate();
    /// Like GetCreatedDate(), for the last change saved.
    unsigned int GetLastModifiedDate();
    /// Keywords for searching, as one text; empty when there are none.
    int GetKeywords(WideChar* buffer, int size);
    /// Sets the keywords in memory; Save() writes them.
    void SetKeywords(const WideChar* value);
    /// The introduction shown before the workflow runs; empty when there is none.
    int GetIntroduction(WideChar* buffer, int size);

    /// Reads the workflow from file; with a non-empty id, the workflow whose Id equals it
    /// ignoring case.
    bool Load(const WideChar* file, const WideChar* id);
    /// Writes the workflow beside its source file under its name. A template is never saved.
    bool Save();
    /// Saves as a new workflow named after file, in the user's workflow folder.
    bool Save(const WideChar* file);
    /// True for a template and for a workflow marked read-only; Save() refuses such a workflow.
    bool IsReadOnly();
    /// Takes the description, keywords and settings of the workflow's template again.
    void Reset();
    /// A copy that belongs to the caller.
    Workflow* Clone();
    /// Copies every field of other into this workflow; a null other does nothing.
    void CopyFrom(Workflow* other);
    /// Stores one per-user interface setting of this workflow in the user's settings file.
    void SetUISetting(const WideChar* key, const WideChar* value);
    /// One per-user interface setting of this workflow; empty when it was never stored.
    int GetUISetting(const WideChar* key, WideChar* buffer, int size);

private:
    friend class FacadeAccess;
    Workflow(const Workflow&) = delete;
    Workflow& operator=(const Workflow&) = delete;

    std::unique_ptr<WorkflowImp> const m_imp;
};

/// A string-to-string map that the host application and plug-ins fill before a launch.
class VMWORKFLOWCORE_EXPORT WorkflowArguments
{
public:
    WorkflowArguments();
    ~WorkflowArguments();

    /// The value stored under key (keys compare exactly), or the empty text.
    int GetValue(const WideChar* key, WideChar* buffer, int size) const;
    /// Stores value under key, replacing what was there; keys compare exactly.
    void SetValue(const WideChar* key, const WideChar* value);

private:
    friend class FacadeAccess;
    WorkflowArguments(const WorkflowArguments&) = delete;
    WorkflowArguments& operator=(const WorkflowArguments&) = delete;

    std::unique_ptr<WorkflowArgumentsImp> const m_imp;
};

/// Walks a snapshot of the catalogue taken when the iterator was made; later changes of the
/// catalogue do not change what it visits. Deleting it leaves the workflows alone.
class VMWORKFLOWCORE_EXPORT WorkflowIterator
{
public:
    ~WorkflowIterator();

    /// The first call moves onto the first workflow; false once past the end.
    bool MoveNext();
    /// The workflow at the position, or null past the end (and before the first MoveNext).
    Workflow* GetCurrent();
    /// The next MoveNext starts again from the first workflow of the same snapshot.
    void Reset();

private:
    friend class FacadeAccess;
    // Only the manager makes iterators (WorkflowManager::GetWorkflows()); the iterator owns imp.
    explicit WorkflowIterator(WorkflowIteratorImp* imp);
    WorkflowIterator(const WorkflowIterator&) = delete;
    WorkflowIterator& operator=(const WorkflowIterator&) = delete;

    std::unique_ptr<WorkflowIteratorImp> const m_imp;
};

/// One running workflow as read from the shared registry of executing workflows. It belongs to
/// the ExecutingWorkflowIterator that produced it and dies with it.
class VMWORKFLOWCORE_EXPORT ExecutingWorkflow
{
public:
    ~ExecutingWorkflow();

    /// The catalogue's workflow with this run's id, or null. Needs the manager.
    Workflow* GetWorkflow();
    /// The process id of the host application that runs the workflow.
    int GetHostProcessId();
    /// The process id of the application that launched the run.
    int GetLauncherProcessId();
    /// The process id of the target product's application recorded for the run; 0 when none is recorded.
    int GetTargetProductProcessId() const;
    /// How many application processes the run is using right now.
    int GetExecutingApplicationsCount() const;
    /// Copies the first min(size, count) process ids; 0 for a null buffer or a size below 1.
    int GetExecutingApplications(int* buffer, int size) const;
    /// The exit status recorded for the run; 0 while it runs and after a successful end.
    int GetErrorStatus() const;
    /// True exactly when the recorded exit status is not 0.
    bool IsFinished() const;
    /// The message recorded with the exit status; empty when none was given.
    int GetErrorMessage(WideChar* buffer, int size) const;

private:
    friend class FacadeAccess;
    // Made from a copy of one registry entry, which it owns, for an ExecutingWorkflowIterator.
    explicit ExecutingWorkflow(ExecutingWorkflowRecord* record);
    ExecutingWorkflow(const ExecutingWorkflow&) = delete;
    ExecutingWorkflow& operator=(const ExecutingWorkflow&) = delete;

    std::unique_ptr<ExecutingWorkflowRecord> const m_record;
};

/// Walks a snapshot of the registry of executing workflows. Deleting it destroys every
/// ExecutingWorkflow it yielded.
class VMWORKFLOWCORE_EXPORT ExecutingWorkflowIterator
{
public:
    ~ExecutingWorkflowIterator();

    /// The first call moves onto the first run; false once past the end.
    bool MoveNext();
    /// The run at the position, owned by this iterator; null past the end (and before the first MoveNext).
    ExecutingWorkflow* GetCurrent();
    /// The next MoveNext starts again from the first run of the same snapshot.
    void Reset();

private:
    friend class FacadeAccess;
    // Only the manager makes these iterators (WorkflowManager::GetExecutingWorkflows()); it owns imp.
    explicit ExecutingWorkflowIterator(ExecutingWorkflowIteratorImp* imp);
    ExecutingWorkflowIterator(const ExecutingWorkflowIterator&) = delete;
    ExecutingWorkflowIterator& operator=(const ExecutingWorkflowIterator&) = delete;

    std::unique_ptr<ExecutingWorkflowIteratorImp> const m_imp;
};

} // namespace WorkflowCore
} // namespace Velmora
