// SPDX-License-Identifier: MIT
// The catalogue: scanning folders, orphans, inheritance, lookups, sorting and deletion.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include "manager/WorkflowManagerImp.h"
#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include "FileFixtures.h"
#include "TestEnvironment.h"
#include "WideText.h"

#include <QSignalSpy>
#include <QtTest>

#include <memory>

using namespace Velmora::WorkflowCore;
using namespace VmWorkflowTest;

namespace {

WorkflowManager* Manager()
{
    return WorkflowManager::GetInstance();
}

WorkflowManagerImp* Imp()
{
    return ImpOf(WorkflowManager::GetInstance());
}

QString IdOf(Workflow* workflow)
{
    return ImpOf(workflow)->Fields().Id;
}

QStringList Ids(WorkflowIterator* iterator)
{
    QStringList ids;
    while (iterator->MoveNext())
        ids << IdOf(iterator->GetCurrent());
    delete iterator;
    return ids;
}

QStringList CatalogueIds()
{
    QStringList ids;
    for (Workflow* workflow : Imp()->Catalogue())
        ids << IdOf(workflow);
    return ids;
}

// Records every catalogue signal as "name(argument)".
class SignalLog : public QObject
{
public:
    explicit SignalLog(WorkflowManagerImp* imp)
    {
        connect(imp, &WorkflowManagerImp::WorkflowAboutToBeInserted, this,
                [this](int n) { entries << QStringLiteral("AboutToBeInserted(%1)").arg(n); });
        connect(imp, &WorkflowManagerImp::WorkflowInserted, this,
                [this](int n) { entries << QStringLiteral("Inserted(%1)").arg(n); });
        connect(imp, &WorkflowManagerImp::WorkflowAboutToBeRemoved, this,
                [this](int n) { entries << QStringLiteral("AboutToBeRemoved(%1)").arg(n); });
        connect(imp, &WorkflowManagerImp::WorkflowRemoved, this,
                [this](int n) { entries << QStringLiteral("Removed(%1)").arg(n); });
        connect(imp, &WorkflowManagerImp::WorkflowModified, this,
                [this](int n) { entries << QStringLiteral("Modified(%1)").arg(n); });
    }
    QStringList entries;
};

} // namespace

class tst_Catalogue : public QObject
{
    Q_OBJECT
private:
    TestEnvironment m_env;
    std::unique_ptr<QTemporaryDir> m_dir;

    QString Path(const QString& name) const { return m_dir->filePath(name); }
    void Write(const QString& name, const QByteArray& elements, const QByteArray& xlf = QByteArray())
    {
        QVERIFY(WriteFile(Path(name), WorkflowDocument(elements, xlf)));
    }
    void SetSearchPaths(const QString& paths) { Manager()->SetWorkflowSearchPaths(Wide(paths)); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_env.Setup());
        // Product sort keys compare display names, so the products get names that sort like their ids.
        const QString products = m_env.Root() + QStringLiteral("/products");
        QVERIFY(WriteFile(products + QStringLiteral("/Products.xml"),
                          "<Products><Product Id=\"p1\" Name=\"Product One\"/><Product Id=\"p2\" "
                          "Name=\"Product Two\"/></Products>"));
        QVERIFY(WriteFile(m_env.ConfigDirs() + QStringLiteral("/Velmora/Workflow/2015.0.conf"),
                          "[General]\nProductsXmlFileSearchPath=" + QFile::encodeName(products) + "\n"));
    }
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        QDir(m_env.DataHome() + QStringLiteral("/Velmora")).removeRecursively();
        QVERIFY(WorkflowManager::Initialize());
    }
    void cleanup()
    {
        QVERIFY(WorkflowManager::Uninitialize());
        m_dir.reset();
    }

    void scansEveryChildElementOfEveryFileInNameOrder()
    {
        Write(QStringLiteral("b.workflow"), WorkflowElement(R"(Id="B1")"));
        Write(QStringLiteral("a.workflow"), WorkflowElement(R"(Id="A1")") + "<Other Id=\"A2\"/>");
        Write(QStringLiteral("c.xml"), WorkflowElement(R"(Id="NotAWorkflowFile")"));
        SetSearchPaths(m_dir->path());
        QCOMPARE(CatalogueIds(),
                 QStringList({QStringLiteral("A1"), QStringLiteral("A2"), QStringLiteral("B1")}));
    }

    void emptyPartsOfSearchPathAreSkippedAndUserFolderComesLast()
    {
        Write(QStringLiteral("one/t.workflow"), WorkflowElement(R"(Id="Tpl")"));
        QVERIFY(
            WriteFile(Imp()->UserWorkflowFolder() + QStringLiteral("/mine.workflow"),
                      WorkflowDocument(WorkflowElement(R"(Id="Mine" IsTemplate="False" TemplateId="tpl")"))));
        Write(QStringLiteral("two/other.workflow"), WorkflowElement(R"(Id="Other")"));
        SetSearchPaths(QStringLiteral(";") + Path(QStringLiteral("one")) + QStringLiteral(";"));
        QCOMPARE(CatalogueIds(), QStringList({QStringLiteral("Tpl"), QStringLiteral("Mine")}));
    }

    void folderNamedTwiceGivesEveryWorkflowTwice()
    {
        Write(QStringLiteral("t.workflow"), WorkflowElement(R"(Id="Tpl" Name="first")"));
        SetSearchPaths(m_dir->path() + QLatin1Char(';') + m_dir->path());
        QCOMPARE(CatalogueIds(), QStringList({QStringLiteral("Tpl"), QStringLiteral("Tpl")}));
        Workflow* found = Manager()->GetWorkflow(Wide(QStringLiteral("tpl")), Wide(QString()));
        QCOMPARE(found, Imp()->Catalogue().at(0));
    }

    void subfoldersAreNotScanned()
    {
        Write(QStringLiteral("top.workflow"), WorkflowElement(R"(Id="Top")"));
        Write(QStringLiteral("sub/deep.workflow"), WorkflowElement(R"(Id="Deep")"));
        SetSearchPaths(m_dir->path());
        QCOMPARE(CatalogueIds(), QStringList{QStringLiteral("Top")});
    }

    void hiddenFilesAreNotCatalogued()
    {
        Write(QStringLiteral("seen.workflow"), WorkflowElement(R"(Id="Seen")"));
        Write(QStringLiteral(".workflow"), WorkflowElement(R"(Id="Unnamed")"));
        Write(QStringLiteral(".hidden.workflow"), WorkflowElement(R"(Id="Hidden")"));
        QVERIFY(WriteFile(Imp()->UserWorkflowFolder() + QStringLiteral("/.Other.workflow"),
                          WorkflowDocument(WorkflowElement(R"(Id="HiddenMine")"))));
        SetSearchPaths(m_dir->path());
        QCOMPARE(CatalogueIds(), QStringList{QStringLiteral("Seen")});
    }

    void badFilesAndMissingFoldersAreSkipped()
    {
        QVERIFY(WriteFile(Path(QStringLiteral("broken.workflow")), "<Workflows><Workflow Id=\"x\""));
        QVERIFY(WriteFile(Path(QStringLiteral("empty.workflow")), QByteArray()));
        Write(QStringLiteral("good.workflow"), WorkflowElement(R"(Id="Good")"));
        SetSearchPaths(Path(QStringLiteral("missing")) + QLatin1Char(';') + m_dir->path());
        QCOMPARE(CatalogueIds(), QStringList{QStringLiteral("Good")});
    }

    void firstInsertionSignalsZeroThenOne()
    {
        Write(QStringLiteral("t.workflow"), WorkflowElement(R"(Id="T1")") + WorkflowElement(R"(Id="T2")"));
        SignalLog log(Imp());
        SetSearchPaths(m_dir->path());
        QCOMPARE(log.entries,
                 QStringList({QStringLiteral("AboutToBeInserted(0)"), QStringLiteral("Inserted(1)"),
                              QStringLiteral("AboutToBeInserted(1)"), QStringLiteral("Inserted(2)")}));
    }

    void orphanIsRemovedWithPairedSignals()
    {
        Write(QStringLiteral("a.workflow"),
              WorkflowElement(R"(Id="Tpl")") +
                  WorkflowElement(R"(Id="Orphan" IsTemplate="False" TemplateId="Gone")") +
                  WorkflowElement(R"(Id="Child" IsTemplate="False" TemplateId="TPL")"));
        SignalLog log(Imp());
        SetSearchPaths(m_dir->path());
        QCOMPARE(CatalogueIds(), QStringList({QStringLiteral("Tpl"), QStringLiteral("Child")}));
        QCOMPARE(log.entries.mid(6),
                 QStringList({QStringLiteral("AboutToBeRemoved(1)"), QStringLiteral("Removed(1)")}));
    }

    void orphanWithEmptyTemplateIdIsRemoved()
    {
        Write(QStringLiteral("a.workflow"),
              WorkflowElement(R"(Id="Tpl")") + WorkflowElement(R"(Id="NoTemplate" IsTemplate="False")"));
        SetSearchPaths(m_dir->path());
        QCOMPARE(CatalogueIds(), QStringList{QStringLiteral("Tpl")});
    }

    void templatesAlwaysStay()
    {
        Write(QStringLiteral("a.workflow"), WorkflowElement(R"(Id="Tpl" TemplateId="Nothing")"));
        SetSearchPaths(m_dir->path());
        QCOMPARE(CatalogueIds(), QStringList{QStringLiteral("Tpl")});
    }

    void incompleteProductsAreInheritedAndReadOnly()
    {
        Write(
            QStringLiteral("a.workflow"),
            WorkflowElement(
                R"(Id="Tpl" PrimaryProduct="alpha" RequiredProducts="alpha" TargetProduct="alpha:2016")") +
                WorkflowElement(
                    R"(Id="User" IsTemplate="False" TemplateId="Tpl" TargetProduct="beta" PrimaryProduct="beta")") +
                WorkflowElement(R"(Id="Own" IsTemplate="False" TemplateId="Tpl" TargetProduct="gamma:1")"));
        SetSearchPaths(m_dir->path());
        Workflow* user = Manager()->GetWorkflow(Wide(QStringLiteral("User")), Wide(QString()));
        QVERIFY(user);
        QCOMPARE(ImpOf(user)->Fields().PrimaryProduct, QStringLiteral("alpha"));
        QCOMPARE(ImpOf(user)->Fields().RequiredProducts, QStringLiteral("alpha"));
        QCOMPARE(ImpOf(user)->Fields().TargetProduct, QStringLiteral("alpha:2016"));
        QVERIFY(user->IsReadOnly());
        Workflow* own = Manager()->GetWorkflow(Wide(QStringLiteral("Own")), Wide(QString()));
        QCOMPARE(ImpOf(own)->Fields().TargetProduct, QStringLiteral("gamma:1"));
        QVERIFY(!own->IsReadOnly());
    }

    void xlfFileIsStoredInEachRecord()
    {
        Write(QStringLiteral("a.workflow"), WorkflowElement(R"(Id="T1")") + WorkflowElement(R"(Id="T2")"),
              "Texts");
        SetSearchPaths(m_dir->path());
        for (Workflow* workflow : Imp()->Catalogue())
            QCOMPARE(ImpOf(workflow)->Fields().XlfFile, QStringLiteral("Texts"));
    }

    void lookupIsLazyAfterInitialize()
    {
        QVERIFY(WriteFile(Imp()->UserWorkflowFolder() + QStringLiteral("/t.workflow"),
                          WorkflowDocument(WorkflowElement(R"(Id="UserFolderTemplate")"))));
        QVERIFY(!Imp()->IsCatalogueLoaded());
        QVERIFY(Manager()->GetWorkflow(Wide(QStringLiteral("userfoldertemplate")), Wide(QString())));
        QVERIFY(Imp()->IsCatalogueLoaded());
    }

    void sameIdInTwoFilesEarlierPathWinsUnlessFileNamed()
    {
        Write(QStringLiteral("first/x.workflow"), WorkflowElement(R"(Id="Same" Name="first")"));
        Write(QStringLiteral("second/x.workflow"), WorkflowElement(R"(Id="same" Name="second")"));
        SetSearchPaths(Path(QStringLiteral("first")) + QLatin1Char(';') + Path(QStringLiteral("second")));
        Workflow* byId = Manager()->GetWorkflow(Wide(QStringLiteral("SAME")), Wide(QString()));
        QCOMPARE(ImpOf(byId)->Fields().Name, QStringLiteral("first"));
        Workflow* byFile = Manager()->GetWorkflow(Wide(QStringLiteral("same")),
                                                  Wide(Path(QStringLiteral("second/../second/x.workflow"))));
        QCOMPARE(ImpOf(byFile)->Fields().Name, QStringLiteral("second"));
    }

    void filterAndSortTexts_data()
    {
        QTest::addColumn<QByteArray>("elements");
        QTest::addColumn<QString>("filter");
        QTest::addColumn<QString>("sort");
        QTest::addColumn<QStringList>("ids");
        const auto Order = [](const char* ids) { return QString::fromLatin1(ids).split(QLatin1Char(',')); };
        const QByteArray threeNames = WorkflowElement(R"(Id="C" Name="charlie")") +
                                      WorkflowElement(R"(Id="A" Name="Alpha")") +
                                      WorkflowElement(R"(Id="B" Name="bravo")");
        const QByteArray products = WorkflowElement(R"(Id="1" Name="b" TargetProduct="p1:1")") +
                                    WorkflowElement(R"(Id="2" Name="a" TargetProduct="p2:1")") +
                                    WorkflowElement(R"(Id="3" Name="c" TargetProduct="p1:1")") +
                                    WorkflowElement(R"(Id="4" Name="a" TargetProduct="p1:1")") +
                                    WorkflowElement(R"(Id="5" Name="z" TargetProduct="p2:1")");
        const QByteArray templates = WorkflowElement(R"(Id="T" Name="t")") +
                                     WorkflowElement(R"(Id="U" Name="u" IsTemplate="False" TemplateId="T")") +
                                     WorkflowElement(R"(Id="T2" Name="s")");
        QTest::newRow("empty texts keep the catalogue order")
            << threeNames << QString() << QString() << Order("C,A,B");
        QTest::newRow("separators alone keep the catalogue order")
            << threeNames << QString() << QStringLiteral(",,") << Order("C,A,B");
        QTest::newRow("name, ascending by default")
            << threeNames << QString() << QStringLiteral("Name") << Order("A,B,C");
        QTest::newRow("name descending, key in any case")
            << threeNames << QString() << QStringLiteral("name:1") << Order("C,B,A");
        QTest::newRow("an order that is not a number is ascending")
            << threeNames << QString() << QStringLiteral("Name:x") << Order("A,B,C");
        QTest::newRow("target product first, then name")
            << products << QString() << QStringLiteral("TargetProduct:1,Name:0") << Order("2,5,4,1,3");
        QTest::newRow("name first, then target product")
            << products << QString() << QStringLiteral("Name:0,TargetProduct:1") << Order("2,4,1,3,5");
        QTest::newRow("templates first, then name")
            << templates << QString() << QStringLiteral("IsTemplate:0,Name") << Order("T2,T,U");
        QTest::newRow("user workflows first, ties in catalogue order")
            << templates << QString() << QStringLiteral("istemplate:1") << Order("U,T,T2");
        QTest::newRow("templates only")
            << templates << QStringLiteral("IsTemplate=true") << QString() << Order("T,T2");
        QTest::newRow("user workflows only, sorted")
            << templates << QStringLiteral("istemplate=false") << QStringLiteral("Name:1") << Order("U");
    }
    void filterAndSortTexts()
    {
        QFETCH(QByteArray, elements);
        QFETCH(QString, filter);
        QFETCH(QString, sort);
        QFETCH(QStringList, ids);
        Write(QStringLiteral("a.workflow"), elements);
        SetSearchPaths(m_dir->path());
        QCOMPARE(Ids(Manager()->GetWorkflows(Wide(filter), Wide(sort))), ids);
        if (filter.isEmpty() && sort.isEmpty())
            QCOMPARE(Ids(Manager()->GetWorkflows()), ids);
        // Asked about one workflow at a time, the filter lets through exactly what the query kept.
        std::unique_ptr<WorkflowIterator> all(Manager()->GetWorkflows());
        int passed = 0;
        while (all->MoveNext())
        {
            const QString id = ImpOf(all->GetCurrent())->Fields().Id;
            QCOMPARE(WorkflowPrivate::MatchesFilter(all->GetCurrent(), filter), ids.contains(id));
            passed += WorkflowPrivate::MatchesFilter(all->GetCurrent(), filter) ? 1 : 0;
        }
        QCOMPARE(passed, ids.size());
        QVERIFY(!WorkflowPrivate::MatchesFilter(nullptr, filter));
    }

    void filterTextWithProductKeysIsAccepted()
    {
        Write(QStringLiteral("a.workflow"), WorkflowElement(R"(Id="T" Name="t")"));
        SetSearchPaths(m_dir->path());
        std::unique_ptr<WorkflowIterator> it(Manager()->GetWorkflows(
            Wide(QStringLiteral("IsExecutable=true,PrimaryProduct=alpha,IsTemplate")), Wide(QString())));
        QVERIFY(it);
    }

    void deleteLastWorkflowRemovesFile()
    {
        Write(QStringLiteral("t.workflow"), WorkflowElement(R"(Id="Tpl")"));
        Write(QStringLiteral("u.workflow"),
              WorkflowElement(R"(Id="User" IsTemplate="False" TemplateId="Tpl")"));
        SetSearchPaths(m_dir->path());
        SignalLog log(Imp());
        QVERIFY(Manager()->DeleteWorkflow(Wide(QStringLiteral("user")), Wide(QString()), true));
        QCOMPARE(log.entries,
                 QStringList({QStringLiteral("AboutToBeRemoved(1)"), QStringLiteral("Removed(1)")}));
        QVERIFY(!QFile::exists(Path(QStringLiteral("u.workflow"))));
        QCOMPARE(CatalogueIds(), QStringList{QStringLiteral("Tpl")});
    }

    void deleteOneOfSeveralRewritesFile()
    {
        Write(QStringLiteral("t.workflow"), WorkflowElement(R"(Id="Tpl")"));
        Write(QStringLiteral("u.workflow"),
              WorkflowElement(R"(Id="U1" IsTemplate="False" TemplateId="Tpl")") +
                  WorkflowElement(R"(Id="U2" IsTemplate="False" TemplateId="Tpl")"));
        SetSearchPaths(m_dir->path());
        QVERIFY(Manager()->DeleteWorkflow(Wide(QStringLiteral("U1")),
                                          Wide(Path(QStringLiteral("u.workflow"))), true));
        const QByteArray rest = ReadFile(Path(QStringLiteral("u.workflow")));
        QVERIFY(!rest.contains("\"U1\""));
        QVERIFY(rest.contains("\"U2\""));
        Manager()->SetWorkflowSearchPaths(Wide(m_dir->path() + QLatin1Char(';')));
        QCOMPARE(CatalogueIds(), QStringList({QStringLiteral("Tpl"), QStringLiteral("U2")}));
    }

    void deleteWithoutFileKeepsFileAndComesBackOnRescan()
    {
        Write(QStringLiteral("t.workflow"), WorkflowElement(R"(Id="Tpl")"));
        Write(QStringLiteral("u.workflow"),
              WorkflowElement(R"(Id="User" IsTemplate="False" TemplateId="Tpl")"));
        SetSearchPaths(m_dir->path());
        const QByteArray before = ReadFile(Path(QStringLiteral("u.workflow")));
        QVERIFY(Manager()->DeleteWorkflow(Wide(QStringLiteral("User")), Wide(QString()), false));
        QCOMPARE(ReadFile(Path(QStringLiteral("u.workflow"))), before);
        QCOMPARE(CatalogueIds(), QStringList{QStringLiteral("Tpl")});
        SetSearchPaths(m_dir->path() + QLatin1Char(';'));
        QCOMPARE(CatalogueIds(), QStringList({QStringLiteral("Tpl"), QStringLiteral("User")}));
    }

    void deleteTemplateOrUnknownFailsSilently()
    {
        Write(QStringLiteral("t.workflow"), WorkflowElement(R"(Id="Tpl")"));
        SetSearchPaths(m_dir->path());
        SignalLog log(Imp());
        QVERIFY(!Manager()->DeleteWorkflow(Wide(QStringLiteral("Tpl")), Wide(QString()), true));
        QVERIFY(!Manager()->DeleteWorkflow(Wide(QStringLiteral("Nobody")), Wide(QString()), true));
        QVERIFY(log.entries.isEmpty());
        QVERIFY(QFile::exists(Path(QStringLiteral("t.workflow"))));
    }

    void deleteOfUnwritableFileLeavesSignalUnpaired()
    {
        Write(QStringLiteral("t.workflow"), WorkflowElement(R"(Id="Tpl")"));
        Write(QStringLiteral("u.workflow"),
              WorkflowElement(R"(Id="User" IsTemplate="False" TemplateId="Tpl")"));
        SetSearchPaths(m_dir->path());
        // A file that is gone cannot be written, whoever runs the test.
        QVERIFY(QFile::remove(Path(QStringLiteral("u.workflow"))));
        SignalLog log(Imp());
        QVERIFY(!Manager()->DeleteWorkflow(Wide(QStringLiteral("User")), Wide(QString()), true));
        QCOMPARE(log.entries, QStringList{QStringLiteral("AboutToBeRemoved(1)")});
        QCOMPARE(CatalogueIds(), QStringList({QStringLiteral("Tpl"), QStringLiteral("User")}));
    }

    void renamedWorkflowIsFoundByItsNewName()
    {
        Write(QStringLiteral("t.workflow"), WorkflowElement(R"(Id="Tpl" Name="Old name")"));
        SetSearchPaths(m_dir->path());
        Workflow* workflow = WorkflowPrivate::FindWorkflow(QStringLiteral("old NAME"));
        QVERIFY(workflow);
        workflow->SetName(Wide(QStringLiteral("New name")));
        QVERIFY(!WorkflowPrivate::FindWorkflow(QStringLiteral("Old name")));
        QCOMPARE(WorkflowPrivate::FindWorkflow(QStringLiteral("new name")), workflow);
        QCOMPARE(WorkflowPrivate::GetNewWorkflowName(QStringLiteral("New name")),
                 QStringLiteral("New name (1)"));
    }

    void workflowRenamedOutsideTheCatalogueIsFoundByItsNameOnceAdded()
    {
        Write(QStringLiteral("t.workflow"), WorkflowElement(R"(Id="Tpl" Name="Kept")"));
        SetSearchPaths(m_dir->path());
        QVERIFY(WorkflowPrivate::FindWorkflow(QStringLiteral("kept")));
        auto* own = new Workflow;
        ImpOf(own)->Fields().Id = QStringLiteral("Own");
        own->SetName(Wide(QStringLiteral("First")));
        // Renamed while the catalogue does not hold it: the catalogue's lookups are untouched.
        own->SetName(Wide(QStringLiteral("Second")));
        QVERIFY(!WorkflowPrivate::FindWorkflow(QStringLiteral("second")));
        QVERIFY(WorkflowPrivate::FindWorkflow(QStringLiteral("kept")));
        WorkflowPrivate::AddWorkflow(own);
        QCOMPARE(WorkflowPrivate::FindWorkflow(QStringLiteral("second")), own);
        QVERIFY(!WorkflowPrivate::FindWorkflow(QStringLiteral("first")));
        // Once held, a rename reaches the catalogue's index from the record itself.
        own->SetName(Wide(QStringLiteral("Third")));
        QCOMPARE(WorkflowPrivate::FindWorkflow(QStringLiteral("third")), own);
        QVERIFY(!WorkflowPrivate::FindWorkflow(QStringLiteral("second")));
    }

    void modifiedInPluginAlwaysTrue()
    {
        QVERIFY(Manager()->WorkflowModifiedInPlugin(Wide(QStringLiteral("Any")),
                                                    Wide(QStringLiteral("/x.workflow"))));
    }

    void rescanEmptiesBeforeRebuilding()
    {
        Write(QStringLiteral("t.workflow"), WorkflowElement(R"(Id="Tpl")"));
        SetSearchPaths(m_dir->path());
        SignalLog log(Imp());
        SetSearchPaths(m_dir->path() + QLatin1Char(';'));
        // Emptying raises nothing; the rebuild raises the insertions from index 0 again.
        QCOMPARE(log.entries,
                 QStringList({QStringLiteral("AboutToBeInserted(0)"), QStringLiteral("Inserted(1)")}));
    }
};

QTEST_GUILESS_MAIN(tst_Catalogue)
#include "tst_catalogue.moc"
