// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace Velmora::WorkflowCore {

class ProductCatalog;
class Workflow;
class WorkflowSettingsStore;
class XlfCatalog;

// All a workflow record, its file reader and the product rules may ask of the catalogue the
// record lives in. The manager implements it; a record learns its catalogue when the catalogue
// takes it in, so these few upward calls are the only ones and can be answered by a test's own
// catalogue.
class WorkflowCatalogue
{
public:
    // The catalogue's workflow with that id (and, for a non-empty sourceFile, from that file),
    // asked from inside a member of asker (for its template); null when there is none.
    virtual Workflow* FindWorkflowFor(const Workflow* asker, const QString& id,
                                      const QString& sourceFile) = 0;
    // The id or the name of workflow changed: lookups by those keys must see the new ones.
    virtual void KeysChanged(const Workflow* workflow) = 0;
    // The fields of the workflow with that id and file changed: views of it show them again.
    virtual void NotifyWorkflowChanged(const QString& id, const QString& sourceFile) = 0;
    // The translations named by a file's "XlfFile" for the current locale; null when none.
    virtual XlfCatalog* TranslationCatalog(const QString& xlfFile) = 0;
    // The user's per-workflow settings as this catalogue holds them.
    virtual WorkflowSettingsStore& Settings() = 0;
    // The folder in which the user's own workflows are saved; empty when there is none.
    virtual QString UserWorkflowFolder() const = 0;
    // The products installed here, for the rules that ask.
    virtual const ProductCatalog& Products() const = 0;

protected:
    ~WorkflowCatalogue() = default;
};

// The manager's catalogue while the library is initialised, else null: for a record that a
// caller made rather than a catalogue, and so was never told its catalogue.
WorkflowCatalogue* CurrentWorkflowCatalogue();

} // namespace Velmora::WorkflowCore
