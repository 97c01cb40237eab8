// SPDX-License-Identifier: MIT
// The workflow record: defaults, images, copies, reset, the target check and inheritance.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "TestEnvironment.h"
#include "WideText.h"

#include <QImage>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using VmWorkflowTest::ReadText;
using VmWorkflowTest::Wide;

namespace {

WorkflowFields& F(Workflow& workflow)
{
    return ImpOf(workflow)->Fields();
}

QString ImageOf(Workflow& workflow, WorkflowImage which, int size)
{
    return ReadText([&](WideChar* b, int s) { return workflow.GetImage(which, size, b, s); });
}

void WriteImage(const QString& path, int width)
{
    QImage image(width, 8, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QVERIFY(image.save(path, "PNG"));
}

// A user workflow (not a template) made from templateId.
Workflow* NewUserWorkflow(const QString& id, const QString& templateId)
{
    auto* workflow = new Workflow;
    F(*workflow).IsTemplate = false;
    F(*workflow).Id = id;
    F(*workflow).TemplateId = templateId;
    return workflow;
}

} // namespace

class tst_Workflow : public QObject
{
    Q_OBJECT
private:
    VmWorkflowTest::TestEnvironment m_env;
    QTemporaryDir m_dir;

    QString Path(const QString& name) const { return m_dir.filePath(name); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        QVERIFY(m_dir.isValid());
        WriteImage(Path(QStringLiteral("w16.png")), 16);
        WriteImage(Path(QStringLiteral("w32.png")), 32);
        WriteImage(Path(QStringLiteral("w48.png")), 48);
        QDir(m_dir.path()).mkpath(QStringLiteral("templates"));
        WriteImage(Path(QStringLiteral("templates/t24.png")), 24);
    }

    void init()
    {
        QVERIFY(WorkflowManager::Initialize());
        // Loaded once, the catalogue keeps the workflows the tests add to it.
        ImpOf(WorkflowManager::GetInstance())->EnsureCatalogueLoaded();
    }
    void cleanup() { QVERIFY(WorkflowManager::Uninitialize()); }

    void defaultsAfterConstruction()
    {
        Workflow workflow;
        const WorkflowFields& f = F(workflow);
        QVERIFY(f.IsTemplate);
        QVERIFY(workflow.IsTemplate());
        QVERIFY(f.ShowIntroductionOnExecute);
        QVERIFY(!f.IsReadOnly);
        QVERIFY(!f.UIStateChanged);
        QVERIFY(!f.IsModified);
        QVERIFY(!f.ProductsInherited);
        QVERIFY(f.CreatedDate.isNull());
        QVERIFY(f.LastModifiedDate.isNull());
        QCOMPARE(workflow.GetCreatedDate(), 0u);
        QCOMPARE(workflow.GetLastModifiedDate(), 0u);
        for (const QString* text :
             {&f.TemplateId, &f.Id, &f.HelpId, &f.Name, &f.Description, &f.TemplateImage, &f.ModifiedImage,
              &f.Tooltip, &f.Keywords, &f.Tag, &f.UIFile, &f.SourceFile, &f.Plugin, &f.PrimaryProduct,
              &f.RequiredProducts, &f.TargetProduct, &f.RequiredProductsDisplayText, &f.Introduction,
              &f.XlfFile})
            QVERIFY(text->isEmpty());
        QVERIFY(f.Settings.isEmpty());
        QVERIFY(f.TemplateImages.isEmpty());
        QVERIFY(f.ModifiedImages.isEmpty());
        QVERIFY(WorkflowPrivate::GetUIState(&workflow).ShowIntroductionOnExecute);
    }

    void settersReplaceTheField()
    {
        Workflow workflow;
        workflow.SetHelpId(Wide(QStringLiteral("help")));
        workflow.SetName(Wide(QStringLiteral("name")));
        workflow.SetDescription(Wide(QStringLiteral("description")));
        workflow.SetToolTip(Wide(QStringLiteral("tip")));
        workflow.SetTag(Wide(QStringLiteral("tag")));
        workflow.SetSettings(Wide(QStringLiteral("<A/>")));
        workflow.SetUIFile(Wide(QStringLiteral("ui.xml")));
        workflow.SetKeywords(Wide(QStringLiteral("k1 k2")));
        QCOMPARE(F(workflow).HelpId, QStringLiteral("help"));
        QCOMPARE(F(workflow).Name, QStringLiteral("name"));
        QCOMPARE(F(workflow).Description, QStringLiteral("description"));
        QCOMPARE(F(workflow).Tooltip, QStringLiteral("tip"));
        QCOMPARE(F(workflow).Tag, QStringLiteral("tag"));
        QCOMPARE(F(workflow).Settings.ToString(), QStringLiteral("<A/>"));
        QCOMPARE(F(workflow).UIFile, QStringLiteral("ui.xml"));
        QCOMPARE(F(workflow).Keywords, QStringLiteral("k1 k2"));
        QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetKeywords(b, s); }),
                 QStringLiteral("k1 k2"));
    }

    void settersDoNotMarkDirty()
    {
        Workflow workflow;
        workflow.SetName(Wide(QStringLiteral("changed")));
        QVERIFY(!WorkflowPrivate::GetWorkflowDirtyState(&workflow));
        WorkflowPrivate::SetWorkflowDirtyState(&workflow, true);
        QVERIFY(WorkflowPrivate::GetWorkflowDirtyState(&workflow));
    }

    void getterTextsReadEveryField()
    {
        Workflow workflow;
        F(workflow).TemplateId = QStringLiteral("T");
        F(workflow).Id = QStringLiteral("I");
        F(workflow).SourceFile = QStringLiteral("/x/y.workflow");
        F(workflow).PrimaryProduct = QStringLiteral("P");
        F(workflow).TargetProduct = QStringLiteral("Q:1");
        F(workflow).RequiredProducts = QStringLiteral("a & b");
        F(workflow).RequiredProductsDisplayText = QStringLiteral("A and B");
        F(workflow).Introduction = QStringLiteral("Hello");
        QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetTemplateId(b, s); }),
                 QStringLiteral("T"));
        QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetId(b, s); }), QStringLiteral("I"));
        QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetSourceFile(b, s); }),
                 QStringLiteral("/x/y.workflow"));
        QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetPrimaryProduct(b, s); }),
                 QStringLiteral("P"));
        QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetTargetProduct(b, s); }),
                 QStringLiteral("Q:1"));
        QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetRequiredProducts(b, s); }),
                 QStringLiteral("a & b"));
        QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetRequiredProductsDisplayText(b, s); }),
                 QStringLiteral("A and B"));
        QCOMPARE(WorkflowPrivate::GetRequiredProductsDisplayText(&workflow), QStringLiteral("A and B"));
        QCOMPARE(ReadText([&](WideChar* b, int s) { return workflow.GetIntroduction(b, s); }),
                 QStringLiteral("Hello"));
    }

    void datesCrossAsSecondsSinceEpoch()
    {
        Workflow workflow;
        F(workflow).CreatedDate = QDateTime(QDate(2016, 3, 1), QTime(12, 0, 0), Qt::UTC).toLocalTime();
        F(workflow).LastModifiedDate = QDateTime(QDate(1970, 1, 1), QTime(0, 1, 0), Qt::UTC).toLocalTime();
        QCOMPARE(workflow.GetCreatedDate(), 1456833600u);
        QCOMPARE(workflow.GetLastModifiedDate(), 60u);
    }

    void readOnlyForTemplatesAndEitherMarker()
    {
        Workflow templ;
        QVERIFY(templ.IsReadOnly());
        std::unique_ptr<Workflow> user(NewUserWorkflow(QStringLiteral("u"), QString()));
        QVERIFY(!user->IsReadOnly());
        F(*user).IsReadOnly = true;
        QVERIFY(user->IsReadOnly());
        F(*user).IsReadOnly = false;
        F(*user).ProductsInherited = true;
        QVERIFY(user->IsReadOnly());
    }

    void getImageEmptyTableGivesEmptyText()
    {
        Workflow workflow;
        QCOMPARE(ImageOf(workflow, WorkflowImageTemplate, 32), QString());
        QCOMPARE(workflow.GetImage(WorkflowImageModified, 32, nullptr, 0), 0);
    }

    void getImageChoosesNearestWidth_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<QString>("expected");
        QTest::newRow("exact 16") << 16 << QStringLiteral("w16.png");
        QTest::newRow("exact 32") << 32 << QStringLiteral("w32.png");
        QTest::newRow("below all") << 1 << QStringLiteral("w16.png");
        QTest::newRow("between 16 and 32 tie goes to narrower") << 24 << QStringLiteral("w16.png");
        QTest::newRow("nearer to 32") << 25 << QStringLiteral("w32.png");
        QTest::newRow("nearer to 16") << 23 << QStringLiteral("w16.png");
        QTest::newRow("between 32 and 48 tie") << 40 << QStringLiteral("w32.png");
        QTest::newRow("above all gives widest") << 500 << QStringLiteral("w48.png");
    }
    void getImageChoosesNearestWidth()
    {
        QFETCH(int, size);
        QFETCH(QString, expected);
        Workflow workflow;
        F(workflow).SourceFile = Path(QStringLiteral("a.workflow"));
        F(workflow).TemplateImage = QStringLiteral("w48.png|w16.png||w32.png");
        QCOMPARE(ImageOf(workflow, WorkflowImageTemplate, size), Path(expected));
    }

    void getImageAutomaticFollowsTemplateFlag()
    {
        Workflow workflow;
        F(workflow).SourceFile = Path(QStringLiteral("a.workflow"));
        F(workflow).TemplateImage = QStringLiteral("w16.png");
        F(workflow).ModifiedImage = QStringLiteral("w32.png");
        QCOMPARE(ImageOf(workflow, WorkflowImageAutomatic, 16), Path(QStringLiteral("w16.png")));
        F(workflow).IsTemplate = false;
        QCOMPARE(ImageOf(workflow, WorkflowImageAutomatic, 16), Path(QStringLiteral("w32.png")));
        QCOMPARE(ImageOf(workflow, WorkflowImageModified, 16), Path(QStringLiteral("w32.png")));
        QCOMPARE(ImageOf(workflow, static_cast<WorkflowImage>(7), 16), Path(QStringLiteral("w16.png")));
    }

    void unloadableImageIsKeptUnderWidthZero()
    {
        Workflow workflow;
        F(workflow).SourceFile = Path(QStringLiteral("a.workflow"));
        F(workflow).TemplateImage = QStringLiteral("missing.png|w32.png");
        QCOMPARE(ImageOf(workflow, WorkflowImageTemplate, 0), QStringLiteral("missing.png"));
        QCOMPARE(F(workflow).TemplateImages.value(0), QStringLiteral("missing.png"));
        QCOMPARE(F(workflow).TemplateImages.value(32), QStringLiteral("w32.png"));
    }

    void laterImageOfSameWidthReplacesEarlier()
    {
        Workflow workflow;
        F(workflow).SourceFile = Path(QStringLiteral("a.workflow"));
        F(workflow).TemplateImage = QStringLiteral("w16.png|") + Path(QStringLiteral("w16.png"));
        QCOMPARE(F(workflow).TemplateImages.size(), 0);
        QCOMPARE(ImageOf(workflow, WorkflowImageTemplate, 16), Path(QStringLiteral("w16.png")));
        QCOMPARE(F(workflow).TemplateImages.size(), 1);
        QCOMPARE(F(workflow).TemplateImages.value(16), Path(QStringLiteral("w16.png")));
    }

    void setImageWithSizeZeroUsesRealWidth()
    {
        Workflow workflow;
        F(workflow).SourceFile = Path(QStringLiteral("a.workflow"));
        workflow.SetImage(WorkflowImageTemplate, 0, Wide(QStringLiteral("w48.png")));
        QCOMPARE(F(workflow).TemplateImages.keys(), QList<int>{48});
        QCOMPARE(F(workflow).TemplateImages.value(48), QStringLiteral("w48.png"));
        QVERIFY(F(workflow).TemplateImage.isEmpty());
        workflow.SetImage(WorkflowImageTemplate, -3, Wide(QStringLiteral("nothing-here.png")));
        QCOMPARE(F(workflow).TemplateImages.value(0), QStringLiteral("nothing-here.png"));
    }

    void setImageWithEmptyPathChangesNothing()
    {
        Workflow workflow;
        F(workflow).SourceFile = Path(QStringLiteral("a.workflow"));
        workflow.SetImage(WorkflowImageTemplate, 16, Wide(QStringLiteral("w16.png")));
        workflow.SetImage(WorkflowImageTemplate, 16, Wide(QString()));
        QCOMPARE(F(workflow).TemplateImages.value(16), QStringLiteral("w16.png"));
        QCOMPARE(F(workflow).TemplateImages.size(), 1);
    }

    void setImageKindSelectsTable()
    {
        Workflow workflow;
        F(workflow).IsTemplate = false;
        workflow.SetImage(WorkflowImageAutomatic, 10, Wide(QStringLiteral("auto.png")));
        workflow.SetImage(WorkflowImageModified, 20, Wide(QStringLiteral("mod.png")));
        workflow.SetImage(static_cast<WorkflowImage>(9), 30, Wide(QStringLiteral("other.png")));
        QCOMPARE(F(workflow).ModifiedImages.value(10), QStringLiteral("auto.png"));
        QCOMPARE(F(workflow).ModifiedImages.value(20), QStringLiteral("mod.png"));
        QCOMPARE(F(workflow).TemplateImages.value(30), QStringLiteral("other.png"));
    }

    void absoluteImagePathIsReturnedUnchanged()
    {
        Workflow workflow;
        QCOMPARE(ImpOf(workflow)->ResolveImagePath(QStringLiteral("/no/such/image.png")),
                 QStringLiteral("/no/such/image.png"));
    }

    void unmatchedRelativeImagePathStaysRelative()
    {
        Workflow workflow;
        F(workflow).SourceFile = Path(QStringLiteral("a.workflow"));
        QCOMPARE(ImpOf(workflow)->ResolveImagePath(QStringLiteral("none.png")), QStringLiteral("none.png"));
    }

    void relativeImageFoundBesideTheTemplate()
    {
        auto* templ = new Workflow;
        F(*templ).Id = QStringLiteral("TemplateA");
        F(*templ).SourceFile = Path(QStringLiteral("templates/a.workflow"));
        WorkflowPrivate::AddWorkflow(templ);
        std::unique_ptr<Workflow> user(NewUserWorkflow(QStringLiteral("u"), QStringLiteral("templatea")));
        F(*user).SourceFile = Path(QStringLiteral("u.workflow"));
        F(*user).ModifiedImage = QStringLiteral("t24.png");
        QCOMPARE(ImageOf(*user, WorkflowImageModified, 24), Path(QStringLiteral("templates/t24.png")));
        // A template never looks beside another template.
        Workflow otherTemplate;
        F(otherTemplate).TemplateId = QStringLiteral("TemplateA");
        F(otherTemplate).SourceFile = Path(QStringLiteral("b.workflow"));
        QCOMPARE(ImpOf(otherTemplate)->ResolveImagePath(QStringLiteral("t24.png")),
                 QStringLiteral("t24.png"));
    }

    void saveOnTemplateReturnsFalseAndWritesNothing()
    {
        Workflow workflow;
        F(workflow).SourceFile = Path(QStringLiteral("template.workflow"));
        F(workflow).Name = QStringLiteral("Named");
        QVERIFY(!workflow.Save());
        QVERIFY(!QFile::exists(Path(QStringLiteral("Named.workflow"))));
        QVERIFY(workflow.IsTemplate());
    }

    void cloneKeepsSourceFileAndIdButNotModified()
    {
        Workflow workflow;
        F(workflow).Id = QStringLiteral("Id_X");
        F(workflow).SourceFile = Path(QStringLiteral("x.workflow"));
        F(workflow).XlfFile = QStringLiteral("Texts");
        F(workflow).IsModified = true;
        F(workflow).ProductsInherited = true;
        F(workflow).UIStateChanged = true;
        F(workflow).ShowIntroductionOnExecute = false;
        F(workflow).ModifiedImages.insert(16, QStringLiteral("m.png"));
        std::unique_ptr<Workflow> clone(workflow.Clone());
        QCOMPARE(F(*clone).Id, QStringLiteral("Id_X"));
        QCOMPARE(F(*clone).SourceFile, Path(QStringLiteral("x.workflow")));
        QCOMPARE(F(*clone).XlfFile, QStringLiteral("Texts"));
        QVERIFY(F(*clone).ProductsInherited);
        QVERIFY(F(*clone).UIStateChanged);
        QVERIFY(!F(*clone).ShowIntroductionOnExecute);
        QCOMPARE(F(*clone).ModifiedImages.value(16), QStringLiteral("m.png"));
        QVERIFY(!F(*clone).IsModified);
    }

    void copyFromKeepsOwnModifiedFlag()
    {
        Workflow source;
        F(source).Name = QStringLiteral("source");
        F(source).IsModified = false;
        Workflow target;
        F(target).IsModified = true;
        target.CopyFrom(&source);
        QCOMPARE(F(target).Name, QStringLiteral("source"));
        QVERIFY(F(target).IsModified);
    }

    void copyFromNullOrSelfDoesNothing()
    {
        Workflow workflow;
        F(workflow).Name = QStringLiteral("kept");
        workflow.CopyFrom(nullptr);
        workflow.CopyFrom(&workflow);
        QCOMPARE(F(workflow).Name, QStringLiteral("kept"));
    }

    void copyFromSignalsTheCatalogueEntry()
    {
        WorkflowManagerImp* manager = ImpOf(WorkflowManager::GetInstance());
        auto* first = new Workflow;
        F(*first).Id = QStringLiteral("First");
        auto* second = new Workflow;
        F(*second).Id = QStringLiteral("Second");
        F(*second).SourceFile = Path(QStringLiteral("second.workflow"));
        WorkflowPrivate::AddWorkflow(first);
        WorkflowPrivate::AddWorkflow(second);
        QSignalSpy modified(manager, &WorkflowManagerImp::WorkflowModified);

        Workflow edited;
        F(edited).Id = QStringLiteral("SECOND");
        F(edited).SourceFile = Path(QStringLiteral("./second.workflow"));
        second->CopyFrom(&edited);
        QCOMPARE(modified.size(), 1);
        QCOMPARE(modified.at(0).at(0).toInt(), 1);
    }

    void copyFromOfUncataloguedRecordSignalsNothing()
    {
        WorkflowManagerImp* manager = ImpOf(WorkflowManager::GetInstance());
        QSignalSpy modified(manager, &WorkflowManagerImp::WorkflowModified);
        Workflow source;
        F(source).Id = QStringLiteral("Nowhere");
        Workflow target;
        target.CopyFrom(&source);
        QCOMPARE(modified.size(), 0);
    }

    void resetTakesDescriptionKeywordsAndSettingsFromTemplate()
    {
        auto* templ = new Workflow;
        F(*templ).Id = QStringLiteral("Tpl");
        F(*templ).Description = QStringLiteral("template description");
        F(*templ).Keywords = QStringLiteral("template keywords");
        F(*templ).Settings = QStringLiteral("<Step/>");
        F(*templ).Name = QStringLiteral("template name");
        WorkflowPrivate::AddWorkflow(templ);
        std::unique_ptr<Workflow> user(NewUserWorkflow(QStringLiteral("u"), QStringLiteral("TPL")));
        F(*user).Description = QStringLiteral("mine");
        F(*user).Keywords = QStringLiteral("mine");
        F(*user).Settings = QStringLiteral("<Mine/>");
        F(*user).Name = QStringLiteral("my name");
        user->Reset();
        QCOMPARE(F(*user).Description, QStringLiteral("template description"));
        QCOMPARE(F(*user).Keywords, QStringLiteral("template keywords"));
        QCOMPARE(F(*user).Settings.ToString(), QStringLiteral("<Step/>"));
        QCOMPARE(F(*user).Name, QStringLiteral("my name"));
    }

    void resetOfTemplateOrWithoutTemplateDoesNothing()
    {
        Workflow templ;
        F(templ).Description = QStringLiteral("stays");
        templ.Reset();
        QCOMPARE(F(templ).Description, QStringLiteral("stays"));
        std::unique_ptr<Workflow> orphan(NewUserWorkflow(QStringLiteral("o"), QStringLiteral("Missing")));
        F(*orphan).Description = QStringLiteral("stays too");
        orphan->Reset();
        QCOMPARE(F(*orphan).Description, QStringLiteral("stays too"));
    }

    void targetCheck_data()
    {
        QTest::addColumn<QString>("targetProduct");
        QTest::addColumn<bool>("complete");
        QTest::newRow("empty") << QString() << true;
        QTest::newRow("only commas") << QStringLiteral(",,") << true;
        QTest::newRow("product and version") << QStringLiteral("prod:2016") << true;
        QTest::newRow("leading comma") << QStringLiteral(",prod:2016") << true;
        QTest::newRow("first of several") << QStringLiteral("prod:2016,other") << true;
        QTest::newRow("no version") << QStringLiteral("prod") << false;
        QTest::newRow("empty version") << QStringLiteral("prod:") << false;
        QTest::newRow("three pieces") << QStringLiteral("prod:2016:1") << false;
        QTest::newRow("doubled colon still two") << QStringLiteral("prod::2016") << true;
        QTest::newRow("only the first part counts") << QStringLiteral("prod,other:1") << false;
    }
    void targetCheck()
    {
        QFETCH(QString, targetProduct);
        QFETCH(bool, complete);
        Workflow workflow;
        F(workflow).TargetProduct = targetProduct;
        QCOMPARE(ImpOf(workflow)->HasCompleteTargetProduct(), complete);
    }

    void inheritProductsFromCompleteTemplate()
    {
        auto* templ = new Workflow;
        F(*templ).Id = QStringLiteral("Tpl");
        F(*templ).PrimaryProduct = QStringLiteral("alpha");
        F(*templ).RequiredProducts = QStringLiteral("alpha & beta");
        F(*templ).TargetProduct = QStringLiteral("alpha:2016");
        WorkflowPrivate::AddWorkflow(templ);
        std::unique_ptr<Workflow> user(NewUserWorkflow(QStringLiteral("u"), QStringLiteral("Tpl")));
        F(*user).TargetProduct = QStringLiteral("alpha");
        F(*user).PrimaryProduct = QStringLiteral("old");
        ImpOf(user.get())->InheritProducts();
        QCOMPARE(F(*user).PrimaryProduct, QStringLiteral("alpha"));
        QCOMPARE(F(*user).RequiredProducts, QStringLiteral("alpha & beta"));
        QCOMPARE(F(*user).TargetProduct, QStringLiteral("alpha:2016"));
        QVERIFY(F(*user).ProductsInherited);
        QVERIFY(user->IsReadOnly());
    }

    void noInheritanceWhenOwnProductsComplete()
    {
        auto* templ = new Workflow;
        F(*templ).Id = QStringLiteral("Tpl");
        F(*templ).TargetProduct = QStringLiteral("alpha:2016");
        WorkflowPrivate::AddWorkflow(templ);
        std::unique_ptr<Workflow> user(NewUserWorkflow(QStringLiteral("u"), QStringLiteral("Tpl")));
        F(*user).TargetProduct = QStringLiteral("beta:2017");
        ImpOf(user.get())->InheritProducts();
        QCOMPARE(F(*user).TargetProduct, QStringLiteral("beta:2017"));
        QVERIFY(!F(*user).ProductsInherited);
    }

    void noInheritanceFromIncompleteTemplate()
    {
        auto* templ = new Workflow;
        F(*templ).Id = QStringLiteral("Tpl");
        F(*templ).TargetProduct = QStringLiteral("alpha");
        F(*templ).PrimaryProduct = QStringLiteral("alpha");
        WorkflowPrivate::AddWorkflow(templ);
        std::unique_ptr<Workflow> user(NewUserWorkflow(QStringLiteral("u"), QStringLiteral("Tpl")));
        F(*user).TargetProduct = QStringLiteral("beta");
        ImpOf(user.get())->InheritProducts();
        QCOMPARE(F(*user).TargetProduct, QStringLiteral("beta"));
        QVERIFY(F(*user).PrimaryProduct.isEmpty());
        QVERIFY(!F(*user).ProductsInherited);
    }

    void templatesNeverInherit()
    {
        auto* source = new Workflow;
        F(*source).Id = QStringLiteral("Tpl");
        F(*source).TargetProduct = QStringLiteral("alpha:1");
        WorkflowPrivate::AddWorkflow(source);
        Workflow templ;
        F(templ).TemplateId = QStringLiteral("Tpl");
        F(templ).TargetProduct = QStringLiteral("beta");
        ImpOf(templ)->InheritProducts();
        QCOMPARE(F(templ).TargetProduct, QStringLiteral("beta"));
    }

    void uiStateSetMarksChangeWithoutWriting()
    {
        Workflow workflow;
        WorkflowPrivate::SetUIState(&workflow, WorkflowUIState{false});
        QVERIFY(!WorkflowPrivate::GetUIState(&workflow).ShowIntroductionOnExecute);
        QVERIFY(F(workflow).UIStateChanged);
    }

    void safeFileNameKeepsNamesInTheirFolder_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("expected");
        QTest::newRow("plain") << QStringLiteral("My flow") << QStringLiteral("My flow");
        QTest::newRow("slash") << QStringLiteral("../../etc/x") << QStringLiteral(".._.._etc_x");
        QTest::newRow("backslash") << QStringLiteral("a\\b") << QStringLiteral("a_b");
        QTest::newRow("nul") << (QStringLiteral("a") + QChar(0) + QStringLiteral("b"))
                             << QStringLiteral("a_b");
        QTest::newRow("dot dot") << QStringLiteral("..") << QStringLiteral("__");
        QTest::newRow("dots inside stay") << QStringLiteral("v1.2") << QStringLiteral("v1.2");
    }
    void safeFileNameKeepsNamesInTheirFolder()
    {
        QFETCH(QString, name);
        QFETCH(QString, expected);
        QCOMPARE(SafeFileName(name), expected);
    }
};

QTEST_GUILESS_MAIN(tst_Workflow)
#include "tst_workflow.moc"
