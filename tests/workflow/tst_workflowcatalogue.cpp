// SPDX-License-Identifier: MIT
// What a record asks of the catalogue it lives in goes to that catalogue and to no other: a test's
// own catalogue answers every upward call here, with no manager in the process. Settings stores
// keep their state to themselves, as one per manager must.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "manager/ProductCatalog.h"
#include "manager/ProductRules.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowCatalogue.h"
#include "workflow/WorkflowFile.h"
#include "workflow/WorkflowImp.h"
#include "workflow/WorkflowSettings.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QtTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

// Records every question a record asks and answers from its own small world.
class RecordingCatalogue : public WorkflowCatalogue
{
public:
    Workflow* FindWorkflowFor(const Workflow* asker, const QString& id, const QString& sourceFile) override
    {
        lookups.append({asker, id});
        Q_UNUSED(sourceFile);
        return id.compare(templateId, Qt::CaseInsensitive) == 0 ? templ : nullptr;
    }
    void KeysChanged(const Workflow* workflow) override { keysChanged.append(workflow); }
    void NotifyWorkflowChanged(const QString& id, const QString& sourceFile) override
    {
        changed.append(id + QLatin1Char('|') + sourceFile);
    }
    XlfCatalog* TranslationCatalog(const QString& xlfFile) override
    {
        translationsAsked.append(xlfFile);
        return nullptr;
    }
    WorkflowSettingsStore& Settings() override { return settings; }
    QString UserWorkflowFolder() const override { return userFolder; }
    const ProductCatalog& Products() const override { return products; }

    QList<QPair<const Workflow*, QString>> lookups;
    QList<const Workflow*> keysChanged;
    QStringList changed;
    QStringList translationsAsked;
    WorkflowSettingsStore settings;
    ProductCatalog products;
    QString userFolder;
    QString templateId;
    Workflow* templ = nullptr;
};

} // namespace

class tst_WorkflowCatalogue : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        // Nothing here may lean on a manager: there is none.
        QVERIFY(!WorkflowManager::GetInstance());
        QVERIFY(!CurrentWorkflowCatalogue());
    }

    void templateLookupGoesToTheRecordsCatalogue()
    {
        RecordingCatalogue catalogue;
        Workflow templ;
        ImpOf(templ)->Fields().Description = QStringLiteral("from the template");
        catalogue.templateId = QStringLiteral("Id_T");
        catalogue.templ = &templ;

        Workflow user;
        ImpOf(user)->SetCatalogue(&catalogue);
        ImpOf(user)->Fields().IsTemplate = false;
        ImpOf(user)->Fields().TemplateId = QStringLiteral("id_t");
        user.Reset();
        QCOMPARE(catalogue.lookups.size(), 1);
        QCOMPARE(catalogue.lookups.at(0).first, &user);
        QCOMPARE(catalogue.lookups.at(0).second, QStringLiteral("id_t"));
        QCOMPARE(ImpOf(user)->Fields().Description, QStringLiteral("from the template"));
    }

    void recordWithoutCatalogueFindsNoTemplate()
    {
        Workflow user;
        ImpOf(user)->Fields().IsTemplate = false;
        ImpOf(user)->Fields().TemplateId = QStringLiteral("Id_T");
        ImpOf(user)->Fields().Description = QStringLiteral("own");
        user.Reset();
        QVERIFY(!ImpOf(user)->FindTemplate());
        QCOMPARE(ImpOf(user)->Fields().Description, QStringLiteral("own"));
    }

    void renameTellsTheCatalogueOnce()
    {
        RecordingCatalogue catalogue;
        Workflow workflow;
        ImpOf(workflow)->SetCatalogue(&catalogue);
        workflow.SetName(Wide(QStringLiteral("new name")));
        QCOMPARE(catalogue.keysChanged.size(), 1);
        QCOMPARE(catalogue.keysChanged.at(0), &workflow);
        // The same name again changes nothing, so nothing is said.
        workflow.SetName(Wide(QStringLiteral("new name")));
        QCOMPARE(catalogue.keysChanged.size(), 1);
    }

    void readingAFileTellsTheCatalogueOfNewKeysAndAsksItForTranslations()
    {
        RecordingCatalogue catalogue;
        const QString file = m_env.Root() + QStringLiteral("/one.workflow");
        QVERIFY(WriteFile(file, R"(<?xml version="1.0"?><Workflows XlfFile="SampleTexts">)"
                                R"(<Workflow Id="Id_A" Name="a"/></Workflows>)"));
        Workflow workflow;
        ImpOf(workflow)->SetCatalogue(&catalogue);
        QVERIFY(ImpOf(workflow)->Load(file, QStringLiteral("Id_A")));
        QCOMPARE(ImpOf(workflow)->Fields().Name, QStringLiteral("a"));
        QVERIFY(catalogue.keysChanged.contains(&workflow));
        QCOMPARE(catalogue.translationsAsked, QStringList{QStringLiteral("SampleTexts")});
    }

    void copyTellsTheCatalogueTheRecordChanged()
    {
        RecordingCatalogue catalogue;
        Workflow source;
        ImpOf(source)->Fields().Id = QStringLiteral("Id_S");
        ImpOf(source)->Fields().SourceFile = QStringLiteral("/w/s.workflow");
        Workflow target;
        ImpOf(target)->SetCatalogue(&catalogue);
        target.CopyFrom(&source);
        QCOMPARE(catalogue.changed, QStringList{QStringLiteral("Id_S|/w/s.workflow")});
        QCOMPARE(catalogue.keysChanged.size(), 1);
    }

    void settingsGoThroughTheCataloguesStore()
    {
        RecordingCatalogue catalogue;
        Workflow workflow;
        ImpOf(workflow)->SetCatalogue(&catalogue);
        ImpOf(workflow)->Fields().Id = QStringLiteral("Id_Set");
        {
            // While the catalogue's store gathers writes, they are its own: the file and any
            // other store do not have them yet.
            WorkflowSettingsStore::Batch batch(catalogue.settings);
            workflow.SetUISetting(Wide(QStringLiteral("Page")), Wide(QStringLiteral("2")));
            QCOMPARE(catalogue.settings.Read(QStringLiteral("Id_Set"), QStringLiteral("Page")),
                     QStringLiteral("2"));
            QCOMPARE(WorkflowSettingsStore().Read(QStringLiteral("Id_Set"), QStringLiteral("Page")),
                     QString());
        }
        QCOMPARE(WorkflowSettingsStore().Read(QStringLiteral("Id_Set"), QStringLiteral("Page")),
                 QStringLiteral("2"));
    }

    void recordWithoutCatalogueStillReadsAndWritesTheUsersSettings()
    {
        Workflow workflow;
        ImpOf(workflow)->Fields().Id = QStringLiteral("Id_Alone");
        workflow.SetUISetting(Wide(QStringLiteral("Key")), Wide(QStringLiteral("v")));
        QCOMPARE(WorkflowSettingsStore().Read(QStringLiteral("Id_Alone"), QStringLiteral("Key")),
                 QStringLiteral("v"));
        const QString read = ReadText(
            [&](WideChar* b, int s) { return workflow.GetUISetting(Wide(QStringLiteral("Key")), b, s); });
        QCOMPARE(read, QStringLiteral("v"));
    }

    void twoStoresKeepTheirBatchesApart()
    {
        WorkflowSettingsStore first;
        WorkflowSettingsStore second;
        first.Write(QStringLiteral("Id_Two"), QStringLiteral("K"), QStringLiteral("before"));
        QCOMPARE(second.Read(QStringLiteral("Id_Two"), QStringLiteral("K")), QStringLiteral("before"));
        {
            WorkflowSettingsStore::Batch batch(first);
            first.Write(QStringLiteral("Id_Two"), QStringLiteral("K"), QStringLiteral("batched"));
            // The second store's reads are not steered into the first one's pending document.
            QCOMPARE(first.Read(QStringLiteral("Id_Two"), QStringLiteral("K")), QStringLiteral("batched"));
            QCOMPARE(second.Read(QStringLiteral("Id_Two"), QStringLiteral("K")), QStringLiteral("before"));
        }
        QCOMPARE(second.Read(QStringLiteral("Id_Two"), QStringLiteral("K")), QStringLiteral("batched"));
    }

    void executabilityAsksTheRecordsCatalogueForInstalledProducts()
    {
        RecordingCatalogue catalogue;
        Workflow workflow;
        ImpOf(workflow)->SetCatalogue(&catalogue);
        ImpOf(workflow)->Fields().RequiredProducts = QStringLiteral("alpha");
        // The test's catalogue knows no product: nothing is installed, whatever the machine has.
        QVERIFY(!WorkflowMatchesFilter(&workflow, QStringLiteral("IsExecutable"), QStringLiteral("true")));
        QVERIFY(WorkflowMatchesFilter(&workflow, QStringLiteral("IsExecutable"), QStringLiteral("false")));
        bool installed = true;
        QVERIFY(ProductInstalledLeaf(nullptr, QStringLiteral("alpha"), installed));
        QVERIFY(!installed);
    }
};

QTEST_GUILESS_MAIN(tst_WorkflowCatalogue)
#include "tst_workflowcatalogue.moc"
