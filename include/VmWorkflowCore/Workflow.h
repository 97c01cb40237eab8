#pragma once

#include <VmWorkflowCore/VmWorkflowCoreExport.h>

// Text crosses this interface as zero-terminated UTF-16 (WideChar). Every getter of the form
// int GetX(WideChar* buffer, int size) follows one rule:
//   - a null buffer returns the length of the value in code units (size is not looked at);
//   - a size below 1 writes nothing and returns 0;
//   - otherwise at most size - 1 code units are copied, a terminator always follows, and the
//     number of units copied is returned. A result of size - 1 may mean the value was cut.
// Text setters store the value only when it differs from the current one.

namespace Velmora {
namespace WorkflowCore {

class WorkflowImp;
class WorkflowArgumentsImp;
class WorkflowIteratorImp;
class ExecutingWorkflowIteratorImp;
struct ExecutingWorkflowRecord;

// Which image table GetImage and SetImage use. Any other value selects the template table, so
// the type is fixed to int to make every value a valid one.
enum WorkflowImage : int
{
    WorkflowImageAutomatic = 0, // the template table for a template, else the modified table
    WorkflowImageTemplate = 1,
    WorkflowImageModified = 2
};

// The per-user state of a workflow's user interface.
struct WorkflowUIState
{
    bool ShowIntroductionOnExecute;
};

// One workflow definition. A Workflow obtained from the manager, an iterator or an
// ExecutingWorkflow belongs to the manager's catalogue and must not be deleted; one you
// construct or Clone() belongs to you.
class VMWORKFLOWCORE_EXPORT Workflow
{
public:
    Workflow();
    ~Workflow();

    int GetTemplateId(WideChar* buffer, int size);
    bool IsTemplate() const;
    int GetId(WideChar* buffer, int size);
    int GetHelpId(WideChar* buffer, int size);
    void SetHelpId(const WideChar* value);
    int GetName(WideChar* buffer, int size);
    void SetName(const WideChar* value);
    int GetDescription(WideChar* buffer, int size);
    void SetDescription(const WideChar* value);
    // The image path of the table selected by which whose pixel width lies nearest to key.
    int GetImage(WorkflowImage which, int key, WideChar* buffer, int size);
    // Stores path under the width key; a key below 1 uses the image's own width.
    void SetImage(WorkflowImage which, int key, const WideChar* path);
    int GetToolTip(WideChar* buffer, int size);
    void SetToolTip(const WideChar* value);
    int GetTag(WideChar* buffer, int size);
    void SetTag(const WideChar* value);
    int GetSettings(WideChar* buffer, int size);
    void SetSettings(const WideChar* value);
    int GetUIFile(WideChar* buffer, int size);
    void SetUIFile(const WideChar* value);
    int GetSourceFile(WideChar* buffer, int size);
    int GetPrimaryProduct(WideChar* buffer, int size);
    int GetTargetProduct(WideChar* buffer, int size);
    int GetRequiredProducts(WideChar* buffer, int size);
    int GetRequiredProductsDisplayText(WideChar* buffer, int size);
    // Seconds since 1970-01-01 00:00 UTC. A date before that reads as 0 and one after
    // 2106-02-07T06:28:15 UTC as 4294967295, the largest value the result can hold.
    unsigned int GetCreatedDate();
    unsigned int GetLastModifiedDate();
    int GetKeywords(WideChar* buffer, int size);
    void SetKeywords(const WideChar* value);
    int GetIntroduction(WideChar* buffer, int size);

    // Reads the workflow from file; with a non-empty id, the workflow whose Id equals it
    // ignoring case.
    bool Load(const WideChar* file, const WideChar* id);
    // Writes the workflow beside its source file under its name. A template is never saved.
    bool Save();
    // Saves as a new workflow named after file, in the user's workflow folder.
    bool Save(const WideChar* file);
    bool IsReadOnly();
    // Takes the description, keywords and settings of the workflow's template again.
    void Reset();
    // A copy that belongs to the caller.
    Workflow* Clone();
    // Copies every field of other into this workflow; a null other does nothing.
    void CopyFrom(Workflow* other);
    void SetUISetting(const WideChar* key, const WideChar* value);
    int GetUISetting(const WideChar* key, WideChar* buffer, int size);

    // For the library's own use: the record behind this facade.
    WorkflowImp* GetImp() const { return m_imp; }

private:
    Workflow(const Workflow&) = delete;
    Workflow& operator=(const Workflow&) = delete;

    WorkflowImp* m_imp;
};

// A string-to-string map that the host application and plug-ins fill before a launch.
class VMWORKFLOWCORE_EXPORT WorkflowArguments
{
public:
    WorkflowArguments();
    ~WorkflowArguments();

    // The value stored under key (keys compare exactly), or the empty text.
    int GetValue(const WideChar* key, WideChar* buffer, int size) const;
    void SetValue(const WideChar* key, const WideChar* value);

    WorkflowArgumentsImp* GetImp() const { return m_imp; }

private:
    WorkflowArguments(const WorkflowArguments&) = delete;
    WorkflowArguments& operator=(const WorkflowArguments&) = delete;

    WorkflowArgumentsImp* m_imp;
};

// Walks a snapshot of the catalogue taken when the iterator was made; later changes of the
// catalogue do not change what it visits. Deleting it leaves the workflows alone.
class VMWORKFLOWCORE_EXPORT WorkflowIterator
{
public:
    explicit WorkflowIterator(WorkflowIteratorImp* imp);
    ~WorkflowIterator();

    // The first call moves onto the first workflow; false once past the end.
    bool MoveNext();
    // The workflow at the position, or null past the end (and before the first MoveNext).
    Workflow* GetCurrent();
    // The next MoveNext starts again from the first workflow of the same snapshot.
    void Reset();

private:
    WorkflowIterator(const WorkflowIterator&) = delete;
    WorkflowIterator& operator=(const WorkflowIterator&) = delete;

    WorkflowIteratorImp* m_imp;
};

// One running workflow as read from the shared registry of executing workflows. It belongs to
// the ExecutingWorkflowIterator that produced it and dies with it.
class VMWORKFLOWCORE_EXPORT ExecutingWorkflow
{
public:
    explicit ExecutingWorkflow(ExecutingWorkflowRecord* record);
    ~ExecutingWorkflow();

    // The catalogue's workflow with this run's id, or null. Needs the manager.
    Workflow* GetWorkflow();
    int GetHostProcessId();
    int GetLauncherProcessId();
    int GetTargetProductProcessId() const;
    int GetExecutingApplicationsCount() const;
    // Copies the first min(size, count) process ids; 0 for a null buffer or a size below 1.
    int GetExecutingApplications(int* buffer, int size) const;
    int GetErrorStatus() const;
    // True exactly when the recorded exit status is not 0.
    bool IsFinished() const;
    int GetErrorMessage(WideChar* buffer, int size) const;

    ExecutingWorkflowRecord* GetRecord() const { return m_record; }

private:
    ExecutingWorkflow(const ExecutingWorkflow&) = delete;
    ExecutingWorkflow& operator=(const ExecutingWorkflow&) = delete;

    ExecutingWorkflowRecord* m_record;
};

// Walks a snapshot of the registry of executing workflows. Deleting it destroys every
// ExecutingWorkflow it yielded.
class VMWORKFLOWCORE_EXPORT ExecutingWorkflowIterator
{
public:
    explicit ExecutingWorkflowIterator(ExecutingWorkflowIteratorImp* imp);
    ~ExecutingWorkflowIterator();

    bool MoveNext();
    ExecutingWorkflow* GetCurrent();
    void Reset();

private:
    ExecutingWorkflowIterator(const ExecutingWorkflowIterator&) = delete;
    ExecutingWorkflowIterator& operator=(const ExecutingWorkflowIterator&) = delete;

    ExecutingWorkflowIteratorImp* m_imp;
};

} // namespace WorkflowCore
} // namespace Velmora
