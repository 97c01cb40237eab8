// SPDX-License-Identifier: MIT
#pragma once

#include <VmWorkflowCore/Workflow.h>

#include "workflow/WorkflowCatalogue.h"
#include "workflow/WorkflowSettings.h"

#include "util/CompactText.h"

#include <QDateTime>
#include <QMap>
#include <QString>

namespace Velmora::WorkflowCore {

// Every field of one workflow definition, in the order the record declares them. A plain value:
// copying it copies the workflow.
struct WorkflowFields
{
    QString TemplateId;
    bool IsTemplate = true;
    QString Id;
    QString HelpId;
    QString Name;
    QString Description;
    QMap<int, QString> TemplateImages;
    QMap<int, QString> ModifiedImages;
    QString TemplateImage;
    QString ModifiedImage;
    QString Tooltip;
    QString Keywords;
    QString Tag;
    QString UIFile;
    CompactText Settings;
    QString SourceFile;
    QString Plugin;
    QString PrimaryProduct;
    QString RequiredProducts;
    QString TargetProduct;
    QString RequiredProductsDisplayText;
    QDateTime CreatedDate;
    QDateTime LastModifiedDate;
    QString Introduction;
    bool IsReadOnly = false;
    QString XlfFile;
    bool ShowIntroductionOnExecute = true;
    bool UIStateChanged = false;
    bool IsModified = false;
    bool ProductsInherited = false;
    // The two image tables are built from the image texts on first use.
    bool ImageTablesBuilt = false;
};

// The record behind a Workflow facade.
class WorkflowImp
{
public:
    explicit WorkflowImp(Workflow* facade);
    ~WorkflowImp();

    WorkflowImp(const WorkflowImp&) = delete;
    WorkflowImp& operator=(const WorkflowImp&) = delete;

    WorkflowFields& Fields() { return m; }
    const WorkflowFields& Fields() const { return m; }
    Workflow* Facade() const { return m_facade; }

    bool IsReadOnly() const;
    static unsigned int ToInterfaceDate(const QDateTime& date);

    QString GetImage(int kind, int size);
    void SetImage(int kind, int size, const QString& path);

    bool Load(const QString& file, const QString& id);
    bool Save();
    bool Save(const QString& path);
    void Reset();
    void CopyFrom(const WorkflowImp& other);

    QString GetUISetting(const QString& key) const;
    void SetUISetting(const QString& key, const QString& value);

    // True when the target products name a product and a version: the product information
    // is complete and needs nothing from the template.
    bool HasCompleteTargetProduct() const;
    // Takes the template's product fields when this workflow's own are incomplete.
    void InheritProducts();

    QString ResolveImagePath(const QString& path) const;

    // Called by whatever changed the record's Id or Name: its catalogue's lookups follow.
    void KeysChanged();
    // The template this workflow was made from, from its catalogue; null without one.
    Workflow* FindTemplate() const;

    // The catalogue that holds this record, told by the catalogue when it takes the record in;
    // for a record no catalogue holds, the library's current one (null before Initialize).
    WorkflowCatalogue* Catalogue() const;
    void SetCatalogue(WorkflowCatalogue* catalogue) { m_catalogue = catalogue; }
    // Calls use with the catalogue's settings store, or with a store of its own when the record
    // has no catalogue, and returns what use returns.
    template <typename Use> auto WithSettings(Use use) const
    {
        if (WorkflowCatalogue* catalogue = Catalogue())
            return use(catalogue->Settings());
        WorkflowSettingsStore own;
        return use(own);
    }

private:
    void BuildImageTables();
    QMap<int, QString>& TableFor(int kind);

    Workflow* m_facade;
    WorkflowCatalogue* m_catalogue = nullptr;
    WorkflowFields m;
};

// A file name made from a workflow name that cannot leave its folder.
QString SafeFileName(const QString& name);

} // namespace Velmora::WorkflowCore
